#include "sessions/SessionText.h"

namespace tidewick::SessionText {

std::string askingInstead(AgentKind agent) {
    return "No answer in Tidewick — asking in " + std::string(displayName(agent));
}

std::string deniedWith(const std::optional<std::string>& message) {
    if (!message || message->empty())
        return "Denied";
    return "Denied: " + *message;
}

std::string allowedReadOnly(const std::optional<std::string>& command) {
    return "Allowed (read-only): " + command.value_or("command");
}

std::string asksFor(std::string_view who, PendingKind kind) {
    return std::string(who) +
           (kind == PendingKind::permission ? " needs permission" : " is waiting for your reply");
}

std::string nowAllowsPrefix(std::string_view prefix) {
    return "Tidewick now allows commands starting with \"" + std::string(prefix) +
           "\" without asking";
}

std::string noQuestionWaiting(std::string_view who) {
    return std::string(who) + " isn't asking a question, so nothing was delivered.";
}

std::string answersWanted(AgentKind agent, std::size_t questions) {
    if (questions == 1)
        return std::string(displayName(agent)) + " asked one question: give one answer.";
    return std::string(displayName(agent)) + " asked " + std::to_string(questions) +
           " questions: give one answer for each.";
}

std::string answerInstead(AgentKind agent) {
    return std::string(displayName(agent)) +
           " is asking a question: answer it (tidewick answer) or deny it.";
}

std::string noRuleOffered(AgentKind agent) {
    return std::string(displayName(agent)) +
           " suggested no lasting rule for this request: give one to always allow it.";
}

std::string alsoWaiting(std::size_t count) {
    return "+" + std::to_string(count) + (count == 1 ? " more request" : " more requests") +
           " waiting";
}

std::string noPermissionRequest(std::string_view who) {
    return std::string(who) +
           " has no permission request waiting, so the decision was not delivered.";
}

std::string noReplyWaiting(std::string_view who) {
    return std::string(who) + " isn't waiting for a reply, so nothing was delivered.";
}

std::string forgotten(std::string_view who) {
    return "Forgot " + std::string(who) + ".";
}

std::string forgetHeld(std::string_view who) {
    return std::string(who) +
           " holds a request for you, so Tidewick keeps it: answer the request first.";
}

std::string forgetWorking(std::string_view who, int quietMinutes) {
    return std::string(who) + " is working, and its next event would bring it back: forget it " +
           "once it is idle or ended, or after " + std::to_string(quietMinutes) +
           " minutes without a word from it.";
}

std::string forgotAll(std::size_t forgotten, std::size_t kept) {
    std::string sentence = "Erased the history: forgot " + std::to_string(forgotten) +
                           (forgotten == 1 ? " session." : " sessions.");
    if (kept > 0)
        sentence += " Kept " + std::to_string(kept) +
                    (kept == 1 ? " that holds a request" : " that hold requests") + " for you.";
    return sentence;
}

std::string cannotContinueFromHere(AgentKind agent) {
    const std::string name(displayName(agent));
    return name + " can't be continued from Tidewick yet: reply in " + name + ".";
}

std::string programNotFound(AgentKind agent, std::string_view program) {
    return "Tidewick couldn't find " + std::string(displayName(agent)) + "'s program \"" +
           std::string(program) +
           "\": put it on PATH or name it in the agentCommands setting.";
}

std::string busyNow(AgentKind agent, bool held) {
    const std::string name(displayName(agent));
    if (held)
        return name + " is waiting for your answer to a permission request: answer that first.";
    return name + " is still working on this session: wait for its turn to end, or end it first.";
}

std::string continuing(AgentKind agent, std::string_view log) {
    return std::string(displayName(agent)) + " is continuing the session in the background; its output goes to " +
           std::string(log) + ".";
}

std::string couldNotStart(AgentKind agent, std::string_view reason, std::string_view log) {
    return "Tidewick couldn't start " + std::string(displayName(agent)) + " (" +
           std::string(reason) + "); see " + std::string(log) + ".";
}

std::string continuationFailed(AgentKind agent, int status, std::string_view log) {
    return std::string(displayName(agent)) + " stopped with exit status " +
           std::to_string(status) + " while continuing the session; its output is in " +
           std::string(log) + ".";
}

std::string openElsewhere(AgentKind agent) {
    const std::string name(displayName(agent));
    return name + " still has this session open in its own window: continuing here splits "
                  "the conversation, and that window won't see the new turn.";
}

std::string ending(AgentKind agent) {
    return "Tidewick interrupted " + std::string(displayName(agent)) +
           " and marked the session as ended by you.";
}

std::string endedWithoutProcess(AgentKind agent) {
    return std::string(displayName(agent)) +
           " no longer runs this session; Tidewick marked it as ended by you.";
}

std::string alreadyOver(AgentKind agent) {
    return "That " + std::string(displayName(agent)) + " session has already ended.";
}

std::string runsIn(AgentKind agent, const std::optional<std::string>& pane,
                   const std::optional<std::string>& host) {
    const std::string name(displayName(agent));
    if (pane)
        return name + " runs in tmux pane " + *pane + (host && *host != "tmux" ? " (" + *host + ")" : "") +
               ".";
    if (host)
        return name + " runs in " + *host + ".";
    return "Tidewick doesn't know where this " + name + " session runs.";
}

std::string keptUnreadableSessions(std::string_view keptPath) {
    return "Tidewick couldn't read its sessions file, so it started without those sessions and "
           "kept the file as " +
           std::string(keptPath) + ".";
}

} // namespace tidewick::SessionText
