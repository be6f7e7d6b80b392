#include "usage/UsageText.h"

#include <algorithm>
#include <cmath>

namespace tidewick::UsageText {

namespace {

std::string secondsUntil(Date later, Date now) {
    return duration(std::chrono::duration<double>(later - now).count());
}

} // namespace

std::string claudeNoFigures() {
    return "No figures from Claude Code yet: they come from its status line, which Claude Code "
           "fills in only for subscribers.";
}

std::string codexNoRecord(const std::string& sessionsFolder) {
    return "No figures from Codex yet: they come from its session records in " + sessionsFolder +
           ", and none reports any.";
}

std::string codexNoneSent(const std::string& record) {
    return "No figures from Codex: its newest session record (" + record +
           ") says its service sent none.";
}

std::string unreadable(const std::string& file, const std::string& reason) {
    return "Tidewick couldn't read the usage figures in " + file + ": " + reason + ".";
}

std::string duration(double seconds) {
    if (!std::isfinite(seconds) || seconds < 1)
        return "0s";
    const auto whole = static_cast<std::int64_t>(std::min(seconds, 1e12));
    const std::int64_t days = whole / 86400, hours = whole % 86400 / 3600,
                       minutes = whole % 3600 / 60;
    if (days > 0)
        return std::to_string(days) + "d" + (hours > 0 ? " " + std::to_string(hours) + "h" : "");
    if (hours > 0)
        return std::to_string(hours) + "h" +
               (minutes > 0 ? " " + std::to_string(minutes) + "m" : "");
    if (minutes > 0)
        return std::to_string(minutes) + "m";
    return std::to_string(whole) + "s";
}

std::string resetPhrase(const UsageWindow& window, Date now) {
    if (!window.resetsAt)
        return "";
    if (window.isReset(now))
        return "reset";
    return "resets in " + secondsUntil(*window.resetsAt, now);
}

std::string percent(const UsageWindow& window, Date now) {
    const std::optional<double> used = window.usedAt(now);
    if (!used)
        return "reset";
    return std::to_string(static_cast<int>(std::floor(std::clamp(*used, 0.0, 100.0)))) + "%";
}

std::string bar(const UsageWindow& window, Date now, int cells) {
    const double used = std::clamp(window.usedAt(now).value_or(0), 0.0, 100.0);
    // A window in use shows at least one filled cell, a full one every cell.
    int filled = static_cast<int>(std::floor(used * cells / 100));
    if (used > 0 && filled == 0)
        filled = 1;
    std::string text;
    for (int cell = 0; cell < cells; ++cell)
        text += cell < filled ? "█" : "░";
    return text;
}

std::string age(const AgentUsage& usage, Date now) {
    if (!usage.reportedAt)
        return "";
    return "as of " + secondsUntil(now, *usage.reportedAt) + " ago";
}

std::string tokens(std::int64_t count) {
    // Appended digit by digit: inserting commas trips GCC 12's -Wrestrict at -O2.
    const std::string digits = std::to_string(count);
    const std::size_t sign = count < 0 ? 1 : 0;
    const std::size_t length = digits.size() - sign;
    std::string out = digits.substr(0, sign);
    for (std::size_t i = 0; i < length; ++i) {
        if (i > 0 && (length - i) % 3 == 0)
            out += ',';
        out += digits[sign + i];
    }
    return out;
}

std::string tokenUse(std::int64_t input, std::int64_t output, bool partial) {
    return (partial ? "at least " : "") + tokens(input + output) + " tokens (" + tokens(input) +
           " in, " + tokens(output) + " out)";
}

std::string alertTitle(AgentKind agent, const UsageWindow& window, Date now) {
    return std::string(displayName(agent)) + ": " + window.label() + " limit " +
           percent(window, now) + " used";
}

std::string alertDetail(const UsageWindow& window, Date now) {
    if (!window.resetsAt)
        return "No reset time was reported.";
    std::string phrase = resetPhrase(window, now);
    phrase[0] = 'R';
    return phrase + ".";
}

} // namespace tidewick::UsageText
