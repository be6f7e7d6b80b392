// Every sentence the user reads about sessions and held requests, in one place:
// the store writes them into timelines, the interface and the command line show them.
#pragma once

#include "events/AgentKind.h"
#include "sessions/PendingRequest.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick::SessionText {

// Timeline entries written by the store.
inline constexpr std::string_view sessionStarted = "Session started";
inline constexpr std::string_view sessionEnded = "Session ended";
inline constexpr std::string_view toolFallback = "Tool";
inline constexpr std::string_view toolFinished = "Tool finished";
inline constexpr std::string_view finishedTurn = "Finished the turn";
inline constexpr std::string_view notification = "Notification";
inline constexpr std::string_view message = "Message";
inline constexpr std::string_view contextCompacted = "Context compacted";
inline constexpr std::string_view interrupted = "Interrupted";
inline constexpr std::string_view error = "Error";
inline constexpr std::string_view youReplied = "You replied";
inline constexpr std::string_view youLetItStop = "You let it stop";
inline constexpr std::string_view allowed = "Allowed";
/// An allow that also told the agent to stop asking; the detail says for what.
inline constexpr std::string_view alwaysAllowed = "Always allowed";
/// The user answered the agent's questions; the detail holds the answers.
inline constexpr std::string_view youAnswered = "You answered";
/// "Tidewick now allows commands starting with "npm test" without asking".
[[nodiscard]] std::string nowAllowsPrefix(std::string_view prefix);
/// "Denied", or "Denied: " and the message the agent was sent.
[[nodiscard]] std::string deniedWith(const std::optional<std::string>& message);
inline constexpr std::string_view noReplyItStopped = "No reply — it stopped";
inline constexpr std::string_view withdrawn = "The request was withdrawn";
inline constexpr std::string_view youEndedIt = "You ended the session";
/// The agent process went away without ending its session.
inline constexpr std::string_view agentExited = "The agent exited";

/// "No answer in Tidewick — asking in " and the agent's name: a permission request that
/// ran out of time, which the agent now asks in its own window.
[[nodiscard]] std::string askingInstead(AgentKind agent);
/// "Allowed (read-only): " and the command ("command" when there is none).
[[nodiscard]] std::string allowedReadOnly(const std::optional<std::string>& command);

// Held requests.
/// The title of a held permission request whose event named none.
inline constexpr std::string_view permissionNeeded = "Permission needed";
/// The title of a held reply request whose event named none.
inline constexpr std::string_view finished = "Finished";
inline constexpr std::string_view waitingForYou = "Waiting for you";
inline constexpr std::string_view waitingForReply = "Waiting for your reply";

/// What a held request of `kind` asks of the user, said of `who` ("Claude Code · webshop"):
/// "... needs permission" or "... is waiting for your reply".
[[nodiscard]] std::string asksFor(std::string_view who, PendingKind kind);

/// "+1 more request waiting", "+3 more requests waiting": a burst announced as one.
[[nodiscard]] std::string alsoWaiting(std::size_t count);

// Answers that found nothing to answer; `who` names the session ("Claude Code webshop").
[[nodiscard]] std::string noPermissionRequest(std::string_view who);
[[nodiscard]] std::string noReplyWaiting(std::string_view who);
[[nodiscard]] std::string noQuestionWaiting(std::string_view who);
/// "Claude Code asked 2 questions: give one answer for each."
[[nodiscard]] std::string answersWanted(AgentKind agent, std::size_t questions);
/// A plain allow of a request that asks questions.
[[nodiscard]] std::string answerInstead(AgentKind agent);

// Always allow.
/// Why Codex is never offered "always allow".
inline constexpr std::string_view codexKeepsNoRule =
    "Codex takes no lasting rule in a hook's answer, so Tidewick can only allow this once. "
    "To stop being asked, leave the request to Codex's own prompt, which can remember it.";
/// A request with no rule to offer when the user gave none.
[[nodiscard]] std::string noRuleOffered(AgentKind agent);
/// An answer to a question left empty.
inline constexpr std::string_view emptyAnswer = "An answer can't be empty.";
/// A rule or prefix the user emptied.
inline constexpr std::string_view emptyRule = "An empty rule would allow everything; give one.";
/// Said when Claude Code is offered a rule for a shell command.
inline constexpr std::string_view ruleStillAsks =
    "Claude Code still asks when such a command redirects output, reaches outside the project "
    "or changes folder first.";

/// An answer sent while the request was ending anyway (time-out, agent gone).
inline constexpr std::string_view alreadyEnded = "Not delivered: that request had already ended.";

// Forgetting sessions; `who` names the session.
[[nodiscard]] std::string forgotten(std::string_view who);
/// A session holding a request is never forgotten.
[[nodiscard]] std::string forgetHeld(std::string_view who);
/// A session still working is forgotten only once it has been quiet for `quietMinutes`.
[[nodiscard]] std::string forgetWorking(std::string_view who, int quietMinutes);
/// The history erased: `forgotten` sessions gone, `kept` kept because they hold requests.
[[nodiscard]] std::string forgotAll(std::size_t forgotten, std::size_t kept);
inline constexpr std::string_view noSuchSession = "That session is no longer listed.";
// Continuing a session that holds nothing, with the agent's own program.
/// "Antigravity can't be continued from Tidewick yet: reply in Antigravity."
[[nodiscard]] std::string cannotContinueFromHere(AgentKind agent);
/// The session names no project folder that exists, where the agent must run.
inline constexpr std::string_view noProjectFolder =
    "Tidewick doesn't know this session's project folder, so it can't continue it.";
/// A reply sent to a session that was held for one.
inline constexpr std::string_view replied = "Your reply reached the waiting agent.";
/// The agent's program was found nowhere.
[[nodiscard]] std::string programNotFound(AgentKind agent, std::string_view program);
/// The session is in the middle of a turn (`held`: waiting for a permission answer).
[[nodiscard]] std::string busyNow(AgentKind agent, bool held);
/// The program started; its output goes to `log`.
[[nodiscard]] std::string continuing(AgentKind agent, std::string_view log);
/// The program could not be started (`reason` from the system).
[[nodiscard]] std::string couldNotStart(AgentKind agent, std::string_view reason,
                                        std::string_view log);
/// The program ended with a status other than 0.
[[nodiscard]] std::string continuationFailed(AgentKind agent, int status, std::string_view log);
/// The agent still has the session open in a window of its own.
[[nodiscard]] std::string openElsewhere(AgentKind agent);

// Ending a session from Tidewick.
/// The agent process was interrupted.
[[nodiscard]] std::string ending(AgentKind agent);
/// What the agent is told when a request it holds is denied because the user ended it.
inline constexpr std::string_view endedByYouDenial = "The user ended this session from Tidewick.";
/// No process of the session runs any more: it is only marked as ended.
[[nodiscard]] std::string endedWithoutProcess(AgentKind agent);
/// The session had ended already.
[[nodiscard]] std::string alreadyOver(AgentKind agent);

// Where a session runs.
/// "Claude Code runs in tmux pane %3 (kitty).", "... runs in kitty.", or that it is unknown.
[[nodiscard]] std::string runsIn(AgentKind agent, const std::optional<std::string>& pane,
                                 const std::optional<std::string>& host);

/// Told once when a sessions file that did not load is set aside before it is replaced:
/// "Tidewick couldn't read its sessions file, so it started without those sessions and kept
/// the file as " and the path, ".".
[[nodiscard]] std::string keptUnreadableSessions(std::string_view keptPath);

} // namespace tidewick::SessionText
