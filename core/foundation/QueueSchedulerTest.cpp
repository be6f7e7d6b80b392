#include "foundation/QueueScheduler.h"

#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <string>
#include <vector>

namespace tidewick {
namespace {

TEST(QueueSchedulerTest, RunsOnTheQueueInDueOrderAndClampsWildDelays) {
    SerialQueue queue("tidewick.test");
    QueueScheduler scheduler(queue);
    std::vector<std::string> ran; // touched on the queue only
    std::promise<void> lastRan;
    bool onQueue = true;
    auto note = [&](std::string name) {
        return [&, name] {
            onQueue &= queue.isCurrent();
            ran.push_back(name);
        };
    };
    // Neither an enormous nor an infinite delay may wrap around into the past.
    scheduler.schedule(1e300, note("far"));
    scheduler.schedule(std::numeric_limits<double>::infinity(), note("never"));
    scheduler.schedule(0.05, [&] {
        note("late")();
        lastRan.set_value();
    });
    scheduler.schedule(0, note("first"));
    scheduler.schedule(-5, note("second"));
    ASSERT_EQ(lastRan.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    queue.sync([&] { EXPECT_EQ(ran, (std::vector<std::string>{"first", "second", "late"})); });
    EXPECT_TRUE(onQueue);
}

} // namespace
} // namespace tidewick
