#include "sessions/DecisionBroker.h"

#include "testing/Eventually.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tidewick {
using tidewick::testing::eventually;
using namespace std::chrono_literals;
using Result = DecisionBroker::Result;
using Steady = std::chrono::steady_clock;

namespace {

struct DecisionBrokerTest : ::testing::Test {
    // Holds are measured on a clock the test moves: nothing here depends on real time passing.
    std::atomic<Steady::rep> ticks = 0;
    DecisionBroker broker{[this] { return Steady::time_point(Steady::duration(ticks.load())); }};
    const UUID id = UUID::random();

    void advance(std::chrono::seconds by) { ticks += Steady::duration(by).count(); }
};

TEST_F(DecisionBrokerTest, FirstDecisionWinsAndASecondWaitReplacesTheFirst) {
    EXPECT_FALSE(broker.resolve(id, Decision::allow())) << "nobody waits yet";
    EXPECT_EQ(broker.wait(id, 30, [] { return true; }), Result::clientGone());
    EXPECT_FALSE(broker.resolve(id, Decision::allow())) << "a waiter whose client left is gone";

    std::atomic<bool> inside = false;
    auto waiting = std::async(
        std::launch::async, [&] { return broker.wait(id, 30, [&] { return !(inside = true); }); });
    ASSERT_TRUE(eventually([&] { return inside.load(); }));
    EXPECT_TRUE(broker.resolve(id, Decision::deny("not now")));
    EXPECT_FALSE(broker.resolve(id, Decision::allow()));
    EXPECT_EQ(waiting.get(), Result::decided(Decision::deny("not now")));
    EXPECT_FALSE(broker.isWaiting(id));
    EXPECT_FALSE(broker.resolve(id, Decision::allow())) << "the waiter has left";

    // A second wait on the same id replaces the first; the first, leaving, must not take
    // the second one's entry with it.
    std::atomic<bool> firstGone = false, firstInside = false, secondInside = false;
    auto first = std::async(std::launch::async, [&] {
        return broker.wait(id, 30, [&] { return firstInside = true, firstGone.load(); });
    });
    ASSERT_TRUE(eventually([&] { return firstInside.load(); }));
    auto second = std::async(std::launch::async, [&] {
        return broker.wait(id, 30, [&] { return !(secondInside = true); });
    });
    ASSERT_TRUE(eventually([&] { return secondInside.load(); }));
    firstGone = true;
    EXPECT_EQ(first.get(), Result::clientGone());
    EXPECT_TRUE(broker.resolve(id, Decision::allow()));
    EXPECT_EQ(second.get(), Result::decided(Decision::allow()));
}

TEST_F(DecisionBrokerTest, ADecisionForAnExpectedRequestIsKeptUntilItsWaitAndAShutdownAnswersAll) {
    broker.expect(id);
    EXPECT_TRUE(broker.isWaiting(id));
    EXPECT_TRUE(broker.resolve(id, Decision::reply("go on")));
    EXPECT_FALSE(broker.resolve(id, Decision::letStop())) << "the first decision wins";
    broker.expect(id);
    bool probed = false;
    EXPECT_EQ(broker.wait(id, 0, [&] { return probed = true; }),
              Result::decided(Decision::reply("go on")))
        << "a kept decision wins even over a zero time-out";
    EXPECT_FALSE(probed);
    EXPECT_FALSE(broker.isWaiting(id));

    // A shutdown answers every expected and waiting request, once.
    const UUID other = UUID::random();
    broker.expect(id);
    std::atomic<bool> inside = false;
    auto waiting = std::async(std::launch::async, [&] {
        return broker.wait(other, 30, [&] { return !(inside = true); });
    });
    ASSERT_TRUE(eventually([&] { return inside.load(); }));
    EXPECT_EQ(broker.resolveAll(Decision::timeout()), 2u);
    EXPECT_EQ(broker.resolveAll(Decision::allow()), 0u);
    EXPECT_EQ(waiting.get(), Result::decided(Decision::timeout()));
    EXPECT_EQ(broker.wait(id, 30, nullptr), Result::decided(Decision::timeout()));
}

TEST_F(DecisionBrokerTest, TimeOutsRefuseLateDecisionsButADecisionThereAtTheDeadlineWins) {
    std::atomic<int> probes = 0;
    auto waiting = std::async(std::launch::async,
                              [&] { return broker.wait(id, 300, [&] { return ++probes < 0; }); });
    ASSERT_TRUE(eventually([&] { return probes.load() >= 1; }));
    advance(299s);
    // Nothing wakes the waiter but its own slices: two more looks at the client mean it has
    // seen the clock move, and stayed.
    const int seen = probes.load();
    ASSERT_TRUE(eventually([&] { return probes.load() >= seen + 2; }));
    EXPECT_EQ(waiting.wait_for(0s), std::future_status::timeout);
    advance(1s);
    EXPECT_EQ(waiting.get(), Result::timedOut());
    EXPECT_FALSE(broker.isWaiting(id));
    EXPECT_FALSE(broker.resolve(id, Decision::allow()));

    bool probed = false;
    auto probe = [&] { return probed = true; };
    for (double timeout : {0.0, -5.0, std::nan("")})
        EXPECT_EQ(broker.wait(id, timeout, probe), Result::timedOut()) << timeout;
    EXPECT_FALSE(probed);

    // The probe delivers a decision, the deadline passes and the client leaves, all before
    // the waiter looks again: the decision wins.
    EXPECT_EQ(broker.wait(id, 10,
                          [&] {
                              EXPECT_TRUE(broker.resolve(id, Decision::letStop()));
                              advance(60s);
                              return true;
                          }),
              Result::decided(Decision::letStop()));
}

TEST_F(DecisionBrokerTest, ManyWaitersEachGetTheirOwnDecision) {
    constexpr int waiterCount = 64;
    std::vector<UUID> ids(waiterCount);
    std::vector<std::future<Result>> waiters;
    for (UUID& each : ids) {
        each = UUID::random();
        broker.expect(each);
        waiters.push_back(std::async(std::launch::async, [this, each] {
            return broker.wait(each, 60, [] { return false; });
        }));
    }

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
        SCOPED_TRACE(i);
        EXPECT_NE(delivered[i], "") << "no resolve delivered";
        EXPECT_EQ(waiters[i].get(), Result::decided(Decision::reply(delivered[i])));
    }
}

} // namespace
} // namespace tidewick
