// The notifier against a private session bus: a dbus-daemon started here and a
// stand-in notification service that records each call and presses a button.
#include "DesktopNotifier.h"

#include "foundation/File.h"
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
        File::writeAtomically(config,
                              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus "
                              "Configuration 1.0//EN\" "
                              "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                              "<busconfig><type>session</type><listen>unix:path=" +
                                  socket +
                                  "</listen><auth>EXTERNAL</auth>"
                                  "<policy context=\"default\"><allow send_destination=\"*\"/>"
                                  "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy>"
                                  "</busconfig>\n",
                              0600);
        // Its complaints as root (file limits) land in a file nobody reads.
        daemon_.emplace(std::vector<std::string>{daemonPath, "--config-file=" + config, "--nofork",
                                                 "--nopidfile"},
                        std::vector<std::string>{}, "", File::join(directory_.path(), "daemon"));
        for (int i = 0; i < 200 && !File::exists(socket); ++i)
            std::this_thread::sleep_for(25ms);
        address_ = "unix:path=" + socket;
    }
    const std::string& address() const { return address_; }

private:
    TemporaryDirectory directory_;
    std::optional<testing::BackgroundProgram> daemon_;
    std::string address_;
};

/// What the stand-in saw of one Notify call.
struct NotifyCall {
    std::string appName, summary, body;
    std::vector<std::string> actions;
    int urgency = -1;
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
    std::vector<NotifyCall> calls() {
        std::lock_guard guard(lock_);
        return calls_;
    }
    std::vector<std::uint32_t> closed() {
        std::lock_guard guard(lock_);
        return closed_;
    }

private:
    static int filter(sd_bus_message* message, void* self, sd_bus_error*) {
        auto* service = static_cast<StandInNotificationService*>(self);
        if (sd_bus_message_is_method_call(message, "org.freedesktop.Notifications", "Notify"))
            return service->notify(message);
        if (sd_bus_message_is_method_call(message, "org.freedesktop.Notifications",
                                          "CloseNotification")) {
            std::uint32_t id = 0;
            (void)sd_bus_message_read(message, "u", &id);
            {
                std::lock_guard guard(service->lock_);
                service->closed_.push_back(id);
            }
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
        // Hints: look for "urgency" only.
        if (sd_bus_message_enter_container(message, 'a', "{sv}") > 0) {
            while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
                const char* key = nullptr;
                (void)sd_bus_message_read(message, "s", &key);
                if (std::string(key) == "urgency") {
                    std::uint8_t urgency = 0;
                    (void)sd_bus_message_read(message, "v", "y", &urgency);
                    call.urgency = urgency;
                } else {
                    (void)sd_bus_message_skip(message, "v");
                }
                (void)sd_bus_message_exit_container(message);
            }
            (void)sd_bus_message_exit_container(message);
        }
        std::uint32_t id = 0;
        std::string button;
        {
            std::lock_guard guard(lock_);
            calls_.push_back(call);
            id = 40 + static_cast<std::uint32_t>(calls_.size());
            if (std::find(call.actions.begin(), call.actions.end(), button_) != call.actions.end())
                button = button_;
        }
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
    std::vector<NotifyCall> calls_;
    std::vector<std::uint32_t> closed_;
    std::thread thread_;
};

template <typename Condition> bool eventually(Condition condition) {
    // Generous: the daemon and two connections on a busy machine.
    for (int i = 0; i < 400; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(25ms);
    }
    return condition();
}

/// Collects the actions a notifier reports, from its own thread.
class ActionRecorder {
public:
    DesktopNotifier::ActionHandler handler() {
        return [this](const DesktopNotifier::Action& action) {
            std::lock_guard guard(lock_);
            actions_.push_back(action);
        };
    }
    std::vector<DesktopNotifier::Action> actions() {
        std::lock_guard guard(lock_);
        return actions_;
    }

private:
    std::mutex lock_;
    std::vector<DesktopNotifier::Action> actions_;
};

class DesktopNotifierTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!File::isExecutableFile(daemonPath))
            GTEST_SKIP() << "dbus-daemon is not installed (Debian package dbus)";
    }

    static Notification permission(std::string session, UUID id) {
        Notification notification;
        notification.summary = "Claude Code needs permission";
        notification.body = "Run rm -rf build\n⚠ deletes files for good <now>";
        notification.session = {AgentKind::claude, std::move(session)};
        notification.requestId = id;
        notification.offersAnswers = true;
        notification.urgent = true;
        return notification;
    }

    ActionRecorder pressed;
};

