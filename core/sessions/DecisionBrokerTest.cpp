#include "sessions/DecisionBroker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace tidewick;
using namespace std::chrono_literals;
using Result = DecisionBroker::Result;

namespace {

// Polls until `id` has a waiter; the broker gives no other signal that a thread is inside wait().
void awaitWaiter(const DecisionBroker& broker, const UUID& id) {
    while (!broker.isWaiting(id))
        std::this_thread::sleep_for(1ms);
}

struct DecisionBrokerTest : ::testing::Test {
    DecisionBroker broker;
    const UUID id = UUID::random();
};

} // namespace

TEST_F(DecisionBrokerTest, FirstDecisionWinsAndASecondWaitReplacesTheFirst) {
    EXPECT_FALSE(broker.resolve(id, Decision::allow())) << "nobody waits yet";

    auto waiting = std::async(std::launch::async, [&] { return broker.wait(id, 30, nullptr); });
    awaitWaiter(broker, id);
    EXPECT_TRUE(broker.resolve(id, Decision::deny("not now")));
    EXPECT_FALSE(broker.resolve(id, Decision::allow()));
    EXPECT_EQ(waiting.get(), Result::decided(Decision::deny("not now")));
    EXPECT_FALSE(broker.isWaiting(id));
    EXPECT_FALSE(broker.resolve(id, Decision::allow())) << "the waiter has left";

    // A second wait on the same id replaces the first.
    std::atomic<bool> firstGone = false;
    auto first = std::async(std::launch::async,
                            [&] { return broker.wait(id, 30, [&] { return firstGone.load(); }); });
    awaitWaiter(broker, id);
    auto second = std::async(std::launch::async, [&] { return broker.wait(id, 30, nullptr); });
    std::this_thread::sleep_for(50ms);
    // The first waiter leaves; it must not take the second one's entry with it.
    firstGone = true;
    EXPECT_EQ(first.get(), Result::clientGone());
    awaitWaiter(broker, id);
    EXPECT_TRUE(broker.resolve(id, Decision::allow()));
    EXPECT_EQ(second.get(), Result::decided(Decision::allow()));
}

TEST_F(DecisionBrokerTest, TimeOutsRefuseLateDecisionsButADecisionAlreadyThereWins) {
    int probes = 0;
    const auto started = std::chrono::steady_clock::now();
    // The probe counts its calls and never reports the client gone.
    EXPECT_EQ(broker.wait(id, 0.3, [&] { return ++probes < 0; }), Result::timedOut());
    EXPECT_GE(std::chrono::steady_clock::now() - started, 300ms);
    EXPECT_GE(probes, 1) << "the client is asked about between slices";
    EXPECT_FALSE(broker.isWaiting(id));
    EXPECT_FALSE(broker.resolve(id, Decision::allow()));

    bool probed = false;
    auto probe = [&] { return probed = true; };
    for (double timeout : {0.0, -5.0, std::nan("")})
        EXPECT_EQ(broker.wait(id, timeout, probe), Result::timedOut()) << timeout;
    EXPECT_FALSE(probed);

    // The probe itself delivers a decision and then claims the client left.
    EXPECT_EQ(broker.wait(id, 30,
                          [&] {
                              EXPECT_TRUE(broker.resolve(id, Decision::reply("go on")));
                              return true;
                          }),
              Result::decided(Decision::reply("go on")));

    // A decision arriving during the last slice, just before the deadline, still wins.
    const UUID late = UUID::random();
    auto waiting = std::async(std::launch::async, [&] { return broker.wait(late, 0.2, nullptr); });
    awaitWaiter(broker, late);
    const bool delivered = broker.resolve(late, Decision::letStop());
    EXPECT_EQ(waiting.get(), delivered ? Result::decided(Decision::letStop()) : Result::timedOut())
        << "refused only when the waiter had given up";
}

TEST_F(DecisionBrokerTest, NoticesAVanishedClientWithinAboutASlice) {
    std::atomic<bool> gone = false;
    std::atomic<std::chrono::steady_clock::time_point> goneAt{};
    auto waiting = std::async(std::launch::async, [&] {
        Result result = broker.wait(id, 60, [&] { return gone.load(); });
        return std::make_pair(result, std::chrono::steady_clock::now() - goneAt.load());
    });
    awaitWaiter(broker, id);
    std::this_thread::sleep_for(100ms);
    goneAt = std::chrono::steady_clock::now();
    gone = true;
    auto [result, noticedAfter] = waiting.get();
    EXPECT_EQ(result, Result::clientGone());
    // One slice is a quarter second; allow generously for a loaded machine.
    EXPECT_LT(noticedAfter, 1s);
    EXPECT_FALSE(broker.resolve(id, Decision::allow()));
}

TEST_F(DecisionBrokerTest, ManyWaitersEachGetTheirOwnDecision) {
    constexpr int waiterCount = 64;
    std::vector<UUID> ids(waiterCount);
    std::vector<std::future<Result>> waiters;
    for (UUID& each : ids) {
        each = UUID::random();
        waiters.push_back(std::async(std::launch::async, [this, each] {
            return broker.wait(each, 60, [] { return false; });
        }));
    }
    for (const UUID& each : ids)
        awaitWaiter(broker, each);

    // Four resolver threads race over every id, each offering its own text; exactly one
    // offer per id may be delivered and the waiter must receive exactly that one.
    std::mutex mutex;
    std::vector<std::string> delivered(waiterCount);
    std::vector<std::thread> resolvers;
    for (int r = 0; r < 4; ++r)
        resolvers.emplace_back([&, r] {
            for (int k = 0; k < waiterCount; ++k) {
                const int i = (k * 7 + r * 13) % waiterCount;
                const std::string text = std::to_string(i) + "/" + std::to_string(r);
                if (!broker.resolve(ids[i], Decision::reply(text)))
                    continue;
                std::lock_guard guard(mutex);
                EXPECT_EQ(delivered[i], "") << "two resolves delivered to waiter " << i;
                delivered[i] = text;
            }
        });
    for (auto& thread : resolvers)
        thread.join();
    for (int i = 0; i < waiterCount; ++i) {
        ASSERT_NE(delivered[i], "") << "no resolve delivered to waiter " << i;
        EXPECT_EQ(waiters[i].get(), Result::decided(Decision::reply(delivered[i])));
    }
}
