// Interfaces attached to one headless application, each `tidewick app` in a
// tmux pane of its own: a request held by the real hook command shows in every
// one (its notification comes once, from the application), an answer
// in one clears it from the others, closing an interface never answers anything,
// an interface outlives the application going away, and pausing, forgetting and
// settings reach the application. Answers from the notifications' buttons are
// NotificationCenter's to test, answers by key attached TerminalAppIn's.
#include "TidewickPrograms.h"
#include "TmuxTestSupport.h"
#include "ui/NotificationTestSupport.h"

#include <csignal>

namespace tidewick {
namespace {

using testing::claudeAllowed;
using testing::TidewickPrograms;

const std::string permission = testing::claudeAsksToRun("s-attach", "rm -rf build");

class Attach : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::Tmux::isInstalled())
            GTEST_SKIP() << "tmux is not installed (Debian package tmux)";
        ASSERT_TRUE(TidewickPrograms::built());
    }

    /// Notifications on a private session bus when dbus-daemon is there; none otherwise.
    void useNotifications() {
        if (!File::isExecutableFile(testing::daemonPath))
            return;
        bus.emplace();
        notifications.emplace(bus->address());
        run.setVariable("DBUS_SESSION_BUS_ADDRESS", bus->address());
    }

    /// Opens `tidewick app` in the tmux session `name`; whether it attached.
    bool openInterface(const std::string& name) {
        return terminal.start(name, run.inTerminal(name)) &&
               terminal.waitForAll(name, {"Tidewick", "session"});
    }

    TidewickPrograms run;
    testing::Tmux terminal;
    std::optional<testing::PrivateBus> bus;
    std::optional<testing::StandInNotificationService> notifications;
};

TEST_F(Attach, AHeldRequestShowsInEveryInterfaceAndAnAnswerInOneClearsTheOthers) {
    // Notifications come from the application: once, however many interfaces are open.
    // (Its sounds too, which ControlEndToEnd checks.)
    useNotifications();
    ASSERT_TRUE(run.startApp());
    ASSERT_TRUE(openInterface("one"));
    ASSERT_TRUE(openInterface("two"));

    auto& hook = run.hook("claude", "PermissionRequest", permission);
    // How the interface draws it (avatar, colours) is TerminalApp's to test, attached too.
    for (const char* name : {"one", "two"})
        ASSERT_TRUE(terminal.waitForAll(name, {"Run rm -rf build", "Waiting for you", "1 held"}));
    terminal.keys("one", {"y"});
    EXPECT_EQ(run.finished(hook), claudeAllowed);
    EXPECT_TRUE(terminal.waitForAll("one", {"Allowed: Run rm -rf build"}));
    EXPECT_TRUE(terminal.waitForGone("two", "Waiting for you"));
    EXPECT_TRUE(terminal.waitForGone("two", "1 held"));

    if (notifications) {
        ASSERT_TRUE(testing::eventually([&] { return notifications->closed.all().size() == 1; }))
            << "the notification goes once the request is answered";
        EXPECT_EQ(notifications->calls.all().size(), 1u);
    }
}

TEST_F(Attach, ClosingAnInterfaceAnswersNothingAndAnInterfaceOutlivesTheApplication) {
    ASSERT_TRUE(run.startApp());
    ASSERT_TRUE(openInterface("one"));
    auto& first = run.hook("claude", "PermissionRequest", permission);
    ASSERT_TRUE(terminal.waitForAll("one", {"Run rm -rf build", "1 held"}));

    // Killed outright, the interface takes nothing with it: still held, answerable.
    ASSERT_EQ(::kill(terminal.panePid("one"), SIGKILL), 0);
    ASSERT_TRUE(terminal.waitForEnd("one"));
    EXPECT_EQ(run.waitForHeld(1).size(), 1u);
    EXPECT_TRUE(first.isRunning());
    (void)run.succeeded({"deny", "s-attach"});
    EXPECT_NE(run.finished(first).find(R"("behavior":"deny")"), std::string::npos);

    // The application stops and starts again: the interface says so and comes back.
    ASSERT_TRUE(openInterface("two"));
    EXPECT_EQ(run.stopApp(), 0);
    ASSERT_TRUE(terminal.waitForAll("two", {"Tidewick isn't running any more. This window "
                                            "attaches again as soon as it is back."}));
    ASSERT_TRUE(run.startApp());
    ASSERT_TRUE(terminal.waitForAll("two", {"Tidewick is running again.", "webshop"}));
    auto& second = run.hook("claude", "PermissionRequest", permission);
    ASSERT_TRUE(terminal.waitForAll("two", {"1 held"}));
    terminal.keys("two", {"y"});
    EXPECT_EQ(run.finished(second), claudeAllowed);
}

TEST_F(Attach, PauseForgetAndSettingsFromAnAttachedInterface) {
    ASSERT_TRUE(run.startApp());
    ASSERT_TRUE(openInterface("one"));
    for (const char* event : {"sessionStart", "sessionEnd"})
        (void)run.finished(run.cursor(event, "cur-1"));
    ASSERT_TRUE(terminal.waitForAll("one", {"Cursor", "Ended"}));

    terminal.keys("one", {"p"});
    ASSERT_TRUE(terminal.waitForAll("one", {" Paused ", "Paused: Tidewick holds nothing"}));
    EXPECT_NE(run.tidewick({"status"}).out.find("Paused"), std::string::npos);
    terminal.keys("one", {"p"});
    ASSERT_TRUE(terminal.waitForAll("one", {"Resumed: Tidewick holds your agents' requests"}));
    EXPECT_EQ(run.tidewick({"status"}).out.find("Paused"), std::string::npos);

    terminal.keys("one", {"x"});
    ASSERT_TRUE(terminal.waitForAll("one", {"Forget Cursor session cur-1? It leaves the list"}));
    terminal.keys("one", {"y"});
    ASSERT_TRUE(terminal.waitForAll("one", {"Forgot Cursor session cur-1.", "0 sessions"}));
    EXPECT_TRUE(run.listing("sessions").arrayValue()->empty());

    // quietMode is the eleventh setting.
    terminal.keys("one", {","});
    ASSERT_TRUE(terminal.waitForAll("one", {"Settings", "▸ permissionTimeoutSeconds"}));
    terminal.keys("one", {"j", "j", "j", "j", "j", "j", "j", "j", "j", "j", "Enter"});
    ASSERT_TRUE(terminal.waitForAll("one", {"Set quietMode to true.", "[on]  true"}));
    const JSONValue settings =
        JSONValue::parse(File::read(TidewickPaths(run.home()).settingsFile()));
    EXPECT_EQ(settings.get("quietMode")->compact(), "true");
    terminal.keys("one", {"Escape"});
    EXPECT_TRUE(terminal.waitForGone("one", "▸ permissionTimeoutSeconds"));
}

} // namespace
} // namespace tidewick
