// The application's notifications against a private session bus: one per held
// request, answered by its buttons, taken down when answered elsewhere.
#include "NotificationCenter.h"

#include "service/ServiceTestSupport.h"
#include "service/TidewickService.h"
#include "ui/NotificationTestSupport.h"

#include <deque>
#include <future>
#include <gmock/gmock.h>

namespace tidewick {
namespace {

using testing::eventually;
using ::testing::HasSubstr;

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
    // Hooks held on threads of their own. Should the test fail with a hook still held, the
    // service is stopped first, which answers it: the test ends instead of waiting out the hold.
    struct HeldHooks {
        TidewickService& service;
        std::deque<std::future<HookResponse>> calls;
        ~HeldHooks() { service.stop(); }
    } held{service, {}};
    auto hold = [&](HookRequest request) -> std::future<HookResponse>& {
        return held.calls.emplace_back(std::async(std::launch::async, [&service, request] {
            return service.handle(request, [] { return false; });
        }));
    };
    // What the agent was told, once it was (20 s at most).
    auto told = [](std::future<HookResponse>& call) {
        return call.wait_for(std::chrono::seconds(20)) == std::future_status::ready
                   ? call.get().output.stdoutText
                   : "nothing yet";
    };

    // Allow and Always allow on the notification answer the agent, the latter leaving Claude
    // Code a rule; an option of a question answers it.
    standIn.press("allow");
    auto& allowed = hold(testing::claudePermission("rm -rf build"));
    EXPECT_THAT(told(allowed), HasSubstr(R"("behavior":"allow")"));
    standIn.press("always");
    auto& always = hold(testing::claudePermission("npm test -- --ci"));
    EXPECT_THAT(told(always),
                HasSubstr(R"("rules":[{"toolName":"Bash","ruleContent":"npm test:*"}])"));
    standIn.press("choice:1");
    auto& asked = hold(testing::claudeRequest(
        "PermissionRequest",
        R"({"tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which colour?",)"
        R"("header":"Colour","multiSelect":false,"options":[{"label":"Red"},{"label":"Blue"}]}]}})"));
    EXPECT_THAT(told(asked), HasSubstr(R"("answers":{"Which colour?":"Blue"})"));
    ASSERT_TRUE(eventually([&] { return reported.all().size() == 3; }));
    EXPECT_EQ(reported.all(),
              (std::vector<std::string>{"Allowed from the notification: Run rm -rf build",
                                        "Always allowed from the notification: Allow Bash(npm "
                                        "test:*), kept in this project's local settings",
                                        "Answered from the notification: Which colour? → Blue"}));
    EXPECT_EQ(
        standIn.calls.all()[1].actions,
        (std::vector<std::string>{"allow", "Allow", "always", "Always allow", "deny", "Deny"}));
    EXPECT_EQ(standIn.calls.all()[2].actions,
              (std::vector<std::string>{"choice:0", "Red", "choice:1", "Blue"}));

    // Answered from an interface or the command line instead: the notification goes.
    standIn.press("");
    auto& answered = hold(testing::claudePermission("rm -rf dist"));
    ASSERT_TRUE(eventually([&] { return standIn.calls.all().size() == 4; }));
    ASSERT_TRUE(service.answerPermission({AgentKind::claude, std::string(testing::claudeSession)},
                                         SessionActions::Answer::deny));
    ASSERT_TRUE(eventually([&] { return !standIn.closed.all().empty(); }));
    EXPECT_EQ(standIn.closed.all(), std::vector<std::uint32_t>{44});
    (void)answered.get();

    // Switched off in the settings: nothing is shown.
    File::writeAtomically(TidewickPaths(home.path()).settingsFile(),
                          R"({"systemNotificationsEnabled": false})", 0600);
    auto& quiet = hold(testing::claudePermission("rm -rf cache"));
    ASSERT_TRUE(eventually([&] { return service.pendingRequests().size() == 1; }));
    service.stop();
    (void)quiet.get();
    EXPECT_EQ(standIn.calls.all().size(), 4u);
    EXPECT_EQ(reported.all().size(), 3u);
}

} // namespace
} // namespace tidewick
