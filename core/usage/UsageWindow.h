// One rate-limit window of an agent's quota as the agent last reported it, and
// how it reads at a given moment: a window past its reset time reads as reset,
// never as the old figure.
#pragma once

#include "events/AgentKind.h"
#include "foundation/Clock.h"
#include "foundation/EnumTable.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// How full a window is: under 70 %, from 70 % to 90 %, above 90 %.
enum class UsageLevel { normal, high, critical };

template <> struct RawValues<UsageLevel> {
    static constexpr EnumTable<UsageLevel, 3> table{{{
        {UsageLevel::normal, "normal"},
        {UsageLevel::high, "high"},
        {UsageLevel::critical, "critical"},
    }}};
};

/// The level of a window `usedPercent` full.
[[nodiscard]] UsageLevel usageLevel(double usedPercent);

struct UsageWindow {
    /// The agent's own name for it ("five_hour", "seven_day", "primary", "secondary").
    std::string name;
    /// How much of the window was used, 0–100, when reported.
    double usedPercent = 0;
    /// The window's length, where reported or known from its name.
    std::optional<std::int64_t> windowMinutes;
    /// When the window starts afresh, where reported.
    std::optional<Date> resetsAt;

    /// Whether `now` is past the reset time: the figure belongs to a window that is over.
    [[nodiscard]] bool isReset(Date now) const { return resetsAt && now >= *resetsAt; }
    /// The percentage used at `now`; nothing once the window has reset.
    [[nodiscard]] std::optional<double> usedAt(Date now) const;
    /// A short name for the screen: the length ("5h", "7d", "90m"), with what a named
    /// window is limited to ("7d opus"); the agent's name when the length is unknown.
    [[nodiscard]] std::string label() const;

    friend bool operator==(const UsageWindow&, const UsageWindow&) = default;
};

/// What is known of one agent's quota.
struct AgentUsage {
    AgentKind agent = AgentKind::claude;
    /// In the order the agent lists them; empty when there are no figures.
    std::vector<UsageWindow> windows;
    /// When the agent reported them: the figures' age is measured from here.
    std::optional<Date> reportedAt;
    /// The file they were read from.
    std::optional<std::string> source;
    /// Why there are no windows, one sentence; empty when there are windows.
    std::string missing;

    friend bool operator==(const AgentUsage&, const AgentUsage&) = default;
};

} // namespace tidewick