TEST_F(DesktopNotifierTest, NotifiesWithAllowAndDenyAndReportsThePressedButton) {
    PrivateBus bus;
    StandInNotificationService standIn(bus.address());
    DesktopNotifier notifier(bus.address(), pressed.handler());
    ASSERT_TRUE(notifier.isAvailable());
    // A second notifier on the same bus sees the signals for notifications it never sent
    // and must not act on them.
    ActionRecorder strangers;
    DesktopNotifier other(bus.address(), strangers.handler());

    const UUID allowed = UUID::random(), denied = UUID::random();
    standIn.press("allow");
    notifier.notify(permission("s1", allowed));
    ASSERT_TRUE(eventually([&] { return pressed.actions().size() == 1; }));
    standIn.press("deny");
    notifier.notify(permission("s2", denied));
    ASSERT_TRUE(eventually([&] { return pressed.actions().size() == 2; }));
    EXPECT_EQ(pressed.actions(),
              (std::vector<DesktopNotifier::Action>{{{AgentKind::claude, "s1"}, allowed, "allow"},
                                                    {{AgentKind::claude, "s2"}, denied, "deny"}}));

    const std::vector<NotifyCall> calls = standIn.calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].appName, "Tidewick");
    EXPECT_EQ(calls[0].summary, "Claude Code needs permission");
    EXPECT_EQ(calls[0].body, "Run rm -rf build\n⚠ deletes files for good &lt;now&gt;");
    EXPECT_EQ(calls[0].actions, (std::vector<std::string>{"allow", "Allow", "deny", "Deny"}));
    EXPECT_EQ(calls[0].urgency, 2);

    // A reply notification offers no buttons, so nothing can be pressed on it.
    Notification reply;
    reply.summary = "Codex is waiting for your reply";
    reply.session = {AgentKind::codex, "s3"};
    reply.requestId = UUID::random();
    notifier.notify(reply);
    ASSERT_TRUE(eventually([&] { return standIn.calls().size() == 3; }));
    EXPECT_TRUE(standIn.calls()[2].actions.empty());
    EXPECT_EQ(standIn.calls()[2].urgency, 1);

    // Withdrawing closes the notification that shows the request.
    notifier.withdraw(*reply.requestId);
    ASSERT_TRUE(eventually([&] { return !standIn.closed().empty(); }));
    EXPECT_EQ(standIn.closed(), (std::vector<std::uint32_t>{43}));
    EXPECT_EQ(pressed.actions().size(), 2u);
    EXPECT_TRUE(strangers.actions().empty());
}

TEST_F(DesktopNotifierTest, WithoutABusItIsQuietlyUnavailable) {
    TemporaryDirectory empty;
    DesktopNotifier nowhere("unix:path=" + File::join(empty.path(), "no-bus"), pressed.handler());
    EXPECT_FALSE(nowhere.isAvailable());
    nowhere.notify(permission("s", UUID::random()));
    nowhere.withdraw(UUID::random());

    // A bus without a notification service: the call fails and is ignored.
    PrivateBus bus;
    DesktopNotifier lonely(bus.address(), pressed.handler());
    ASSERT_TRUE(lonely.isAvailable());
    lonely.notify(permission("s", UUID::random()));
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(pressed.actions().empty());
}

} // namespace
} // namespace tidewick
