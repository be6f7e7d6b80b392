#include "service/UsageWatch.h"

#include "usage/UsageText.h"

namespace tidewick {

UsageWatch::UsageWatch(Reader read, Clock clock, Announce announce)
    : read_(std::move(read)), clock_(std::move(clock)), announce_(std::move(announce)) {}

void UsageWatch::check() {
    const std::vector<AgentUsage> usage = read_();
    const Date now = clock_();
    for (const UsageAlerts::Crossing& crossing : alerts_.crossings(usage, now))
        announce_(alertFor(crossing, now));
}

Alert UsageWatch::alertFor(const UsageAlerts::Crossing& crossing, Date now) {
    Alert alert;
    alert.kind = Alert::Kind::usageLimit;
    alert.session = {crossing.agent, ""};
    alert.title = UsageText::alertTitle(crossing.agent, crossing.window, now);
    alert.detail = UsageText::alertDetail(crossing.window, now);
    alert.informational = true;
    return alert;
}

} // namespace tidewick
