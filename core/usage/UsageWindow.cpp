#include "usage/UsageWindow.h"

#include <cmath>

namespace tidewick {

namespace {

std::string lengthLabel(std::int64_t minutes) {
    if (minutes >= 1440 && minutes % 1440 == 0)
        return std::to_string(minutes / 1440) + "d";
    if (minutes >= 60 && minutes % 60 == 0)
        return std::to_string(minutes / 60) + "h";
    return std::to_string(minutes) + "m";
}

} // namespace

UsageLevel usageLevel(double usedPercent) {
    if (usedPercent > 90)
        return UsageLevel::critical;
    if (usedPercent >= 70)
        return UsageLevel::high;
    return UsageLevel::normal;
}

std::optional<double> UsageWindow::usedAt(Date now) const {
    if (isReset(now))
        return std::nullopt;
    return usedPercent;
}

std::string UsageWindow::label() const {
    if (!windowMinutes || *windowMinutes <= 0)
        return name;
    std::string label = lengthLabel(*windowMinutes);
    // Claude Code's per-model weekly windows are "seven_day_opus" and the like.
    for (std::string_view prefix : {"five_hour_", "seven_day_"})
        if (name.size() > prefix.size() && name.starts_with(prefix))
            label += " " + name.substr(prefix.size());
    return label;
}

} // namespace tidewick
