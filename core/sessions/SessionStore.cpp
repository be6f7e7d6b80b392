#include "sessions/SessionStore.h"

#include "events/PermissionUpdates.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"
#include "sessions/SessionText.h"

#include <algorithm>
#include <array>

namespace tidewick {

namespace {

// The first line of a prompt, short enough for a list row.
std::string promptTitle(std::string_view prompt) {
    std::string_view text = Text::trimmed(prompt);
    text = text.substr(0, text.find('\n'));
    return Text::cut(UTF8::repaired(Text::trimmed(text)), 80, Text::ellipsis);
}

std::optional<std::string> cutText(const std::optional<std::string>& text) {
    if (!text)
        return std::nullopt;
    return Text::cut(UTF8::repaired(*text), SessionStore::textLimit);
}

bool nameHasAny(std::string_view name, std::initializer_list<std::string_view> parts) {
    return std::any_of(parts.begin(), parts.end(), [name](std::string_view part) {
        return name.find(part) != std::string_view::npos;
    });
}

// The timeline kind of a tool call, from the agents' own tool names (Bash,
// run_terminal_cmd, Edit, apply_patch, Read, Grep, ...). Unknown tools are plain tools.
TimelineKind toolKind(const std::optional<std::string>& toolName) {
    if (!toolName)
        return TimelineKind::tool;
    const std::string name = Text::lowercased(*toolName);
    if (nameHasAny(name, {"bash", "shell", "terminal", "command"}) || name == "exec")
        return TimelineKind::shell;
    if (nameHasAny(name, {"edit", "write", "patch", "replace", "create", "delete", "notebook"}))
        return TimelineKind::edit;
    if (nameHasAny(name, {"read", "grep", "glob", "search", "find", "view", "list", "fetch"}) ||
        name == "ls")
        return TimelineKind::read;
    return TimelineKind::tool;
}

std::string_view firstOf(const std::optional<std::string>& a, const std::optional<std::string>& b,
                         std::string_view fallback) {
    if (a)
        return *a;
    if (b)
        return *b;
    return fallback;
}

// What an event does to its session. The status is set only where the table names one:
// while requests are held, ordinary activity must not hide that the user is needed.
enum class Held { keep, drop };
enum class Action { keep, fromTitle, fromTitleOrTool, clear };

struct EventRule {
    EventKind kind;
    /// The status afterwards when nothing is held; nothing leaves it as it was.
    std::optional<SessionStatus> whenFree;
    /// The status afterwards while requests are held.
    std::optional<SessionStatus> whenHeld;
    Held held;
    Action action;
};

using enum SessionStatus;
constexpr std::optional<SessionStatus> unchanged;

// clang-format off
constexpr std::array<EventRule, 13> eventRules{{
    // event                           nothing held  requests held  held requests  current action
    {EventKind::sessionStarted,        idle,         unchanged,     Held::keep,    Action::keep},
    {EventKind::working,               working,      unchanged,     Held::keep,    Action::fromTitle},
    {EventKind::toolStarted,           working,      unchanged,     Held::keep,    Action::fromTitleOrTool},
    {EventKind::toolFinished,          working,      unchanged,     Held::keep,    Action::clear},
    // A held request drives the status itself (addPending).
    {EventKind::permissionRequested,   unchanged,    unchanged,     Held::keep,    Action::fromTitle},
    {EventKind::turnFinished,          finished,     unchanged,     Held::keep,    Action::clear},
    {EventKind::notification,          unchanged,    unchanged,     Held::keep,    Action::keep},
    {EventKind::message,               working,      unchanged,     Held::keep,    Action::keep},
    {EventKind::compaction,            unchanged,    unchanged,     Held::keep,    Action::keep},
    {EventKind::interrupted,           idle,         idle,          Held::drop,    Action::clear},
    {EventKind::error,                 error,        error,         Held::keep,    Action::clear},
    {EventKind::sessionEnded,          ended,        ended,         Held::drop,    Action::clear},
    {EventKind::userPrompt,            working,      unchanged,     Held::keep,    Action::keep},
}};
// clang-format on

// Events only an agent at work sends: after the user ended a session from Tidewick, one
// of these means it runs again. The others may trail the end itself.
bool resumesActivity(EventKind kind) {
    switch (kind) {
    case EventKind::sessionStarted:
    case EventKind::userPrompt:
    case EventKind::toolStarted:
    case EventKind::permissionRequested:
    case EventKind::working:
        return true;
    default:
        return false;
    }
}

// Forgets that the user ended `session` here; whether there was anything to forget.
bool forgetEndedByYou(Session& session) {
    if (!session.endedByYouAt && !session.userMessagesAtEnd && !session.sentBeforeEnd)
        return false;
    session.endedByYouAt.reset();
    session.userMessagesAtEnd.reset();
    session.sentBeforeEnd.reset();
    return true;
}

const EventRule& ruleFor(EventKind kind) {
    return *std::find_if(eventRules.begin(), eventRules.end(),
                         [kind](const EventRule& rule) { return rule.kind == kind; });
}

void setCurrentAction(Session& session, Action action, const AgentEvent& event) {
    switch (action) {
    case Action::keep:
        return;
    case Action::fromTitle:
        if (event.title)
            session.currentAction = cutText(event.title);
        return;
    case Action::fromTitleOrTool:
        session.currentAction = cutText(event.title ? event.title : event.toolName);
        return;
    case Action::clear:
        session.currentAction.reset();
        return;
    }
}

// One timeline entry to add.
struct Entry {
    Entry(TimelineKind kind, std::string_view text, std::optional<std::string> detail)
        : kind(kind), text(text), detail(std::move(detail)) {}

