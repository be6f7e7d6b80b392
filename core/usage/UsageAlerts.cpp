#include "usage/UsageAlerts.h"

#include <algorithm>

namespace tidewick {

std::vector<UsageAlerts::Crossing> UsageAlerts::crossings(const std::vector<AgentUsage>& usage,
                                                          Date now) {
    std::vector<Crossing> found;
    for (const AgentUsage& agent : usage)
        for (const UsageWindow& window : agent.windows) {
            const std::int64_t resets = window.resetsAt
                                            ? std::chrono::duration_cast<std::chrono::seconds>(
                                                  window.resetsAt->time_since_epoch())
                                                  .count()
                                            : 0;
            const std::optional<double> used = window.usedAt(now);
            if (used && usageLevel(*used) == UsageLevel::critical) {
                if (raised_.insert({agent.agent, window.name, resets}).second)
                    found.push_back({agent.agent, window});
                continue;
            }
            std::erase_if(raised_, [&](const Key& key) {
                return std::get<0>(key) == agent.agent && std::get<1>(key) == window.name;
            });
        }
    return found;
}

} // namespace tidewick
