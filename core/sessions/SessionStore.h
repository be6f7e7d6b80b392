// The application's record of every agent session, changed by the stream of
// agent events and by the ends of held requests.
//
// Readings chosen where the rules leave room:
// - Status after a held request ends and none remains: a reply, allow or deny
//   -> working (the agent carries on); let stop -> finished; a time-out or a
//   withdrawal -> working for a permission request (the agent goes on, asking in
//   its own interface or having been answered there) and finished for a reply
//   request (the agent stops its turn). While others remain pending the status
//   follows status(pending) whatever the outcome.
// - prune removes sessions with nothing pending whose last activity is older
//   than the age limit (a week by default).
// - snapshot lists the sessions that need the user first, then the rest, each
//   group by most recent activity; ties by key, so the order is stable.
// - restore keeps a live session over a restored one with the same key, and
//   drops restored pending requests: no connection is holding them any more.
#pragma once

#include "events/AgentEvent.h"
#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "sessions/HoldResult.h"
#include "sessions/PendingRequest.h"
#include "sessions/Session.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tidewick {

/// What changed in the store.
struct StoreChange {
    enum class Kind {
        /// A session was added or changed; `session` holds its new value.
        session,
        /// The session `key` was removed.
        removed,
        /// The requests held in session `key` changed; `pending` holds them now.
        pending,
    };

    Kind kind = Kind::session;
    SessionKey key;
    std::optional<Session> session;
    std::vector<PendingRequest> pending;

    [[nodiscard]] static StoreChange changed(Session value);
    [[nodiscard]] static StoreChange removed(SessionKey key);
    [[nodiscard]] static StoreChange pendingChanged(SessionKey key,
                                                    std::vector<PendingRequest> requests);

    friend bool operator==(const StoreChange&, const StoreChange&) = default;
};

/// Raw values equal the case names.
template <> struct RawValues<StoreChange::Kind> {
    static constexpr EnumTable<StoreChange::Kind, 3> table{{{
        {StoreChange::Kind::session, "session"},
        {StoreChange::Kind::removed, "removed"},
        {StoreChange::Kind::pending, "pending"},
    }}};
};

class SessionStore {
public:
    /// How a held request ended (the broker's result).
    using Outcome = HoldResult;

    using ChangeHandler = std::function<void(const StoreChange&)>;

    /// Most timeline items a session keeps; adding to a full timeline drops the oldest.
    static constexpr std::size_t timelineLimit = 200;
    /// Texts put into the timeline keep this many user-perceived characters.
    static constexpr std::size_t textLimit = 2000;
    /// prune's default age limit: a week.
    static constexpr double defaultPruneAge = 7 * 24 * 3600.0;

    /// A store reading the time from `clock`.
    explicit SessionStore(Clock clock = tidewick::now);
    SessionStore(const SessionStore&) = delete;
    SessionStore& operator=(const SessionStore&) = delete;

    /// Installs the handler told about every change. It is called on the changing thread
    /// after the change, outside the store's lock, so it may call back into the store.
    void setOnChange(ChangeHandler handler);

    /// Applies one agent event, creating the session on its first event; the session after
    /// the change. While requests are pending, ordinary activity leaves the status alone.
    Session apply(const AgentEvent& event);

    /// The session with `key`, if any.
    [[nodiscard]] std::optional<Session> session(const SessionKey& key) const;
    /// Every session: those needing the user first, then by most recent activity.
    [[nodiscard]] std::vector<Session> snapshot() const;
    /// Every held request with its session, oldest first.
    [[nodiscard]] std::vector<std::pair<SessionKey, PendingRequest>> pendingRequests() const;
    /// The number of sessions.
    [[nodiscard]] std::size_t count() const;

    /// Adds sessions read back from disk. A session already in the store (it sent an event
    /// first) is kept. Restored pending requests are dropped, since nothing holds them any
    /// more, and a status that showed the user was needed becomes idle. Timelines longer
    /// than the limit keep their newest items.
    void restore(std::vector<Session> sessions);
    /// Removes sessions with nothing pending whose last activity is more than `maxAge`
    /// seconds before now; the number removed.
    std::size_t prune(double maxAge = defaultPruneAge);
    /// Removes the session with `key`; nothing happens when there is none.
    void remove(const SessionKey& key);
    /// Removes every session (the user erased the history).
    void removeAll();

