// A scheduler whose time moves only when a test says so.
#pragma once

#include "foundation/Scheduler.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>

namespace tidewick {

/// Tasks run on the thread that calls advance(), in due order; same-time tasks in the
/// order they were scheduled.
class ManualScheduler final : public Scheduler {
public:
    void schedule(double delaySeconds, Task task) override {
        std::lock_guard guard(mutex_);
        // multimap keeps insertion order among equal keys: same-time tasks run in order.
        tasks_.emplace(now_ + std::max(delaySeconds, 0.0), std::move(task));
    }

    /// Moves time forward by `seconds`, running every task that falls due, in due order.
    void advance(double seconds) {
        double target;
        {
            std::lock_guard guard(mutex_);
            target = now_ + seconds;
        }
        for (;;) {
            Task task;
            {
                std::lock_guard guard(mutex_);
                auto first = tasks_.begin();
                if (first == tasks_.end() || first->first > target) {
                    now_ = target;
                    return;
                }
                now_ = std::max(now_, first->first);
                task = std::move(first->second);
                tasks_.erase(first);
            }
            task();
        }
    }

    /// Seconds since this scheduler was made.
    [[nodiscard]] double now() const {
        std::lock_guard guard(mutex_);
        return now_;
    }

    /// How many tasks are waiting to fall due.
    [[nodiscard]] std::size_t waitingCount() const {
        std::lock_guard guard(mutex_);
        return tasks_.size();
    }

private:
    mutable std::mutex mutex_;
    double now_ = 0;
    std::multimap<double, Task> tasks_;
};

} // namespace tidewick
