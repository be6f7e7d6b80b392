#include "sessions/Scheduler.h"

#include <algorithm>

namespace tidewick {

void ManualScheduler::schedule(double delaySeconds, Task task) {
    std::lock_guard guard(mutex_);
    // multimap keeps insertion order among equal keys: same-time tasks run in order.
    tasks_.emplace(now_ + std::max(delaySeconds, 0.0), std::move(task));
}

void ManualScheduler::advance(double seconds) {
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

double ManualScheduler::now() const {
    std::lock_guard guard(mutex_);
    return now_;
}

std::size_t ManualScheduler::waitingCount() const {
    std::lock_guard guard(mutex_);
    return tasks_.size();
}

} // namespace tidewick
