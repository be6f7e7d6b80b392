// The running application's desktop notifications: one per alert, however
// many interfaces are open, taken down once its request is answered anywhere,
// with Allow, Always allow and Deny buttons (a question's options) that answer
// the very request shown.
#pragma once

#include "DesktopNotifier.h"
#include "service/ApplicationView.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tidewick {

class NotificationCenter {
public:
    /// Told a sentence when a button answered a request ("Allowed from the notification: …").
    using Reporter = std::function<void(const std::string& sentence)>;

    /// Notifies the alerts of `application` (which must outlive this) on the session bus
    /// at `busAddress` (nothing: DBUS_SESSION_BUS_ADDRESS), as the settings allow. Without
    /// a bus nothing is shown and nothing else changes.
    NotificationCenter(ApplicationView& application, std::optional<std::string> busAddress,
                       Reporter report = {});
    /// Stops watching the application and leaves the bus.
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Whether a session bus was reached.
    [[nodiscard]] bool isAvailable() const { return notifier_.isAvailable(); }

private:
    void alerted(const Alert& alert);
    void changed(const StoreChange& change);
    void pressed(const DesktopNotifier::Action& action);
    /// Answers the one question of `request` with the option button `key` stands for.
    void answerWithChoice(const SessionKey& session, const PendingRequest& request,
                          const std::string& key);
    /// Takes down the notification of request `id`, if one was shown.
    void withdraw(const UUID& id);
    [[nodiscard]] bool isHeld(const UUID& id) const;

    ApplicationView& application_;
    Reporter report_;
    std::mutex lock_;
    /// The held requests notified, with their sessions.
    std::map<UUID, SessionKey> notified_;
    // Last but one: its thread, which presses buttons, ends before the members above go.
    DesktopNotifier notifier_;
    ApplicationView::WatchId watch_ = 0;
};

} // namespace tidewick
