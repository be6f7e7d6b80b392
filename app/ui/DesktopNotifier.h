// Desktop notifications through the freedesktop notification service on the
// session bus (sd-bus), with "Allow", "Always allow" and "Deny" buttons on
// permission requests and a question's options as buttons.
// Without a bus it quietly does nothing: the terminal UI works on its own.
#pragma once

#include "Alerts.h"
#include "foundation/FileDescriptor.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <systemd/sd-bus.h>
#include <thread>
#include <vector>

namespace tidewick {

class DesktopNotifier {
public:
    /// A button pressed on one of our notifications.
    struct Action {
        SessionKey session;
        UUID requestId;
        /// "allow", "always", "deny", or choicePrefix and the index of a question's option.
        std::string key;
        friend bool operator==(const Action&, const Action&) = default;
    };
    using ActionHandler = std::function<void(const Action&)>;
    /// The start of the action key of a question's option button ("choice:0").
    static constexpr const char* choicePrefix = "choice:";

    /// Connects to the session bus at `address` (nothing: the DBUS_SESSION_BUS_ADDRESS of
    /// the environment) and listens for button presses on its own thread, where `handler`
    /// is called. No address, or no bus answering there, leaves the notifier unavailable.
    DesktopNotifier(std::optional<std::string> address, ActionHandler handler);
    /// Stops the thread and leaves the bus.
    ~DesktopNotifier();
    DesktopNotifier(const DesktopNotifier&) = delete;
    DesktopNotifier& operator=(const DesktopNotifier&) = delete;

    /// Whether a session bus was reached.
    [[nodiscard]] bool isAvailable() const { return bus_ != nullptr; }
    /// Shows `notification` (asynchronously; never blocks). Does nothing when unavailable;
    /// a notification service that is missing or fails is ignored.
    void notify(Notification notification);
    /// Closes the notification about `requestId`, once it is answered elsewhere or gone.
    void withdraw(const UUID& requestId);

private:
    struct Shown {
        SessionKey session;
        std::optional<UUID> requestId;
    };
    struct Command {
        std::optional<Notification> notification;
        std::optional<UUID> withdraw;
    };

    void run();
    void send(const Notification& notification);
    void close(std::uint32_t id);
    void wake();
    static int onNotifyReply(sd_bus_message* reply, void* self, sd_bus_error* error);
    static int onActionInvoked(sd_bus_message* signal, void* self, sd_bus_error* error);
    static int onClosed(sd_bus_message* signal, void* self, sd_bus_error* error);

    ActionHandler handler_;
    sd_bus* bus_ = nullptr;
    FileDescriptor wakeFd_;

    std::mutex lock_;
    std::vector<Command> queue_;
    bool stopping_ = false;

    // Touched only on the notifier's thread.
    /// Notify calls sent, by their cookie, until the server answers with an id.
    std::map<std::uint64_t, Shown> sent_;
    /// Notifications on screen, by the server's id.
    std::map<std::uint32_t, Shown> shown_;
    /// Requests withdrawn before the server said which notification shows them.
    std::vector<UUID> withdrawnEarly_;

    std::thread thread_;
};

} // namespace tidewick
