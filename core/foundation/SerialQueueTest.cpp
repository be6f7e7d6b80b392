#include "foundation/SerialQueue.h"

#include <atomic>
#include <gtest/gtest.h>
#include <numeric>
#include <thread>
#include <vector>

namespace tidewick {
namespace {

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

} // namespace
} // namespace tidewick
