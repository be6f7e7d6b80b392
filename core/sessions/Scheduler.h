// Running a task after a delay, behind an interface so that tests can move
// time by hand instead of sleeping.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>

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

/// A scheduler whose time moves only when advance() is called; tasks run on the thread
/// that calls advance(). For tests.
class ManualScheduler final : public Scheduler {
public:
    void schedule(double delaySeconds, Task task) override;
    /// Moves time forward by `seconds`, running every task that falls due, in due order.
    void advance(double seconds);
    /// Seconds since this scheduler was made.
    [[nodiscard]] double now() const;
    /// How many tasks are waiting to fall due.
    [[nodiscard]] std::size_t waitingCount() const;

private:
    mutable std::mutex mutex_;
    double now_ = 0;
    std::multimap<double, Task> tasks_;
};

} // namespace tidewick