    TimelineKind kind;
    std::string text;
    std::optional<std::string> detail;
};

// The entry an event adds to its session's timeline, if any. A text of the event's own
// comes first; the detail is kept only when it is not already the text.
std::optional<Entry> timelineEntry(const AgentEvent& event) {
    namespace Say = SessionText;
    const auto& title = event.title;
    const auto& detail = event.detail;
    const std::optional<std::string> detailUnlessText = title ? detail : std::nullopt;
    switch (event.kind) {
    case EventKind::sessionStarted:
        return Entry{TimelineKind::session, Say::sessionStarted, detail};
    case EventKind::toolStarted:
        return Entry{toolKind(event.toolName), firstOf(title, event.toolName, Say::toolFallback),
                     detail};
    case EventKind::toolFinished:
        return Entry{toolKind(event.toolName), firstOf(title, std::nullopt, Say::toolFinished),
                     detail};
    case EventKind::turnFinished:
        return Entry{TimelineKind::message, Say::finishedTurn, detail};
    case EventKind::notification:
        return Entry{TimelineKind::notice, firstOf(title, detail, Say::notification),
                     detailUnlessText};
    case EventKind::message:
        return Entry{TimelineKind::message, firstOf(detail, title, Say::message), std::nullopt};
    case EventKind::compaction:
        return Entry{TimelineKind::compaction, Say::contextCompacted, detail};
    case EventKind::interrupted:
        return Entry{TimelineKind::notice, Say::interrupted, detail};
    case EventKind::error:
        return Entry{TimelineKind::error, firstOf(title, detail, Say::error), detailUnlessText};
    case EventKind::sessionEnded:
        return Entry{TimelineKind::session, Say::sessionEnded, detail};
    case EventKind::working:
    case EventKind::permissionRequested:
    case EventKind::userPrompt:
        break;
    }
    return std::nullopt;
}

// The facts an event carries beyond the status: where the session runs, its title, its
// last message and the marks of an interruption or an end. Texts are made valid UTF-8 on
// the way in: one bad byte would make the saved file unreadable.
void noteFacts(Session& session, const AgentEvent& event, Date now) {
    if (event.projectPath)
        session.projectPath = UTF8::repairedOptional(event.projectPath);
    if (event.transcriptPath)
        session.transcriptPath = UTF8::repairedOptional(event.transcriptPath);
    if (event.model)
        session.model = UTF8::repairedOptional(event.model);
    switch (event.kind) {
    case EventKind::sessionStarted:
        if (event.title)
            session.title = cutText(event.title);
        return;
    case EventKind::turnFinished:
        if (event.detail)
            session.lastMessage = cutText(event.detail);
        return;
    case EventKind::message:
        session.lastMessage = cutText(event.detail ? event.detail : event.title);
        return;
    case EventKind::interrupted:
        session.interruptedAt = now;
        return;
    case EventKind::sessionEnded:
        session.endedAt = now;
        return;
    case EventKind::userPrompt:
        // Agents that name no session are known to the user by what they first asked.
        if (!session.title && event.detail)
            session.title = promptTitle(*event.detail);
        // A new turn: an earlier interruption is over.
        session.interruptedAt.reset();
        return;
    default:
        return;
    }
}

// How a held request ended, as the timeline tells it, and the status it leaves when no
// other request is held.
struct Settled {
    Entry entry;
    SessionStatus status;
};

// An allow says what it allowed: the request, what the agent now keeps allowing, or the
// answers to its questions.
Entry allowedEntry(const PendingRequest& request, const Decision& decision) {
    namespace Say = SessionText;
    if (decision.updatedInput())
        if (auto answers = AskedQuestions::describeAnswers(*decision.updatedInput()))
            return {TimelineKind::reply, Say::youAnswered, answers};
    if (!decision.permissionUpdates().empty())
        return {TimelineKind::permission, Say::alwaysAllowed,
                request.title + "\n" + PermissionUpdates::describe(decision.permissionUpdates())};
    return {TimelineKind::permission, Say::allowed, request.title};
}

Settled settle(const PendingRequest& request, const HoldResult& outcome, AgentKind agent) {
    namespace Say = SessionText;
    const bool permission = request.kind == PendingKind::permission;
    // A reply request that ends unanswered ends the agent's turn; a permission request
    // leaves the agent working, asking in its own window or having been answered there.
    const SessionStatus unanswered = permission ? working : finished;
    if (outcome.kind() == HoldResult::Kind::clientGone)
        return {{TimelineKind::notice, Say::withdrawn, request.title}, unanswered};
    const Decision decision = outcome.decision();
    switch (decision.type()) {
    case Decision::Type::allow:
        return {allowedEntry(request, decision), working};
    case Decision::Type::deny:
        return {{TimelineKind::permission, Say::deniedWith(decision.text()), request.title},
                working};
    case Decision::Type::reply:
        return {{TimelineKind::reply, Say::youReplied, decision.text()}, working};
    case Decision::Type::letStop:
        return {{TimelineKind::reply, Say::youLetItStop, std::nullopt}, finished};
    case Decision::Type::timeout:
        break;
    }
    if (permission)
        return {{TimelineKind::notice, Say::askingInstead(agent), request.title}, unanswered};
    return {{TimelineKind::notice, Say::noReplyItStopped, std::nullopt}, unanswered};
}

} // namespace

bool SessionStore::listsBefore(const Session& a, const Session& b) {
    // Sessions that need the user come first, then the most recently active.
    bool aNeedsYou = needsYou(a.status);
    bool bNeedsYou = needsYou(b.status);
    if (aNeedsYou != bNeedsYou)
        return aNeedsYou;
    if (a.lastActivityAt != b.lastActivityAt)
        return a.lastActivityAt > b.lastActivityAt;
    return a.key < b.key;
}

bool SessionStore::heldBefore(const std::pair<SessionKey, PendingRequest>& a,
                              const std::pair<SessionKey, PendingRequest>& b) {
    if (a.second.createdAt != b.second.createdAt)
        return a.second.createdAt < b.second.createdAt;
    return a.second.id < b.second.id;
}

StoreChange StoreChange::changed(Session value) {
    StoreChange change;
    change.kind = Kind::session;
    change.key = value.key;
    change.session = std::move(value);
    return change;
}

StoreChange StoreChange::removed(SessionKey key) {
    StoreChange change;
    change.kind = Kind::removed;
    change.key = std::move(key);
    return change;
}

StoreChange StoreChange::pendingChanged(SessionKey key, std::vector<PendingRequest> requests) {
    StoreChange change;
    change.kind = Kind::pending;
    change.key = std::move(key);
    change.pending = std::move(requests);
    return change;
}

SessionStore::SessionStore(Clock clock) : clock_(std::move(clock)) {}

void SessionStore::setOnChange(ChangeHandler handler) {
    std::lock_guard guard(handlerLock_);
    onChange_ = std::move(handler);
}

void SessionStore::notify(Changes changes) const {
    if (changes.empty())
        return;
    ChangeHandler handler;
    {
        std::lock_guard guard(handlerLock_);
        handler = onChange_;
    }
    if (!handler)
        return;
    for (const StoreChange& change : changes)
        handler(change);
}

SessionStatus SessionStore::status(const std::vector<PendingRequest>& pending) {
    bool permission = std::any_of(pending.begin(), pending.end(), [](const PendingRequest& r) {
        return r.kind == PendingKind::permission;
    });
    return permission ? SessionStatus::needsPermission : SessionStatus::waitingReply;
}

void SessionStore::addToTimeline(Session& session, TimelineKind kind, std::string_view text,
                                 const std::optional<std::string>& detail, Date time) const {
    session.timeline.append(TimelineItem{UUID::random(), time, kind,
                                         Text::cut(UTF8::repaired(text), textLimit),
                                         cutText(detail)},
                            timelineLimit);
}

template <typename Change> void SessionStore::modify(const SessionKey& key, Change&& change) {
    Changes changes;
    {
        std::lock_guard guard(lock_);
        auto found = sessions_.find(key);
        if (found == sessions_.end())
            return;
        Session& session = found->second;
        const std::vector<PendingRequest> pendingBefore = session.pending;
        if (!change(session))
            return;
        changes.push_back(StoreChange::changed(session));
        if (session.pending != pendingBefore)
            changes.push_back(StoreChange::pendingChanged(key, session.pending));
    }
    notify(std::move(changes));
}

template <typename T>
void SessionStore::setField(const SessionKey& key, T Session::*field, T value) {
    modify(key, [&](Session& session) {
        if (session.*field == value)
            return false;
        session.*field = std::move(value);
        return true;
    });
}

Session SessionStore::apply(const AgentEvent& event) {
    Changes changes;
    Session result;
    {
        std::lock_guard guard(lock_);
        const Date now = clock_();
        SessionKey key{event.agent, event.sessionId};
        auto [found, inserted] = sessions_.try_emplace(key);
        Session& session = found->second;
        if (inserted) {
            session.key = key;
            session.startedAt = now;
            session.status = SessionStatus::idle;
        }
        const bool pendingBefore = !session.pending.empty();
        session.lastActivityAt = now;
        noteFacts(session, event, now);
        const EventRule& rule = ruleFor(event.kind);
        if (rule.held == Held::drop)
            session.pending.clear();
        // What a session the user ended sends while it winds down (its interruption, the
        // end of the tool call it was in) must not show it running again.
        const bool windingDown = session.endedByYouAt && session.status == SessionStatus::ended &&
                                 !resumesActivity(event.kind);
        if (auto next = session.pending.empty() ? rule.whenFree : rule.whenHeld;
            next && !windingDown)
            session.status = *next;
        setCurrentAction(session, rule.action, event);
        if (const std::optional<Entry> entry = timelineEntry(event))
            addToTimeline(session, entry->kind, entry->text, entry->detail, now);
        // A session that shows activity again after it ended has been resumed.
        if (session.status != SessionStatus::ended)
            session.endedAt.reset();
        if (resumesActivity(event.kind))
            (void)forgetEndedByYou(session);

        result = session;
        changes.push_back(StoreChange::changed(session));
        if (pendingBefore && session.pending.empty())
            changes.push_back(StoreChange::pendingChanged(key, {}));
    }
    notify(std::move(changes));
    return result;
}

std::optional<Session> SessionStore::session(const SessionKey& key) const {
    std::lock_guard guard(lock_);
    auto found = sessions_.find(key);
    if (found == sessions_.end())
        return std::nullopt;
    return found->second;
}

std::vector<Session> SessionStore::snapshot() const {
    std::vector<Session> list;
    {
        std::lock_guard guard(lock_);
        list.reserve(sessions_.size());
        for (const auto& entry : sessions_)
            list.push_back(entry.second);
    }
    // Sorting copies outside the lock keeps the connection threads waiting less.
    std::sort(list.begin(), list.end(), listsBefore);
    return list;
}

std::vector<std::pair<SessionKey, PendingRequest>> SessionStore::pendingRequests() const {
    std::vector<std::pair<SessionKey, PendingRequest>> list;
    {
        std::lock_guard guard(lock_);
        for (const auto& [key, session] : sessions_)
            for (const PendingRequest& request : session.pending)
                list.emplace_back(key, request);
    }
    std::sort(list.begin(), list.end(), heldBefore);
    return list;
}

std::size_t SessionStore::count() const {
    std::lock_guard guard(lock_);
    return sessions_.size();
}

void SessionStore::restore(std::vector<Session> sessions) {
    Changes changes;
    {
        std::lock_guard guard(lock_);
        for (Session& session : sessions) {
            if (sessions_.contains(session.key))
                continue;
            session.pending.clear();
            if (needsYou(session.status))
                session.status = SessionStatus::idle;
            session.timeline.keepLast(timelineLimit);
            changes.push_back(StoreChange::changed(session));
            SessionKey key = session.key;
            sessions_.emplace(std::move(key), std::move(session));
        }
    }
    notify(std::move(changes));
}

std::size_t SessionStore::prune(double maxAge) {
    Changes changes;
    {
        std::lock_guard guard(lock_);
        const Date cutoff = addSeconds(clock_(), -maxAge);
        for (auto it = sessions_.begin(); it != sessions_.end();) {
            if (it->second.pending.empty() && it->second.lastActivityAt < cutoff) {
                changes.push_back(StoreChange::removed(it->first));
                it = sessions_.erase(it);
            } else {
                ++it;
            }
        }
    }
    const std::size_t removed = changes.size();
    notify(std::move(changes));
    return removed;
}

void SessionStore::remove(const SessionKey& key) {
    Changes changes;
    {
        std::lock_guard guard(lock_);
        auto found = sessions_.find(key);
        if (found == sessions_.end())
            return;
        if (!found->second.pending.empty())
            changes.push_back(StoreChange::pendingChanged(key, {}));
        sessions_.erase(found);
        changes.push_back(StoreChange::removed(key));
    }
    notify(std::move(changes));
}

void SessionStore::removeAll() {
    Changes changes;
    {
        std::lock_guard guard(lock_);
        for (const auto& [key, session] : sessions_) {
            if (!session.pending.empty())
                changes.push_back(StoreChange::pendingChanged(key, {}));
            changes.push_back(StoreChange::removed(key));
        }
        sessions_.clear();
    }
    notify(std::move(changes));
}

void SessionStore::addPending(const PendingRequest& held, const SessionKey& key) {
    PendingRequest request = held;
    request.title = UTF8::repaired(request.title);
    request.detail = UTF8::repairedOptional(request.detail);
    modify(key, [&](Session& session) {
        auto same = std::find_if(session.pending.begin(), session.pending.end(),
                                 [&](const PendingRequest& r) { return r.id == request.id; });
        if (same != session.pending.end())
            *same = request;
        else
            session.pending.push_back(request);
        session.status = status(session.pending);
        if (request.kind == PendingKind::permission)
            addToTimeline(session, TimelineKind::permission, request.title, request.detail,
                          clock_());
        return true;
    });
}

void SessionStore::resolvePending(const UUID& id, const SessionKey& key, const Outcome& outcome) {
    modify(key, [&](Session& session) {
        auto found = std::find_if(session.pending.begin(), session.pending.end(),
                                  [&](const PendingRequest& r) { return r.id == id; });
        if (found == session.pending.end())
            return false;
        const PendingRequest request = *found;
        session.pending.erase(found);
        const Date now = clock_();
        session.lastActivityAt = now;
        const Settled settled = settle(request, outcome, key.agent);
        addToTimeline(session, settled.entry.kind, settled.entry.text, settled.entry.detail, now);
        session.status = session.pending.empty() ? settled.status : status(session.pending);
        return true;
    });
}

void SessionStore::logReply(const SessionKey& key, const std::string& text) {
    modify(key, [&](Session& session) {
        const Date now = clock_();
        session.lastActivityAt = now;
        addToTimeline(session, TimelineKind::reply, SessionText::youReplied, text, now);
        return true;
    });
}

void SessionStore::setTitle(const SessionKey& key, std::optional<std::string> title) {
    title = UTF8::repairedOptional(title);
    setField(key, &Session::title, std::move(title));
}

void SessionStore::setTranscriptStep(const SessionKey& key, std::optional<std::int64_t> step) {
    setField(key, &Session::transcriptStep, std::move(step));
}

void SessionStore::setWaitingInApp(const SessionKey& key) {
    modify(key, [&](Session& session) {
        if (!session.pending.empty() || session.status == SessionStatus::ended ||
            session.status == SessionStatus::waitingReply)
            return false;
        session.status = SessionStatus::waitingReply;
        return true;
    });
}

void SessionStore::setMessagesAtEnd(const SessionKey& key, std::optional<std::int64_t> count) {
    setField(key, &Session::userMessagesAtEnd, std::move(count));
}

void SessionStore::markEndedByYou(const SessionKey& key,
                                  std::optional<std::vector<std::string>> sentBeforeEnd) {
    if (sentBeforeEnd)
        for (std::string& text : *sentBeforeEnd)
            text = UTF8::repaired(text);
    modify(key, [&](Session& session) {
        const Date now = clock_();
        session.endedByYouAt = now;
        if (sentBeforeEnd)
            session.sentBeforeEnd = std::move(sentBeforeEnd);
        session.status = SessionStatus::ended;
        session.endedAt = now;
        session.pending.clear();
        session.currentAction.reset();
        addToTimeline(session, TimelineKind::session, SessionText::youEndedIt, std::nullopt, now);
        return true;
    });
}

void SessionStore::clearEndedByYou(const SessionKey& key) {
    modify(key, [&](Session& session) { return forgetEndedByYou(session); });
}

void SessionStore::setHost(const SessionKey& key, std::optional<std::string> hostApp) {
    hostApp = UTF8::repairedOptional(hostApp);
    setField(key, &Session::hostApp, std::move(hostApp));
}

void SessionStore::setAgentPid(const SessionKey& key, std::optional<std::int32_t> pid,
                               std::optional<std::int64_t> startTime) {
    modify(key, [&](Session& session) {
        if (session.agentPid == pid && (!startTime || session.agentStartTime == startTime))
            return false;
        session.agentPid = pid;
        session.agentStartTime = startTime;
        return true;
    });
}

void SessionStore::setTmuxPane(const SessionKey& key, std::optional<std::string> pane,
                               std::optional<std::string> socket) {
    pane = UTF8::repairedOptional(pane);
    socket = UTF8::repairedOptional(socket);
    modify(key, [&](Session& session) {
        if (session.tmuxPane == pane && session.tmuxSocket == socket)
            return false;
        session.tmuxPane = std::move(pane);
        session.tmuxSocket = std::move(socket);
        return true;
    });
}

bool SessionStore::markExited(const SessionKey& key, std::int32_t pid) {
    bool marked = false;
    modify(key, [&](Session& session) {
        if (session.status == SessionStatus::ended || session.agentPid != pid)
            return false;
        const Date now = clock_();
        session.status = SessionStatus::ended;
        session.endedAt = now;
        session.pending.clear();
        session.currentAction.reset();
        addToTimeline(session, TimelineKind::session, SessionText::agentExited, std::nullopt, now);
        marked = true;
        return true;
    });
    return marked;
}

bool SessionStore::markTurnFinished(const SessionKey& key) {
    bool marked = false;
    modify(key, [&](Session& session) {
        if (session.status != SessionStatus::working || !session.pending.empty())
            return false;
        session.status = SessionStatus::finished;
        session.currentAction.reset();
        addToTimeline(session, TimelineKind::message, SessionText::finishedTurn, std::nullopt,
                      clock_());
        marked = true;
        return true;
    });
    return marked;
}

void SessionStore::addNote(const SessionKey& key, TimelineKind kind, std::string_view text,
                           std::optional<std::string> detail) {
    modify(key, [&](Session& session) {
        addToTimeline(session, kind, text, detail, clock_());
        return true;
    });
}

} // namespace tidewick
