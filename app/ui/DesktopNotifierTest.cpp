// The notifier against a private session bus: a dbus-daemon started here and a
// stand-in notification service that records each call and presses a button.
#include "DesktopNotifier.h"

#include "foundation/File.h"
#include "service/ServiceTestSupport.h"
#include "testing/BackgroundProgram.h"
#include "testing/TemporaryDirectory.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <optional>
#include <systemd/sd-bus.h>
#include <thread>

namespace tidewick {
namespace {

using namespace std::chrono_literals;

const char* const daemonPath = "/usr/bin/dbus-daemon";

/// A dbus-daemon of our own, on a socket in a temporary directory.
class PrivateBus {
public:
    PrivateBus() {
        const std::string socket = File::join(directory_.path(), "bus");
        const std::string config = File::join(directory_.path(), "bus.conf");
        // Our own configuration: nothing of the machine's is included or activated.
        File::writeAtomically(config,
                              "<busconfig><type>session</type><listen>unix:path=" + socket +
                                  "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                  "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                                  "<allow own=\"*\"/></policy></busconfig>\n",
                              0600);
        // It prints its address once it accepts connections; its complaints as root (file
        // limits) land in a file nobody reads.
        daemon_.emplace(std::vector<std::string>{daemonPath, "--config-file=" + config, "--nofork",
                                                 "--nopidfile", "--print-address"},
                        std::vector<std::string>{}, "", File::join(directory_.path(), "daemon"));
        (void)testing::eventually([&] { return daemon_->out().ends_with("\n"); });
        address_ = "unix:path=" + socket;
    }
    const std::string& address() const { return address_; }

private:
    TemporaryDirectory directory_;
    std::optional<testing::BackgroundProgram> daemon_;
    std::string address_;
};

/// A list filled on one thread and read on another.
template <typename T> class Recorded {
public:
    /// Appends `item`; the number of items now held.
    std::size_t add(T item) {
        std::lock_guard guard(lock_);
        items_.push_back(std::move(item));
        return items_.size();
    }
    std::vector<T> all() {
        std::lock_guard guard(lock_);
        return items_;
    }

private:
    std::mutex lock_;
    std::vector<T> items_;
};

/// What the stand-in saw of one Notify call.
struct NotifyCall {
    std::string appName, summary, body;
    std::vector<std::string> actions;
    int urgency = -1;
    friend bool operator==(const NotifyCall&, const NotifyCall&) = default;
};

/// Owns org.freedesktop.Notifications, answers Notify with ids from 41 on and presses
/// the button set by press() on each notification offering it, right after answering.
class StandInNotificationService {
public:
    explicit StandInNotificationService(const std::string& address) {
        if (sd_bus_new(&bus_) < 0 || sd_bus_set_address(bus_, address.c_str()) < 0 ||
            sd_bus_set_bus_client(bus_, 1) < 0 || sd_bus_start(bus_) < 0 ||
            sd_bus_request_name(bus_, "org.freedesktop.Notifications", 0) < 0 ||
            sd_bus_add_filter(bus_, nullptr, &StandInNotificationService::filter, this) < 0) {
            ADD_FAILURE() << "the stand-in could not join the bus";
            return;
        }
        thread_ = std::thread([this] {
            while (!stop_) {
                if (sd_bus_process(bus_, nullptr) > 0)
                    continue;
                (void)sd_bus_wait(bus_, 50'000);
            }
        });
    }
    ~StandInNotificationService() {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
        sd_bus_flush_close_unref(bus_);
    }

    void press(std::string button) {
        std::lock_guard guard(lock_);
        button_ = std::move(button);
    }
    Recorded<NotifyCall> calls;
    Recorded<std::uint32_t> closed;

private:
    static int filter(sd_bus_message* message, void* self, sd_bus_error*) {
        auto* service = static_cast<StandInNotificationService*>(self);
        if (sd_bus_message_is_method_call(message, "org.freedesktop.Notifications", "Notify"))
            return service->notify(message);
        if (sd_bus_message_is_method_call(message, "org.freedesktop.Notifications",
                                          "CloseNotification")) {
            std::uint32_t id = 0;
            (void)sd_bus_message_read(message, "u", &id);
            (void)service->closed.add(id);
            (void)sd_bus_reply_method_return(message, "");
            return 1;
        }
        return 0;
    }

    int notify(sd_bus_message* message) {
        NotifyCall call;
        const char *app = nullptr, *icon = nullptr, *summary = nullptr, *body = nullptr;
        std::uint32_t replaces = 0;
        if (sd_bus_message_read(message, "susss", &app, &replaces, &icon, &summary, &body) < 0)
            return -EINVAL;
        call.appName = app;
        call.summary = summary;
        call.body = body;
        char** actions = nullptr;
        if (sd_bus_message_read_strv(message, &actions) < 0)
            return -EINVAL;
        for (char** a = actions; a && *a; ++a) {
            call.actions.push_back(*a);
            std::free(*a);
        }
        std::free(actions);
        // The notifier sends one hint, the urgency; anything else fails the call.
        const char* hint = nullptr;
        std::uint8_t urgency = 0;
        if (sd_bus_message_read(message, "a{sv}", 1, &hint, "y", &urgency) < 0 ||
            std::string_view(hint) != "urgency")
            return -EINVAL;
        call.urgency = urgency;
        std::string button;
        {
            std::lock_guard guard(lock_);
            if (std::find(call.actions.begin(), call.actions.end(), button_) != call.actions.end())
                button = button_;
        }
        const auto id = 40 + static_cast<std::uint32_t>(calls.add(std::move(call)));
        (void)sd_bus_reply_method_return(message, "u", id);
        if (!button.empty())
            (void)sd_bus_emit_signal(bus_, "/org/freedesktop/Notifications",
                                     "org.freedesktop.Notifications", "ActionInvoked", "us", id,
                                     button.c_str());
        return 1;
    }

    sd_bus* bus_ = nullptr;
    std::string button_;
    std::atomic<bool> stop_{false};
    std::mutex lock_;
    std::thread thread_;
};

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

