#include "usage/UsageAlerts.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

AgentUsage codex(double primary, std::optional<double> resetsAt, double secondary = 10) {
    AgentUsage usage;
    usage.agent = AgentKind::codex;
    usage.windows = {{"primary", primary, 300,
                      resetsAt ? std::optional(dateFromSeconds(*resetsAt)) : std::nullopt},
                     {"secondary", secondary, 10080, dateFromSeconds(9000)}};
    return usage;
}

TEST(UsageAlerts, RaisesEachWindowOncePerResetPastNinetyPercent) {
    UsageAlerts alerts;
    struct Step {
        const char* what;
        std::vector<AgentUsage> usage;
        double now;
        std::vector<std::string> raised;
    };
    AgentUsage claude;
    claude.windows = {{"five_hour", 91, 300, dateFromSeconds(5000)}};
    const std::vector<Step> steps = {
        {"at 90 % nothing yet", {codex(90, 1000)}, 0, {}},
        {"past 90 %: once", {codex(91, 1000)}, 0, {"codex primary"}},
        {"read again, higher", {codex(99, 1000)}, 10, {}},
        {"another agent's window is its own", {codex(99, 1000), claude}, 10, {"claude five_hour"}},
        {"past the reset the old figure counts for nothing", {codex(99, 1000)}, 1000, {}},
        {"the next window fills up",
         {codex(95, 2000, 93)},
         1001,
         {"codex primary", "codex secondary"}},
        {"no reset time: once while it stays full",
         {codex(95, std::nullopt)},
         1002,
         {"codex primary"}},
        {"", {codex(96, std::nullopt)}, 1003, {}},
        {"it emptied and filled again", {codex(10, std::nullopt)}, 1004, {}},
        {"", {codex(92, std::nullopt)}, 1005, {"codex primary"}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        std::vector<std::string> raised;
        for (const UsageAlerts::Crossing& crossing :
             alerts.crossings(step.usage, dateFromSeconds(step.now)))
            raised.push_back(std::string(rawValue(crossing.agent)) + " " + crossing.window.name);
        EXPECT_EQ(raised, step.raised);
    }
}

} // namespace
} // namespace tidewick
