// Decides when a rate-limit window deserves an alert: once it is more than
// 90 % used, once per window and reset, however often its figures are read.
#pragma once

#include "usage/UsageWindow.h"

#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace tidewick {

class UsageAlerts {
public:
    /// A window that has just passed 90 %.
    struct Crossing {
        AgentKind agent = AgentKind::claude;
        UsageWindow window;

        friend bool operator==(const Crossing&, const Crossing&) = default;
    };

    /// The windows of `usage` above 90 % at `now` that were not raised before for the same
    /// agent, window and reset time; they are remembered as raised. A window seen back under
    /// 90 % (or reset) is forgotten, so that a window whose agent reports no reset time
    /// alerts again when it fills up again. Not thread-safe.
    [[nodiscard]] std::vector<Crossing> crossings(const std::vector<AgentUsage>& usage, Date now);

private:
    /// Agent, window name, reset time in whole seconds (0: none reported).
    using Key = std::tuple<AgentKind, std::string, std::int64_t>;
    std::set<Key> raised_;
};

} // namespace tidewick