    const UUID allowed = UUID::random(), denied = UUID::random();
    standIn.press("allow");
    notifier.notify(permission("s1", allowed));
    ASSERT_TRUE(testing::eventually([&] { return pressed.all().size() == 1; }));
    standIn.press("deny");
    notifier.notify(permission("s2", denied));
    ASSERT_TRUE(testing::eventually([&] { return pressed.all().size() == 2; }));
    EXPECT_EQ(pressed.all(),
              (std::vector<DesktopNotifier::Action>{{{AgentKind::claude, "s1"}, allowed, "allow"},
                                                    {{AgentKind::claude, "s2"}, denied, "deny"}}));

    // A reply notification offers no buttons, so nothing can be pressed on it.
    const Notification reply{
        "Codex is waiting for your reply", "", {AgentKind::codex, "s3"}, UUID::random()};
    notifier.notify(reply);
    ASSERT_TRUE(testing::eventually([&] { return standIn.calls.all().size() == 3; }));
    const NotifyCall asked{"Tidewick",
                           "Claude Code needs permission",
                           "Run rm -rf build\n⚠ deletes files for good &lt;now&gt;",
                           {"allow", "Allow", "deny", "Deny"},
                           2};
    EXPECT_EQ(standIn.calls.all(),
              (std::vector<NotifyCall>{
                  asked, asked, {"Tidewick", "Codex is waiting for your reply", "", {}, 1}}));

    // Always allow, and a question's options, are buttons too.
    Notification always = permission("s4", UUID::random());
    always.offersAlways = true;
    Notification question{"Claude Code is asking you a question", "Which colour?", {AgentKind::claude, "s5"},
                          UUID::random(), false, true, false, {"Red", "Blue"}};
    standIn.press("always");
    notifier.notify(always);
    ASSERT_TRUE(testing::eventually([&] { return pressed.all().size() == 3; }));
    standIn.press("choice:1");
    notifier.notify(question);
    ASSERT_TRUE(testing::eventually([&] { return pressed.all().size() == 4; }));
    EXPECT_EQ(pressed.all()[2], (DesktopNotifier::Action{always.session, *always.requestId, "always"}));
    EXPECT_EQ(pressed.all()[3], (DesktopNotifier::Action{question.session, *question.requestId, "choice:1"}));
    const auto calls = standIn.calls.all();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[3].actions, (std::vector<std::string>{"allow", "Allow", "always", "Always allow", "deny", "Deny"}));
    EXPECT_EQ(calls[4].actions, (std::vector<std::string>{"choice:0", "Red", "choice:1", "Blue"}));

    // Withdrawing closes the notification that shows the request.
    notifier.withdraw(*reply.requestId);
    ASSERT_TRUE(testing::eventually([&] { return !standIn.closed.all().empty(); }));
    EXPECT_EQ(standIn.closed.all(), (std::vector<std::uint32_t>{43}));
    EXPECT_EQ(pressed.all().size(), 4u);
    EXPECT_TRUE(strangers.all().empty());
}

TEST_F(DesktopNotifierTest, ABusWithoutAServiceIsSurvivedAndNoBusIsUnavailable) {
    TemporaryDirectory empty;
    EXPECT_FALSE(DesktopNotifier("unix:path=" + File::join(empty.path(), "no-bus"), recorder(pressed))
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
    ASSERT_TRUE(testing::eventually([&] {
        const auto calls = standIn.calls.all();
        return !calls.empty() && calls.back().summary == reply.summary;
    }));
    EXPECT_TRUE(pressed.all().empty());
}

} // namespace
} // namespace tidewick
