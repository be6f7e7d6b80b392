// A serial work queue: one named thread runs submitted tasks one at a time,
// in order, now or after a delay.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace tidewick {

class SerialQueue {
public:
    using Task = std::function<void()>;

    /// Starts the queue's thread; `label` names it (cut to what the system allows).
    explicit SerialQueue(std::string label);
    /// Runs every task that is due now, drops delayed ones not yet due, and joins the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Runs `task` on the queue after the tasks already submitted.
    void async(Task task);
    /// Runs `task` on the queue no earlier than `delay` from now.
    void asyncAfter(std::chrono::steady_clock::duration delay, Task task);
    /// Runs `task` on the queue and waits for it to finish. Called from the
    /// queue's own thread it runs `task` at once instead of deadlocking.
    void sync(const Task& task);
    /// Whether the calling thread is the queue's own.
    [[nodiscard]] bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
    [[nodiscard]] const std::string& label() const { return label_; }

private:
    void run();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    // Ordered by due time, then by submission, so equal times keep their order.
    std::multimap<std::chrono::steady_clock::time_point, Task> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace tidewick
