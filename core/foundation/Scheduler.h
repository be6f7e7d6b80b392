// Running a task after a delay, behind an interface so that tests can move
// time by hand (testing/ManualScheduler.h) instead of sleeping.
#pragma once

#include <functional>

namespace tidewick {

class Scheduler {
public:
    using Task = std::function<void()>;
    virtual ~Scheduler() = default;
    /// Runs `task` once, about `delaySeconds` from now, on the scheduler's own thread.
    /// Tasks never run concurrently with each other; tasks due at the same time run in
    /// the order they were scheduled.
    virtual void schedule(double delaySeconds, Task task) = 0;
};

} // namespace tidewick
