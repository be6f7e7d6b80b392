#include "foundation/SerialQueue.h"

#include <atomic>
#include <future>
#include <numeric>
#include <string>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace tidewick {
namespace {

using namespace std::chrono_literals;

TEST(SerialQueueTest, RunsTasksOneAtATimeInSubmissionOrder) {
    std::vector<int> order;
    std::atomic<int> running{0};
    bool overlapped = false;
    {
        SerialQueue queue("tidewick.test");
        std::vector<std::thread> submitters;
        for (int t = 0; t < 4; ++t) {
            submitters.emplace_back([&, t] {
                for (int i = 0; i < 50; ++i)
                    queue.async([&, t, i] {
                        overlapped |= running.fetch_add(1) != 0;
                        if (t == 0)
                            order.push_back(i);
                        running.fetch_sub(1);
                    });
            });
        }
        for (auto& s : submitters)
            s.join();
        int seen = 0;
        queue.sync([&] { seen = static_cast<int>(order.size()); });
        EXPECT_EQ(seen, 50);
    }
    EXPECT_FALSE(overlapped);
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

TEST(SerialQueueTest, DelayedTasksComeAfterDueOnesAndSyncFromInsideDoesNotDeadlock) {
    bool dropped = true;
    std::vector<std::string> events;
    std::promise<void> lateRan;
    {
        SerialQueue queue("tidewick.test");
        queue.asyncAfter(1h, [&] { dropped = false; });
        queue.asyncAfter(50ms, [&] {
            events.push_back("late");
            lateRan.set_value();
        });
        queue.async([&] {
            events.push_back("now");
            queue.sync([&] { events.push_back("nested"); });
        });
        // Due times order the tasks, however long the queue's thread is kept from running.
        ASSERT_EQ(lateRan.get_future().wait_for(30s), std::future_status::ready);
        queue.sync([&] { EXPECT_EQ(events, (std::vector<std::string>{"now", "nested", "late"})); });
        EXPECT_FALSE(queue.isCurrent());
    }
    EXPECT_TRUE(dropped) << "a task not yet due when the queue goes is dropped";
}

} // namespace
} // namespace tidewick
