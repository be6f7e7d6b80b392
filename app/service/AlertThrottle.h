// Keeps a burst of events in one session from raising a burst of alerts,
// without losing any: what a window holds back is raised when it ends.
#pragma once

#include "foundation/Clock.h"
#include "service/Alert.h"
#include "sessions/Session.h"

#include <mutex>
#include <unordered_map>
#include <vector>

namespace tidewick {

/// Thread-safe. Admits an alert for a session when none of that session was admitted
/// within the window before it, and keeps the others until that window ends; sessions
/// are independent of each other.
class AlertThrottle {
public:
    /// What becomes of one alert.
    struct Admission {
        enum class Kind {
            /// Raise it now; its time starts the session's next window.
            now,
            /// Kept: call takeKept() for the session in `waitSeconds`, when the window ends.
            kept,
            /// Kept with others already waiting for the same window's end.
            joined,
        };
        Kind kind = Kind::now;
        double waitSeconds = 0;
    };

    /// A throttle with a window of `windowSeconds` (zero or less admits everything).
    explicit AlertThrottle(double windowSeconds) : window_(windowSeconds) {}

    /// Admits `alert` at `time` or keeps it for the end of its session's window. A time
    /// before the last admitted one (the clock was set back) starts a new window rather
    /// than silencing the session.
    [[nodiscard]] Admission admit(const Alert& alert, Date time);

    /// The alerts kept for `session`, oldest first; taking any starts a new window at `time`.
    [[nodiscard]] std::vector<Alert> takeKept(const SessionKey& session, Date time);

private:
    struct Window {
        Date admittedAt;
        std::vector<Alert> kept;
    };

    /// Windows long past are dropped once the table grows beyond this, so a long-running
    /// service does not keep one entry per session it ever saw.
    static constexpr std::size_t tidyThreshold = 256;

    double window_;
    std::mutex lock_;
    std::unordered_map<SessionKey, Window> windows_;
};

} // namespace tidewick
