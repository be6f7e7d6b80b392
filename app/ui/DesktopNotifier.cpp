#include "DesktopNotifier.h"

#include "foundation/Text.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace tidewick {

namespace {

constexpr const char* service = "org.freedesktop.Notifications";
constexpr const char* objectPath = "/org/freedesktop/Notifications";
constexpr const char* interface = "org.freedesktop.Notifications";

/// Servers that understand markup in bodies would read "<" as a tag.
std::string escapedMarkup(std::string_view text) {
    std::string result = Text::replacingAll(text, "&", "&amp;");
    result = Text::replacingAll(result, "<", "&lt;");
    return Text::replacingAll(result, ">", "&gt;");
}

/// Milliseconds until sd-bus wants to run again (its timeout is absolute, monotonic).
int pollTimeout(sd_bus* bus) {
    std::uint64_t until = 0;
    if (sd_bus_get_timeout(bus, &until) < 0 || until == UINT64_MAX)
        return -1;
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const std::uint64_t nowMicroseconds = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
                                          static_cast<std::uint64_t>(now.tv_nsec) / 1000;
    if (until <= nowMicroseconds)
        return 0;
    return static_cast<int>(
        std::min<std::uint64_t>((until - nowMicroseconds + 999) / 1000, 60'000));
}


// The buttons of `notification`: pairs of action key and label.
std::vector<std::pair<std::string, std::string>> actionsOf(const Notification& notification) {
    std::vector<std::pair<std::string, std::string>> actions;
    if (notification.offersAnswers) {
        actions.emplace_back("allow", "Allow");
        if (notification.offersAlways)
            actions.emplace_back("always", "Always allow");
        actions.emplace_back("deny", "Deny");
    }
    for (std::size_t i = 0; i < notification.choices.size(); ++i)
        actions.emplace_back(DesktopNotifier::choicePrefix + std::to_string(i),
                             notification.choices[i]);
    return actions;
}

int appendActions(sd_bus_message* message,
                  const std::vector<std::pair<std::string, std::string>>& actions) {
    int result = sd_bus_message_open_container(message, 'a', "s");
    for (const auto& [key, label] : actions) {
        if (result >= 0)
            result = sd_bus_message_append(message, "s", key.c_str());
        if (result >= 0)
            result = sd_bus_message_append(message, "s", label.c_str());
    }
    if (result >= 0)
        result = sd_bus_message_close_container(message);
    return result;
}
} // namespace

DesktopNotifier::DesktopNotifier(std::optional<std::string> address, ActionHandler handler)
    : handler_(std::move(handler)) {
    if (!address) {
        if (const char* environment = std::getenv("DBUS_SESSION_BUS_ADDRESS");
            environment && *environment)
            address = environment;
        else
            return;
    }
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0)
        return;
    if (sd_bus_set_address(bus, address->c_str()) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
        sd_bus_start(bus) < 0) {
        sd_bus_unref(bus);
        return;
    }
    // Asynchronous, so that a bus that never answers cannot hold up start-up. The daemon
    // handles our messages in order, so the matches are in place before any Notify.
    if (sd_bus_match_signal_async(bus, nullptr, nullptr, objectPath, interface, "ActionInvoked",
                                  &DesktopNotifier::onActionInvoked, nullptr, this) < 0 ||
        sd_bus_match_signal_async(bus, nullptr, nullptr, objectPath, interface,
                                  "NotificationClosed", &DesktopNotifier::onClosed, nullptr,
                                  this) < 0) {
        sd_bus_flush_close_unref(bus);
        return;
    }
    wakeFd_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wakeFd_) {
        sd_bus_flush_close_unref(bus);
        return;
    }
    bus_ = bus;
    thread_ = std::thread([this] { run(); });
}

DesktopNotifier::~DesktopNotifier() {
    if (!bus_)
        return;
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    wake();
    thread_.join();
    sd_bus_flush_close_unref(bus_);
}

void DesktopNotifier::notify(Notification notification) {
    if (!bus_)
        return;
    {
        std::lock_guard guard(lock_);
        queue_.push_back({std::move(notification), std::nullopt});
    }
    wake();
}

void DesktopNotifier::withdraw(const UUID& requestId) {
    if (!bus_)
        return;
    {
        std::lock_guard guard(lock_);
        queue_.push_back({std::nullopt, requestId});
    }
    wake();
}

void DesktopNotifier::wake() {
    const std::uint64_t one = 1;
    // A full counter still wakes the thread, so a failed write loses nothing.
    (void)!::write(wakeFd_.get(), &one, sizeof one);
}

