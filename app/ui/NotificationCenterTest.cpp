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

    // Always allow leaves Claude Code a rule; an option of a question answers it.
    standIn.press("always");
    auto always = hold("npm test -- --ci");
    ASSERT_EQ(always.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_NE(always.get().output.stdoutText.find(
                  R"("rules":[{"toolName":"Bash","ruleContent":"npm test:*"}])"),
              std::string::npos);
    standIn.press("choice:1");
    auto asked = std::async(std::launch::async, [&service] {
        return service.handle(testing::claudeRequest("PermissionRequest",
                                                     R"({"tool_name":"AskUserQuestion",)"
                                                     R"("tool_input":{"questions":[{"question":)"
                                                     R"("Which colour?","header":"Colour",)"
                                                     R"("multiSelect":false,"options":[{"label":)"
                                                     R"("Red"},{"label":"Blue"}]}]}})"),
                              [] { return false; });
    });
    ASSERT_EQ(asked.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_NE(asked.get().output.stdoutText.find(R"("answers":{"Which colour?":"Blue"})"),
              std::string::npos);
    ASSERT_TRUE(eventually([&] { return reported.all().size() == 3; }));
    EXPECT_EQ(reported.all()[1], "Always allowed from the notification: Allow Bash(npm test:*), "
                                 "kept in this project's local settings");
    EXPECT_EQ(reported.all()[2], "Answered from the notification: Which colour? → Blue");
    EXPECT_EQ(
        standIn.calls.all()[1].actions,
        (std::vector<std::string>{"allow", "Allow", "always", "Always allow", "deny", "Deny"}));
    EXPECT_EQ(standIn.calls.all()[2].actions,
              (std::vector<std::string>{"choice:0", "Red", "choice:1", "Blue"}));

    // Answered from an interface or the command line instead: the notification goes.
    standIn.press("");
    auto answered = hold("rm -rf dist");
    ASSERT_TRUE(eventually([&] { return standIn.calls.all().size() == 4; }));
    ASSERT_TRUE(service.answerPermission({AgentKind::claude, std::string(testing::claudeSession)},
                                         SessionActions::Answer::deny));
    ASSERT_TRUE(eventually([&] { return !standIn.closed.all().empty(); }));
    EXPECT_EQ(standIn.closed.all(), std::vector<std::uint32_t>{44});
    (void)answered.get();

    // Switched off in the settings: nothing is shown.
    File::writeAtomically(TidewickPaths(home.path()).settingsFile(),
                          R"({"systemNotificationsEnabled": false})", 0600);
    auto quiet = hold("rm -rf cache");
    ASSERT_TRUE(eventually([&] { return service.pendingRequests().size() == 1; }));
    service.stop();
    (void)quiet.get();
    EXPECT_EQ(standIn.calls.all().size(), 4u);
    EXPECT_EQ(reported.all().size(), 3u);
}

} // namespace
} // namespace tidewick
