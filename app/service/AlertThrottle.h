// Keeps a burst of events in one session from raising a burst of alerts.
#pragma once

#include "foundation/Clock.h"
#include "sessions/Session.h"

#include <mutex>
#include <unordered_map>

namespace tidewick {

/// Thread-safe. Admits an alert for a session when none of that session was admitted
/// within the window before it; sessions are independent of each other.
class AlertThrottle {
public:
    /// A throttle with a window of `windowSeconds` (zero or less admits everything).
    explicit AlertThrottle(double windowSeconds) : window_(windowSeconds) {}

    /// Whether an alert for `session` at `time` may be raised; when it may, `time`
    /// starts that session's next window. A time before the last admitted one (the
    /// clock was set back) starts a new window rather than silencing the session.
    [[nodiscard]] bool admit(const SessionKey& session, Date time);

private:
    /// Windows long past are dropped once the table grows beyond this, so a long-running
    /// service does not keep one entry per session it ever saw.
    static constexpr std::size_t tidyThreshold = 256;

    double window_;
    std::mutex lock_;
    std::unordered_map<SessionKey, Date> lastAdmitted_;
};

} // namespace tidewick