    /// The order of snapshot(): sessions needing the user first, then by most recent
    /// activity, ties by key.
    [[nodiscard]] static bool listsBefore(const Session& a, const Session& b);
    /// The order of pendingRequests(): oldest first, ties by identifier.
    [[nodiscard]] static bool heldBefore(const std::pair<SessionKey, PendingRequest>& a,
                                         const std::pair<SessionKey, PendingRequest>& b);

    /// The status while `pending` is held: needsPermission when any request asks for
    /// permission, else waitingReply (also for an empty list: apply only to a non-empty one).
    [[nodiscard]] static SessionStatus status(const std::vector<PendingRequest>& pending);

    /// Adds `request` to the session `key` (replacing one with the same id) and sets the
    /// status by status(pending). Nothing happens when the session is unknown.
    void addPending(const PendingRequest& request, const SessionKey& key);
    /// Removes the request `id` from session `key` and records how it ended (see the top of
    /// this file). Nothing happens when the session or the request is gone (a late answer
    /// after the session ended or was interrupted).
    void resolvePending(const UUID& id, const SessionKey& key, const Outcome& outcome);
    /// Records a reply the user sent outside a held request ("You replied", with the text).
    void logReply(const SessionKey& key, const std::string& text);

    // Single-field setters. Each does nothing when the session is unknown or the value is
    // unchanged, and does not count as activity.
    void setTitle(const SessionKey& key, std::optional<std::string> title);
    void setTranscriptStep(const SessionKey& key, std::optional<std::int64_t> step);
    /// The agent has stopped and the session waits for the user's reply in Tidewick: status
    /// waitingReply. Only when nothing is pending and the session has not ended.
    void setWaitingInApp(const SessionKey& key);
    void setMessagesAtEnd(const SessionKey& key, std::optional<std::int64_t> count);
    /// The user ended the session from Tidewick: endedByYouAt is now, status ended, pending
    /// requests dropped, and `sentBeforeEnd` kept when given.
    void markEndedByYou(const SessionKey& key,
                        std::optional<std::vector<std::string>> sentBeforeEnd = {});
    /// Forgets that the user ended the session here (endedByYouAt, userMessagesAtEnd and
    /// sentBeforeEnd), for instance because it resumed.
    void clearEndedByYou(const SessionKey& key);
    void setHost(const SessionKey& key, std::optional<std::string> hostApp);
    /// The agent's process and when it started (see Session::agentStartTime); a new pid
    /// without a start time forgets the old one.
    void setAgentPid(const SessionKey& key, std::optional<std::int32_t> pid,
                     std::optional<std::int64_t> startTime = std::nullopt);
    /// The tmux pane hosting the agent and its server's socket.
    void setTmuxPane(const SessionKey& key, std::optional<std::string> pane,
                     std::optional<std::string> socket);

    /// The agent process `pid` is gone without saying so: the session ends with the entry
    /// "The agent exited" and its held requests are dropped. Nothing happens (false) when
    /// the session has ended already or its agent is another process by now.
    bool markExited(const SessionKey& key, std::int32_t pid);
    /// The agent's record shows its turn is over although no event said so: a session
    /// still shown as working with nothing held becomes finished. False when it was not.
    bool markTurnFinished(const SessionKey& key);
    /// Adds a timeline entry of the application's own (a continuation that failed, ...).
    void addNote(const SessionKey& key, TimelineKind kind, std::string_view text,
                 std::optional<std::string> detail = std::nullopt);

private:
    using Changes = std::vector<StoreChange>;

    /// Runs `change` on the session `key` under the lock; `change` returns whether it
    /// changed anything, and may append to the notices to send.
    template <typename Change> void modify(const SessionKey& key, Change&& change);
    /// Sets one field of the session `key`, noticed only when the value really changes.
    template <typename T> void setField(const SessionKey& key, T Session::*field, T value);
    void notify(Changes changes) const;
    void addToTimeline(Session& session, TimelineKind kind, std::string_view text,
                       const std::optional<std::string>& detail, Date time) const;

    Clock clock_;
    mutable std::mutex lock_;
    std::unordered_map<SessionKey, Session> sessions_;
    mutable std::mutex handlerLock_;
    ChangeHandler onChange_;
};

} // namespace tidewick
