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
