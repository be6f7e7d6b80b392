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
    return std::string(who) + " has no permission request waiting, so the decision was not delivered.";
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

} // namespace tidewick::SessionText
