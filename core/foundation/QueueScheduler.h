// The scheduler of the running application: delayed tasks run on a serial
// queue, in order with everything else submitted to it.
#pragma once

#include "foundation/Scheduler.h"
#include "foundation/SerialQueue.h"

namespace tidewick {

class QueueScheduler final : public Scheduler {
public:
    /// Schedules onto `queue`, which must outlive the scheduler.
    explicit QueueScheduler(SerialQueue& queue) : queue_(queue) {}

    /// Runs `task` on the queue once `delaySeconds` have passed. A negative delay
    /// counts as none and one beyond a year as a year, so the deadline never overflows.
    void schedule(double delaySeconds, Task task) override;

private:
    SerialQueue& queue_;
};

} // namespace tidewick
