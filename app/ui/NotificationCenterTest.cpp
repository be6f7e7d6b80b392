// The application's notifications against a private session bus: one per held
// request, answered by its buttons, taken down when answered elsewhere.
#include "NotificationCenter.h"

#include "service/ServiceTestSupport.h"
#include "service/TidewickService.h"
#include "ui/NotificationTestSupport.h"

#include <future>
#include <gtest/gtest.h>

namespace tidewick {
namespace {

using testing::eventually;

TEST(NotificationCenter, NotifiesEachHeldRequestOnceAndTakesItDownWhenAnsweredAnywhere) {
    if (!File::isExecutableFile(testing::daemonPath))
        GTEST_SKIP() << "dbus-daemon is not installed (Debian package dbus)";
    testing::PrivateBus bus;
    testing::StandInNotificationService standIn(bus.address());
    TemporaryDirectory home;
    TidewickService::Options options;
    options.alertThrottleSeconds = 0;
    TidewickService service(TidewickPaths(home.path()), options);
    service.start();
    testing::Recorded<std::string> reported;
    NotificationCenter center(service, bus.address(),
                              [&](const std::string& sentence) { (void)reported.add(sentence); });
    ASSERT_TRUE(center.isAvailable());
    auto hold = [&](std::string_view command) {
        return std::async(std::launch::async, [&service, command] {
            return service.handle(testing::claudePermission(command), [] { return false; });
        });
    };

    // Allow on the notification answers the agent.
    standIn.press("allow");
    auto allowed = hold("rm -rf build");
    ASSERT_EQ(allowed.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_NE(allowed.get().output.stdoutText.find(R"("behavior":"allow")"), std::string::npos);
    ASSERT_TRUE(eventually([&] { return reported.all().size() == 1; }));
    EXPECT_EQ(reported.all()[0], "Allowed from the notification: Run rm -rf build");

    // Answered from an interface or the command line instead: the notification goes.
    standIn.press("");
    auto answered = hold("rm -rf dist");
    ASSERT_TRUE(eventually([&] { return standIn.calls.all().size() == 2; }));
    ASSERT_TRUE(service.answerPermission({AgentKind::claude, std::string(testing::claudeSession)},
                                         SessionActions::Answer::deny));
    ASSERT_TRUE(eventually([&] { return !standIn.closed.all().empty(); }));
    EXPECT_EQ(standIn.closed.all(), std::vector<std::uint32_t>{42});
    (void)answered.get();

    // Switched off in the settings: nothing is shown.
    File::writeAtomically(TidewickPaths(home.path()).settingsFile(),
                          R"({"systemNotificationsEnabled": false})", 0600);
    auto quiet = hold("rm -rf cache");
    ASSERT_TRUE(eventually([&] { return service.pendingRequests().size() == 1; }));
    service.stop();
    (void)quiet.get();
    EXPECT_EQ(standIn.calls.all().size(), 2u);
    EXPECT_EQ(reported.all().size(), 1u);
}

} // namespace
} // namespace tidewick
