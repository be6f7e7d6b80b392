#include "service/SettingsText.h"

#include <ctime>

namespace tidewick::SettingsText {

std::string clockTime(Date date, Date now) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    const std::time_t today = std::chrono::system_clock::to_time_t(now);
    std::tm local{}, current{};
    localtime_r(&seconds, &local);
    localtime_r(&today, &current);
    const bool sameDay = local.tm_year == current.tm_year && local.tm_yday == current.tm_yday;
    char buffer[32];
    std::strftime(buffer, sizeof buffer, sameDay ? "%H:%M" : "%a %d %b %H:%M", &local);
    return buffer;
}

std::string pausedState(const std::optional<Date>& until) {
    std::string state(paused);
    if (until)
        state += " until " + clockTime(*until, tidewick::now());
    return state;
}

std::string pausedNow(const std::optional<Date>& until) {
    return pausedState(until) +
           ": Tidewick holds nothing and answers nothing; your agents ask in their own "
           "windows. Requests already held stay held." +
           (until ? " It resumes by itself then, or with `tidewick resume`."
                  : " Resume with `tidewick resume`.");
}

std::string alwaysHeld(AgentKind agent) {
    return std::string(displayName(agent)) +
           "'s permission requests are always held for you, so there is nothing to turn off "
           "(`tidewick pause` lets every request pass for a while).";
}

std::string gated(AgentKind agent, bool on) {
    const std::string name(displayName(agent));
    return on ? name + "'s shell commands are held for you (read-only ones pass at once)."
              : name + "'s shell commands are no longer held: " + name + " asks in its own window.";
}

std::string unknownSetting(std::string_view name) {
    return "Tidewick has no setting \"" + std::string(name) +
           "\". `tidewick settings` lists them all.";
}

std::string wrongValue(std::string_view name, std::string_view takes, std::string_view value) {
    return std::string(name) + " takes " + std::string(takes) + ", not \"" + std::string(value) +
           "\". Nothing was changed.";
}

std::string changed(std::string_view name, std::string_view value) {
    return "Set " + std::string(name) + " to " + std::string(value) +
           ". It applies from the next request.";
}

std::string unchanged(std::string_view name, std::string_view value) {
    return std::string(name) + " already is " + std::string(value) + ". Nothing was changed.";
}

std::string listEdited(std::string_view name, std::string_view item, bool adding, bool done) {
    const std::string quoted = "\"" + std::string(item) + "\"";
    const std::string list(name);
    if (!done)
        return quoted + (adding ? " already is in " : " is not in ") + list +
               ". Nothing was changed.";
    return (adding ? "Added " + quoted + " to " : "Removed " + quoted + " from ") + list +
           ". It applies from the next request.";
}

std::string unreadable(std::string_view problem) {
    return std::string(problem) + " Nothing was changed.";
}

} // namespace tidewick::SettingsText
