// Keeps an eye on the agents' usage limits for the running application: reads
// the figures when asked and raises one alert for each window that passes 90 %,
// once per window and reset.
#pragma once

#include "foundation/Clock.h"
#include "service/Alert.h"
#include "usage/UsageAlerts.h"
#include "usage/UsageReport.h"

#include <functional>
#include <vector>

namespace tidewick {

class UsageWatch {
public:
    /// Reads the agents' figures now; must not throw.
    using Reader = std::function<std::vector<AgentUsage>()>;
    /// Announces an alert to the application's watchers.
    using Announce = std::function<void(const Alert&)>;

    /// Reads with `read`, dates with `clock`, announces through `announce`.
    UsageWatch(Reader read, Clock clock, Announce announce);

    /// Reads the figures and announces every window newly past 90 % (see UsageAlerts).
    /// Not thread-safe: the service calls it on its work queue.
    void check();

    /// The alert for `crossing` at `now`: kind usageLimit, the agent with no session, the
    /// title and detail of UsageText.
    [[nodiscard]] static Alert alertFor(const UsageAlerts::Crossing& crossing, Date now);

private:
    Reader read_;
    Clock clock_;
    Announce announce_;
    UsageAlerts alerts_;
};

} // namespace tidewick
