#include "sessions/DebouncedSaver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

using namespace tidewick;
using namespace std::chrono_literals;

TEST(DebouncedSaverTest, ABurstCostsOneSaveAboutADelayAfterItsFirstChange) {
    ManualScheduler scheduler;
    std::vector<double> savedAt;
    DebouncedSaver saver([&] { savedAt.push_back(scheduler.now()); }, scheduler);

    // Ten changes within one second.
    for (int i = 0; i < 10; ++i) {
        saver.noteChange();
        scheduler.advance(0.1);
    }
    EXPECT_TRUE(saver.isScheduled());
    EXPECT_TRUE(savedAt.empty());
    scheduler.advance(0.49);
    EXPECT_TRUE(savedAt.empty()) << "not before 1.5 s";
    scheduler.advance(0.02);
    ASSERT_EQ(savedAt.size(), 1u);
    EXPECT_DOUBLE_EQ(savedAt[0], 1.5);
    EXPECT_FALSE(saver.isScheduled());
    scheduler.advance(10);
    EXPECT_EQ(savedAt.size(), 1u);

    // The next change starts a new burst.
    saver.noteChange();
    scheduler.advance(1.5);
    ASSERT_EQ(savedAt.size(), 2u);
    EXPECT_NEAR(savedAt[1], 13.01, 1e-9);
}

TEST(DebouncedSaverTest, FlushSavesAtOnceAndCancelsTheScheduledSave) {
    ManualScheduler scheduler;
    int saves = 0;
    DebouncedSaver saver([&] { ++saves; }, scheduler);
    saver.flush();
    EXPECT_EQ(saves, 1) << "a flush saves even with nothing scheduled";

    saver.noteChange();
    scheduler.advance(0.5);
    saver.flush();
    EXPECT_EQ(saves, 2);
    EXPECT_FALSE(saver.isScheduled());
    scheduler.advance(5);
    EXPECT_EQ(saves, 2) << "the flush covered the scheduled save";

    // A change after the flush schedules again.
    saver.noteChange();
    scheduler.advance(1.5);
    EXPECT_EQ(saves, 3);
}

TEST(DebouncedSaverTest, AChangeDuringTheSaveSchedulesTheNextOne) {
    ManualScheduler scheduler;
    int saves = 0;
    std::unique_ptr<DebouncedSaver> saver;
    saver = std::make_unique<DebouncedSaver>(
        [&] {
            if (++saves == 1)
                saver->noteChange();
        },
        scheduler);
    saver->noteChange();
    scheduler.advance(1.5);
    EXPECT_EQ(saves, 1);
    EXPECT_TRUE(saver->isScheduled());
    scheduler.advance(1.5);
    EXPECT_EQ(saves, 2);
}

TEST(DebouncedSaverTest, DestroyingTheSaverDropsItsScheduledSave) {
    ManualScheduler scheduler;
    int saves = 0;
    {
        DebouncedSaver saver([&] { ++saves; }, scheduler);
        saver.noteChange();
    }
    EXPECT_EQ(scheduler.waitingCount(), 1u);
    scheduler.advance(2);
    EXPECT_EQ(saves, 0);
}

TEST(DebouncedSaverTest, ThreadSchedulerRunsTasksInDueOrderAndSavesNeverOverlap) {
    ThreadScheduler scheduler;
    std::mutex mutex;
    std::vector<int> order;
    std::promise<void> done;
    scheduler.schedule(0.06, [&] {
        std::lock_guard guard(mutex);
        order.push_back(3);
        done.set_value();
    });
    scheduler.schedule(0.02, [&] {
        std::lock_guard guard(mutex);
        order.push_back(1);
    });
    scheduler.schedule(0.02, [&] {
        std::lock_guard guard(mutex);
        order.push_back(2);
    });
    ASSERT_EQ(done.get_future().wait_for(10s), std::future_status::ready);
    {
        std::lock_guard guard(mutex);
        EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    }

    // Many threads note changes and flush while scheduled saves run: never two at once.
    std::atomic<int> inside = 0;
    std::atomic<int> overlaps = 0;
    std::atomic<int> saves = 0;
    DebouncedSaver saver(
        [&] {
            if (++inside > 1)
                ++overlaps;
            std::this_thread::sleep_for(1ms);
            --inside;
            ++saves;
        },
        scheduler, 0.001);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                saver.noteChange();
                if ((i + t) % 10 == 0)
                    saver.flush();
                std::this_thread::sleep_for(200us);
            }
        });
    for (auto& thread : threads)
        thread.join();
    saver.flush();
    EXPECT_EQ(overlaps.load(), 0);
    EXPECT_GE(saves.load(), 21);
}
