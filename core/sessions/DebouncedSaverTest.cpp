#include "sessions/DebouncedSaver.h"

#include "testing/ManualScheduler.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

using namespace tidewick;

TEST(DebouncedSaverTest, ABurstCostsOneSaveADelayAfterItsFirstChangeAndFlushSavesAtOnce) {
    ManualScheduler scheduler;
    std::vector<double> savedAt;
    std::unique_ptr<DebouncedSaver> saver;
    saver = std::make_unique<DebouncedSaver>(
        [&] {
            savedAt.push_back(scheduler.now());
            if (savedAt.size() == 1)
                saver->noteChange(); // a change while saving
        },
        scheduler);
    auto expectSavedAt = [&](const std::vector<double>& times) {
        EXPECT_THAT(savedAt, ::testing::Pointwise(::testing::DoubleNear(1e-9), times));
    };

    // Ten changes within one second.
    for (int i = 0; i < 10; ++i) {
        saver->noteChange();
        scheduler.advance(0.1);
    }
    scheduler.advance(0.49);
    EXPECT_TRUE(savedAt.empty()) << "not before 1.5 s";
    EXPECT_TRUE(saver->isScheduled());
    scheduler.advance(0.02);
    expectSavedAt({1.5});
    EXPECT_TRUE(saver->isScheduled()) << "the change during the save schedules the next";
    scheduler.advance(1.5);
    expectSavedAt({1.5, 3.0});
    EXPECT_FALSE(saver->isScheduled());
    scheduler.advance(10);

    // A flush saves at once, even with nothing scheduled, and covers a scheduled save.
    saver->flush();
    saver->noteChange();
    scheduler.advance(0.5);
    saver->flush();
    expectSavedAt({1.5, 3.0, 13.01, 13.51});
    EXPECT_FALSE(saver->isScheduled());
    scheduler.advance(5);
    EXPECT_EQ(savedAt.size(), 4u) << "the flush covered the scheduled save";
    saver->noteChange();
    scheduler.advance(1.5);
    expectSavedAt({1.5, 3.0, 13.01, 13.51, 20.01});

    saver->noteChange();
    saver.reset();
    EXPECT_EQ(scheduler.waitingCount(), 1u);
    scheduler.advance(2);
    EXPECT_EQ(savedAt.size(), 5u) << "a destroyed saver's scheduled save is dropped";
}

TEST(DebouncedSaverTest, SavesNeverOverlapAcrossThreads) {
    ManualScheduler scheduler;
    std::mutex saving;
    std::atomic<int> saves = 0;
    DebouncedSaver saver(
        [&] {
            std::unique_lock lock(saving, std::try_to_lock);
            EXPECT_TRUE(lock.owns_lock()) << "two saves at once";
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            ++saves;
        },
        scheduler, 0.001);
    // Scheduled saves run on the thread advancing time while others note changes and flush.
    std::atomic<bool> done = false;
    std::thread clock([&] {
        while (!done)
            scheduler.advance(0.001);
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                saver.noteChange();
                if ((i + t) % 10 == 0)
                    saver.flush();
            }
        });
    for (auto& thread : threads)
        thread.join();
    done = true;
    clock.join();
    EXPECT_GE(saves.load(), 80);
}
