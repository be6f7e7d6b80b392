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

std::string keptUnreadableSessions(std::string_view keptPath) {
    return "Tidewick couldn't read its sessions file, so it started without those sessions and "
           "kept the file as " +
           std::string(keptPath) + ".";
}

} // namespace tidewick::SessionText