void DesktopNotifier::run() {
    bool connected = true;
    for (;;) {
        std::vector<Command> commands;
        {
            std::lock_guard guard(lock_);
            if (stopping_)
                return;
            commands.swap(queue_);
        }
        for (const Command& command : commands) {
            if (!connected)
                break;
            if (command.notification) {
                send(*command.notification);
            } else if (command.withdraw) {
                bool found = false;
                for (auto it = shown_.begin(); it != shown_.end(); ++it)
                    if (it->second.requestId == command.withdraw) {
                        close(it->first);
                        shown_.erase(it);
                        found = true;
                        break;
                    }
                if (!found)
                    for (const auto& [cookie, pending] : sent_)
                        if (pending.requestId == command.withdraw)
                            withdrawnEarly_.push_back(*command.withdraw);
            }
        }
        while (connected) {
            const int processed = sd_bus_process(bus_, nullptr);
            if (processed < 0)
                connected = false; // the bus went away: notifications end, the UI goes on
            if (processed <= 0)
                break;
        }
        pollfd fds[2] = {{wakeFd_.get(), POLLIN, 0}, {-1, 0, 0}};
        int timeout = -1;
        if (connected) {
            fds[1].fd = sd_bus_get_fd(bus_);
            fds[1].events = static_cast<short>(sd_bus_get_events(bus_));
            timeout = pollTimeout(bus_);
        }
        if (::poll(fds, connected ? 2 : 1, timeout) < 0 && errno != EINTR)
            return;
        if (fds[0].revents & POLLIN) {
            std::uint64_t count = 0;
            (void)!::read(wakeFd_.get(), &count, sizeof count);
        }
    }
}

void DesktopNotifier::send(const Notification& notification) {
    sd_bus_message* message = nullptr;
    if (sd_bus_message_new_method_call(bus_, &message, service, objectPath, interface, "Notify") <
        0)
        return;
    const std::string body = escapedMarkup(notification.body);
    int result = sd_bus_message_append(message, "susss", "Tidewick", 0u, "",
                                       notification.summary.c_str(), body.c_str());
    if (result >= 0)
        result = appendActions(message, actionsOf(notification));
    if (result >= 0) {
        // Urgency 2 ("critical") keeps a permission request up until it is dealt with.
        const std::uint8_t urgency = notification.urgent ? 2 : 1;
        result = sd_bus_message_append(message, "a{sv}", 1, "urgency", "y", urgency);
    }
    if (result >= 0)
        result = sd_bus_message_append(message, "i", -1);
    if (result >= 0)
        result =
            sd_bus_call_async(bus_, nullptr, message, &DesktopNotifier::onNotifyReply, this, 0);
    std::uint64_t cookie = 0;
    if (result >= 0 && sd_bus_message_get_cookie(message, &cookie) >= 0)
        sent_[cookie] = Shown{notification.session, notification.requestId};
    sd_bus_message_unref(message);
}

void DesktopNotifier::close(std::uint32_t id) {
    // Nobody waits for the answer: a notification already gone is just as good.
    (void)sd_bus_call_method_async(bus_, nullptr, service, objectPath, interface,
                                   "CloseNotification", nullptr, nullptr, "u", id);
}

int DesktopNotifier::onNotifyReply(sd_bus_message* reply, void* self, sd_bus_error*) {
    auto* notifier = static_cast<DesktopNotifier*>(self);
    std::uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(reply, &cookie) < 0)
        return 0;
    auto found = notifier->sent_.find(cookie);
    if (found == notifier->sent_.end())
        return 0;
    Shown shown = found->second;
    notifier->sent_.erase(found);
    std::uint32_t id = 0;
    if (sd_bus_message_is_method_error(reply, nullptr) || sd_bus_message_read(reply, "u", &id) < 0)
        return 0;
    auto& early = notifier->withdrawnEarly_;
    if (shown.requestId) {
        for (auto it = early.begin(); it != early.end(); ++it)
            if (*it == *shown.requestId) {
                early.erase(it);
                notifier->close(id);
                return 0;
            }
    }
    notifier->shown_[id] = std::move(shown);
    return 0;
}

int DesktopNotifier::onActionInvoked(sd_bus_message* signal, void* self, sd_bus_error*) {
    auto* notifier = static_cast<DesktopNotifier*>(self);
    std::uint32_t id = 0;
    const char* key = nullptr;
    if (sd_bus_message_read(signal, "us", &id, &key) < 0 || !key)
        return 0;
    auto found = notifier->shown_.find(id);
    if (found == notifier->shown_.end() || !found->second.requestId)
        return 0;
    const std::string action(key);
    if (action != "allow" && action != "deny" && action != "always" &&
        !action.starts_with(DesktopNotifier::choicePrefix))
        return 0;
    Action pressed{found->second.session, *found->second.requestId, action};
    notifier->shown_.erase(found);
    if (notifier->handler_)
        notifier->handler_(pressed);
    return 0;
}

int DesktopNotifier::onClosed(sd_bus_message* signal, void* self, sd_bus_error*) {
    auto* notifier = static_cast<DesktopNotifier*>(self);
    std::uint32_t id = 0, reason = 0;
    if (sd_bus_message_read(signal, "uu", &id, &reason) >= 0)
        notifier->shown_.erase(id);
    return 0;
}

} // namespace tidewick
