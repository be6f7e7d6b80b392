// One agent session as the application keeps it: identity, state, held
// requests and recent history.
#pragma once

#include "events/AgentKind.h"
#include "events/SessionStatus.h"
#include "foundation/Clock.h"
#include "sessions/PendingRequest.h"
#include "sessions/Timeline.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// The identity of a session: the agent and the agent's own session identifier.
struct SessionKey {
    AgentKind agent = AgentKind::claude;
    std::string sessionId;

    friend bool operator==(const SessionKey&, const SessionKey&) = default;
    friend auto operator<=>(const SessionKey&, const SessionKey&) = default;
};

/// {"agent": raw value, "sessionId": identifier}.
void writeJSON(JSONWriter& out, const SessionKey& key);
/// The key writeJSON writes; false for an unknown agent or a missing or mistyped member.
[[nodiscard]] bool readJSON(JSONReader& in, SessionKey& out);

struct Session {
    SessionKey key;
    /// The project folder.
    std::optional<std::string> projectPath;
    /// Display title.
    std::optional<std::string> title;
    SessionStatus status = SessionStatus::idle;
    /// First event seen.
    Date startedAt;
    /// Latest event seen.
    Date lastActivityAt;
    std::optional<Date> endedAt;
    /// What the agent is doing now.
    std::optional<std::string> currentAction;
    /// The agent's latest message.
    std::optional<std::string> lastMessage;
    /// The agent's local record of the session.
    std::optional<std::string> transcriptPath;
    std::optional<std::string> model;
    /// The terminal or editor hosting the agent.
    std::optional<std::string> hostApp;
    std::optional<std::int32_t> agentPid;
    /// When the agent process started, in the system's clock ticks since boot, read when
    /// its pid was first seen: a pid that now runs since another time belongs to another
    /// program.
    std::optional<std::int64_t> agentStartTime;
    /// The tmux pane the agent runs in ("%3") and the socket of its tmux server.
    std::optional<std::string> tmuxPane;
    std::optional<std::string> tmuxSocket;
    /// When the user interrupted it.
    std::optional<Date> interruptedAt;
    /// When the user ended it from Tidewick.
    std::optional<Date> endedByYouAt;
    /// The user-message count when it was ended from Tidewick.
    std::optional<std::int64_t> userMessagesAtEnd;
    /// Messages sent just before it was ended.
    std::optional<std::vector<std::string>> sentBeforeEnd;
    /// How far the application has read the transcript: Transcript::position when it was
    /// last shown or handed off (the record's size in bytes, or a database's step count).
    std::optional<std::int64_t> transcriptStep;
    /// Requests held for the user now, oldest first.
    std::vector<PendingRequest> pending;
    /// Recent history, oldest first.
    Timeline timeline;

    friend bool operator==(const Session&, const Session&) = default;
};

/// One member per field under the field's name, in the order above; absent optional fields
/// are left out and dates are seconds since 1970.
void writeJSON(JSONWriter& out, const Session& session);
/// The session writeJSON writes. False when `key`, `status`, `startedAt`, `lastActivityAt`,
/// `pending` or `timeline` is missing, or when any member (or any pending request or
/// timeline item) has the wrong type, an unknown value or a value out of range.
[[nodiscard]] bool readJSON(JSONReader& in, Session& out);

} // namespace tidewick

template <> struct std::hash<tidewick::SessionKey> {
    std::size_t operator()(const tidewick::SessionKey& key) const noexcept {
        return std::hash<std::string>()(key.sessionId) * 31 + static_cast<std::size_t>(key.agent);
    }
};
