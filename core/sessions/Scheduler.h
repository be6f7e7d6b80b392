// Running a task after a delay, behind an interface so that tests can move
// time by hand instead of sleeping.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

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

/// A scheduler with one background thread. Destroying it stops the thread after the task
/// that is running, if any; tasks not yet due are dropped.
class ThreadScheduler final : public Scheduler {
public:
    ThreadScheduler();
    ~ThreadScheduler() override;
    ThreadScheduler(const ThreadScheduler&) = delete;
    ThreadScheduler& operator=(const ThreadScheduler&) = delete;

    void schedule(double delaySeconds, Task task) override;

private:
    using Steady = std::chrono::steady_clock;
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    /// Due time and order of scheduling -> task.
    std::map<std::pair<Steady::time_point, std::uint64_t>, Task> tasks_;
    std::uint64_t nextOrder_ = 0;
    bool stopping_ = false;
    std::thread thread_;
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
