// A private session bus for notification tests: a dbus-daemon started for the
// test and a stand-in notification service that records each call and presses
// a button. Test-only.
#pragma once

#include "foundation/File.h"
#include "service/ServiceTestSupport.h"
#include "testing/BackgroundProgram.h"
#include "testing/TemporaryDirectory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <thread>
#include <vector>

namespace tidewick::testing {

inline const char* const daemonPath = "/usr/bin/dbus-daemon";

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
        (void)eventually([&] { return daemon_->out().ends_with("\n"); });
        address_ = "unix:path=" + socket;
    }
    const std::string& address() const { return address_; }

private:
    TemporaryDirectory directory_;
    std::optional<BackgroundProgram> daemon_;
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

} // namespace tidewick::testing
