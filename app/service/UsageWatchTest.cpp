#include "service/TidewickService.h"

#include "service/ServiceTestSupport.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

namespace tidewick {
namespace {

using namespace tidewick::testing;

// The running service reads the figures again and again; a window past 90 % is announced
// to every watcher once for its reset time, and again only for the next window.
TEST(UsageWatch, TheRunningServiceAlertsOncePerWindowPastNinetyPercent) {
    TemporaryDirectory home;
    ManualClock clock;
    std::mutex mutex;
    std::vector<AgentUsage> figures;
    std::atomic<int> reads = 0;
    std::vector<Alert> alerts;
    auto setPrimary = [&](double used, double resetsIn) {
        AgentUsage codex;
        codex.agent = AgentKind::codex;
        codex.windows = {{"primary", used, 300, addSeconds(clock.now(), resetsIn)},
                         {"secondary", 40, 10080, addSeconds(clock.now(), 86400)}};
        std::lock_guard guard(mutex);
        figures = {AgentUsage{}, codex};
    };
    auto usageAlerts = [&] {
        std::lock_guard guard(mutex);
        return alerts;
    };
    setPrimary(80, 3600);

    TidewickService::Options options;
    options.clock = clock.clock();
    options.usageCheckSeconds = 0.01;
    options.readUsage = [&] {
        ++reads;
        std::lock_guard guard(mutex);
        return figures;
    };
    TidewickService service(TidewickPaths(home.path()), options);
    (void)service.watch({.alerted = [&](const Alert& alert) {
        std::lock_guard guard(mutex);
        alerts.push_back(alert);
    }});
    service.start();
    auto readsMore = [&](int count) {
        const int from = reads;
        return eventually([&] { return reads >= from + count; });
    };
    ASSERT_TRUE(readsMore(3));
    EXPECT_TRUE(usageAlerts().empty());

    setPrimary(95.5, 3600);
    ASSERT_TRUE(eventually([&] { return !usageAlerts().empty(); }));
    ASSERT_TRUE(readsMore(5));
    ASSERT_EQ(usageAlerts().size(), 1U);
    const Alert alert = usageAlerts()[0];
    EXPECT_EQ(alert.kind, Alert::Kind::usageLimit);
    EXPECT_EQ(alert.session, (SessionKey{AgentKind::codex, ""}));
    EXPECT_EQ(alert.title, "Codex: 5h limit 95% used");
    EXPECT_EQ(alert.detail, "Resets in 1h.");
    EXPECT_FALSE(alert.requestId);

    // The window resets and the next one fills up too.
    clock.advance(3600);
    setPrimary(97, 18000);
    ASSERT_TRUE(eventually([&] { return usageAlerts().size() == 2; }));
    ASSERT_TRUE(readsMore(5));
    EXPECT_EQ(usageAlerts().size(), 2U);
    EXPECT_EQ(usageAlerts()[1].detail, "Resets in 5h.");
    service.stop();
}

} // namespace
} // namespace tidewick
