#include "foundation/SerialQueue.h"

#include <atomic>
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
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
}

TEST(SerialQueueTest, DelayedTasksWaitTheirTurnAndSyncFromInsideDoesNotDeadlock) {
    SerialQueue queue("tidewick.test");
    std::vector<std::string> events;
    queue.asyncAfter(150ms, [&] { events.push_back("late"); });
    queue.async([&] {
        events.push_back("now");
        queue.sync([&] { events.push_back("nested"); });
    });
    queue.sync([] {});
    queue.sync([&] { EXPECT_EQ(events, (std::vector<std::string>{"now", "nested"})); });
    std::this_thread::sleep_for(300ms);
    queue.sync([&] { EXPECT_EQ(events.back(), "late"); });
    EXPECT_FALSE(queue.isCurrent());
}

} // namespace
} // namespace tidewick
