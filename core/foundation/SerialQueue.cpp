#include "foundation/SerialQueue.h"

#include <future>
#include <pthread.h>

namespace tidewick {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
    thread_ = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void SerialQueue::async(Task task) {
    asyncAfter(std::chrono::steady_clock::duration::zero(), std::move(task));
}

void SerialQueue::asyncAfter(std::chrono::steady_clock::duration delay, Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.emplace(std::chrono::steady_clock::now() + delay, std::move(task));
    }
    wake_.notify_all();
}

void SerialQueue::sync(const Task& task) {
    if (isCurrent()) {
        task();
        return;
    }
    std::promise<void> done;
    async([&] {
        try {
            task();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

void SerialQueue::run() {
    // Linux limits thread names to 15 bytes.
    pthread_setname_np(pthread_self(), label_.substr(0, 15).c_str());
    std::unique_lock lock(mutex_);
    for (;;) {
        auto now = std::chrono::steady_clock::now();
        if (!tasks_.empty() && tasks_.begin()->first <= now) {
            Task task = std::move(tasks_.begin()->second);
            tasks_.erase(tasks_.begin());
            lock.unlock();
            task();
            lock.lock();
            continue;
        }
        if (stopping_)
            return;
        if (tasks_.empty())
            wake_.wait(lock);
        else
            wake_.wait_until(lock, tasks_.begin()->first);
    }
}

} // namespace tidewick
