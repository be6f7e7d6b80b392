// The notifier against a private session bus: a dbus-daemon started here and a
// stand-in notification service that records each call and presses a button.
#include "DesktopNotifier.h"

#include "service/ServiceTestSupport.h"
#include "ui/NotificationTestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

class DesktopNotifierTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!File::isExecutableFile(daemonPath))
            GTEST_SKIP() << "dbus-daemon is not installed (Debian package dbus)";
    }

    /// An urgent permission request offering Allow and Deny.
    static Notification permission(std::string session, UUID id) {
        return {"Claude Code needs permission",
                "Run rm -rf build\n⚠ deletes files for good <now>",
                {AgentKind::claude, std::move(session)},
                id,
                true,
                true};
    }

    /// Hands each action a notifier reports, from its own thread, to `into`.
    static DesktopNotifier::ActionHandler recorder(Recorded<DesktopNotifier::Action>& into) {
        return [&into](const DesktopNotifier::Action& action) { (void)into.add(action); };
    }

    Recorded<DesktopNotifier::Action> pressed;
};

TEST_F(DesktopNotifierTest, NotifiesWithAllowAndDenyAndReportsThePressedButton) {
    PrivateBus bus;
    StandInNotificationService standIn(bus.address());
    DesktopNotifier notifier(bus.address(), recorder(pressed));
    ASSERT_TRUE(notifier.isAvailable());
    // A second notifier on the same bus sees the signals for notifications it never sent
    // and must not act on them.
    Recorded<DesktopNotifier::Action> strangers;
    DesktopNotifier other(bus.address(), recorder(strangers));

    // Telling presses on several notifications apart is NotificationCenterTest's.
    const UUID denied = UUID::random();
    standIn.press("deny");
    notifier.notify(permission("s2", denied));
    ASSERT_TRUE(eventually([&] { return pressed.all().size() == 1; }));
    EXPECT_EQ(pressed.all(),
              (std::vector<DesktopNotifier::Action>{{{AgentKind::claude, "s2"}, denied, "deny"}}));

    // A reply notification offers no buttons, so nothing can be pressed on it.
    const Notification reply{
        "Codex is waiting for your reply", "", {AgentKind::codex, "s3"}, UUID::random()};
    notifier.notify(reply);
    ASSERT_TRUE(eventually([&] { return standIn.calls.all().size() == 2; }));
    const NotifyCall asked{"Tidewick",
                           "Claude Code needs permission",
                           "Run rm -rf build\n⚠ deletes files for good &lt;now&gt;",
                           {"allow", "Allow", "deny", "Deny"},
                           2};
    EXPECT_EQ(standIn.calls.all(),
              (std::vector<NotifyCall>{
                  asked, {"Tidewick", "Codex is waiting for your reply", "", {}, 1}}));

    EXPECT_EQ(pressed.all().size(), 1u);
    EXPECT_TRUE(strangers.all().empty());
}

TEST_F(DesktopNotifierTest, ABusWithoutAServiceIsSurvivedAndNoBusIsUnavailable) {
    TemporaryDirectory empty;
    EXPECT_FALSE(
        DesktopNotifier("unix:path=" + File::join(empty.path(), "no-bus"), recorder(pressed))
            .isAvailable());

    // Nothing answers the first notification; once a service is there the next one reaches it.
    PrivateBus bus;
    DesktopNotifier notifier(bus.address(), recorder(pressed));
    ASSERT_TRUE(notifier.isAvailable());
    notifier.notify(permission("unheard", UUID::random()));
    StandInNotificationService standIn(bus.address());
    const Notification reply{
        "Codex is waiting for your reply", "", {AgentKind::codex, "heard"}, UUID::random()};
    notifier.notify(reply);
    ASSERT_TRUE(eventually([&] {
        const auto calls = standIn.calls.all();
        return !calls.empty() && calls.back().summary == reply.summary;
    }));
    EXPECT_TRUE(pressed.all().empty());
}

} // namespace
} // namespace tidewick
