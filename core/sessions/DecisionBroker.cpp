#include "sessions/DecisionBroker.h"

#include <algorithm>
#include <vector>

namespace tidewick {

namespace {

using Steady = std::chrono::steady_clock;

// Long enough for any real hold, short enough that the deadline cannot overflow.
constexpr double longestTimeout = 100.0 * 365 * 24 * 3600;

Steady::duration seconds(double value) {
    return std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(value));
}

} // namespace

DecisionBroker::DecisionBroker(SteadyClock clock) : clock_(std::move(clock)) {}

void DecisionBroker::expect(const UUID& id) {
    std::lock_guard guard(lock_);
    std::shared_ptr<Waiter>& entry = waiters_[id];
    if (!entry)
        entry = std::make_shared<Waiter>();
}

std::shared_ptr<DecisionBroker::Waiter> DecisionBroker::claim(const UUID& id) {
    std::lock_guard guard(lock_);
    std::shared_ptr<Waiter>& entry = waiters_[id];
    if (!entry || entry->claimed)
        entry = std::make_shared<Waiter>();
    entry->claimed = true;
    return entry;
}

DecisionBroker::Result DecisionBroker::wait(const UUID& id, double timeout,
                                            const std::function<bool()>& isClientGone) {
    const std::shared_ptr<Waiter> waiter = claim(id);
    std::unique_lock held(waiter->mutex);
    if (waiter->decision)
        return leave(id, waiter, held, Result::decided(*waiter->decision));
    if (!(timeout > 0))
        return leave(id, waiter, held, Result::timedOut());

    // A monotonic clock: a change of the wall clock must not shorten or stretch a hold.
    const auto deadline = clock_() + seconds(std::min(timeout, longestTimeout));
    const auto slice = seconds(sliceSeconds);
    // The decision is looked at before the clock and the client after every wake-up, so
    // one that arrived during the last slice is never reported as a time-out.
    while (!waiter->decision) {
        const auto current = clock_();
        if (current >= deadline)
            return leave(id, waiter, held, Result::timedOut());
        if (isClientGone) {
            // The probe is the caller's code: never run it under our lock.
            held.unlock();
            const bool gone = isClientGone();
            held.lock();
            if (waiter->decision)
                break;
            if (gone)
                return leave(id, waiter, held, Result::clientGone());
        }
        waiter->condition.wait_for(held, std::min(slice, deadline - current));
    }
    return leave(id, waiter, held, Result::decided(*waiter->decision));
}

DecisionBroker::Result DecisionBroker::leave(const UUID& id,
                                             const std::shared_ptr<Waiter>& waiter,
                                             std::unique_lock<std::mutex>& held, Result result) {
    waiter->closed = true;
    held.unlock();
    std::lock_guard guard(lock_);
    auto found = waiters_.find(id);
    // A later wait on the same id owns the entry now; leave it in place.
    if (found != waiters_.end() && found->second == waiter)
        waiters_.erase(found);
    return result;
}

bool DecisionBroker::deliver(Waiter& waiter, const Decision& decision) {
    std::lock_guard held(waiter.mutex);
    if (waiter.decision || waiter.closed)
        return false;
    waiter.decision = decision;
    waiter.condition.notify_all();
    return true;
}

bool DecisionBroker::resolve(const UUID& id, Decision decision) {
    std::shared_ptr<Waiter> waiter;
    {
        std::lock_guard guard(lock_);
        auto found = waiters_.find(id);
        if (found == waiters_.end())
            return false;
        waiter = found->second;
    }
    return deliver(*waiter, decision);
}

std::size_t DecisionBroker::resolveAll(const Decision& decision) {
    std::vector<std::shared_ptr<Waiter>> all;
    {
        std::lock_guard guard(lock_);
        for (const auto& entry : waiters_)
            all.push_back(entry.second);
    }
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [&](const auto& waiter) { return deliver(*waiter, decision); }));
}

bool DecisionBroker::isWaiting(const UUID& id) const {
    std::lock_guard guard(lock_);
    return waiters_.contains(id);
}

} // namespace tidewick
