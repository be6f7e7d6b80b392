#include "sessions/Scheduler.h"

#include <algorithm>

namespace tidewick {

ThreadScheduler::ThreadScheduler() : thread_([this] { run(); }) {}

ThreadScheduler::~ThreadScheduler() {
    {
        std::lock_guard guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void ThreadScheduler::schedule(double delaySeconds, Task task) {
    const auto delay = std::chrono::duration_cast<Steady::duration>(
        std::chrono::duration<double>(std::clamp(delaySeconds, 0.0, 365.0 * 24 * 3600)));
    {
        std::lock_guard guard(mutex_);
        tasks_.emplace(std::make_pair(Steady::now() + delay, nextOrder_++), std::move(task));
    }
    wake_.notify_all();
}

void ThreadScheduler::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (tasks_.empty()) {
            wake_.wait(lock);
            continue;
        }
        auto first = tasks_.begin();
        if (Steady::now() < first->first.first) {
            wake_.wait_until(lock, first->first.first);
            continue;
        }
        Task task = std::move(first->second);
        tasks_.erase(first);
        // Tasks may schedule further tasks: run them without the lock.
        lock.unlock();
        task();
        lock.lock();
    }
}

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
