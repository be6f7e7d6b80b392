#include "foundation/QueueScheduler.h"

#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <string>
#include <vector>

namespace tidewick {
namespace {

// The queue's delayed tasks are checked here, through the scheduler that runs them.
TEST(QueueSchedulerTest, RunsOnTheQueueInDueOrderClampsWildDelaysAndDropsTasksNotYetDue) {
    std::vector<std::string> ran; // touched on the queue only, and once it is gone
    bool onQueue = true;
    {
        SerialQueue queue("tidewick.test");
        QueueScheduler scheduler(queue);
        std::promise<void> lastRan;
        auto note = [&](std::string name) {
            return [&, name] {
                onQueue &= queue.isCurrent();
                ran.push_back(name);
            };
        };
        // Neither an enormous nor an infinite delay may wrap around into the past; a task
        // not yet due when the queue goes is dropped.
        scheduler.schedule(1e300, note("far"));
        scheduler.schedule(std::numeric_limits<double>::infinity(), note("never"));
        scheduler.schedule(0.05, [&] {
            note("late")();
            lastRan.set_value();
        });
        // Due times order the tasks, however long the queue's thread is kept from running;
        // a sync from inside a task runs at once instead of deadlocking.
        scheduler.schedule(0, [&] {
            note("first")();
            queue.sync(note("nested"));
        });
        scheduler.schedule(-5, note("second"));
        ASSERT_EQ(lastRan.get_future().wait_for(std::chrono::seconds(30)),
                  std::future_status::ready);
        EXPECT_FALSE(queue.isCurrent());
    }
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "nested", "second", "late"}));
    EXPECT_TRUE(onQueue);
}

} // namespace
} // namespace tidewick
