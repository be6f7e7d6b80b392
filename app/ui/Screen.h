// The terminal UI's view model: turns sessions and the time now into the rows
// and texts the screen shows. Pure, so the words and the order are tested
// without a terminal.
#pragma once

#include "foundation/Clock.h"
#include "foundation/UUID.h"
#include "sessions/Session.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// One line of the session list.
struct SessionRow {
    SessionKey key;
    /// The agent's display name ("Claude Code").
    std::string agent;
    /// The project folder's last component, or "—" when unknown.
    std::string project;
    SessionStatus status = SessionStatus::idle;
    /// The status's user-facing label ("Needs permission").
    std::string statusLabel;
    /// What the agent is doing now, on one line; empty when nothing.
    std::string action;
    /// How many requests the session holds for the user.
    std::size_t held = 0;
    /// Time since the last activity ("4s", "3m", "2h", "5d").
    std::string sinceActivity;
};

/// One held request as the detail pane shows it.
struct HeldRequestView {
    UUID id;
    PendingKind kind = PendingKind::permission;
    std::string title;
    /// The full command or question, as the agent sent it.
    std::optional<std::string> detail;
    /// What CommandRisk recognised in the command, for permission requests.
    std::optional<std::string> risk;
    /// "Waiting for you", "Waiting for your reply", or once the deadline has passed what
    /// happens instead ("No answer in Tidewick — asking in Codex", "No reply — it stopped").
    std::string waiting;
    /// Time left to the deadline ("4:59", "1:00:00"); empty once it has passed.
    std::string countdown;
    bool expired = false;
    /// The request asks questions, answered with the number keys.
    bool question = false;
    /// "Always allow" is offered for it (a permission request of an agent that keeps rules).
    bool canAlwaysAllow = false;
    /// How many options the (first) question offers.
    std::size_t options = 0;
};

/// How a tool call shown on one line ended.
enum class ToolOutcome {
    /// Not a tool call, or one that has not finished (yet).
    none,
    finished,
    failed,
};

/// One timeline entry of the detail pane. A tool call that started and finished is one
/// line (its start) with the outcome; the store keeps both entries.
struct TimelineLine {
    Date time;
    TimelineKind kind = TimelineKind::notice;
    /// The entry's text on one line, with its detail after " — " when it has one.
    std::string text;
    ToolOutcome outcome = ToolOutcome::none;
};

/// Everything the detail pane shows about the selected session.
struct SessionDetail {
    SessionRow row;
    std::optional<std::string> projectPath;
    std::optional<std::string> title;
    std::optional<std::string> model;
    std::optional<std::string> hostApp;
    std::vector<HeldRequestView> held;
    std::optional<std::string> lastMessage;
    /// The most recent timeline entries, oldest first.
    std::vector<TimelineLine> timeline;
};

namespace Screen {

/// The sessions in screen order: those needing the user first (the longest-waiting
/// first), then the others by latest activity, ended sessions last. Ties keep a stable
/// order by key, so rows do not jump between redraws.
[[nodiscard]] std::vector<Session> ordered(std::vector<Session> sessions);

/// The last component of the session's project folder, on one line; nothing when unknown.
[[nodiscard]] std::optional<std::string> projectName(const Session& session);

/// The agent's name and the project's, as the user tells sessions apart: "Claude Code ·
/// webshop", or only the agent's when the project is unknown.
[[nodiscard]] std::string who(const Session& session);

/// The list row of `session` at `now`.
[[nodiscard]] SessionRow row(const Session& session, Date now);

/// The detail of `session` at `now`, with at most `timelineLimit` timeline entries.
[[nodiscard]] SessionDetail detail(const Session& session, Date now, std::size_t timelineLimit);

/// How long ago, at the coarsest useful unit: "0s".."59s", "1m".."59m", "1h".."23h", "1d"...
/// Dates in the future read "0s".
[[nodiscard]] std::string age(double seconds);

/// Time left, rounded up to the second: "M:SS" below an hour, "H:MM:SS" from an hour on.
[[nodiscard]] std::string countdown(double seconds);

} // namespace Screen
} // namespace tidewick
