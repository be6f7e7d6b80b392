#include "sessions/DecisionBroker.h"

#include <algorithm>
#include <chrono>

namespace tidewick {

namespace {

using Steady = std::chrono::steady_clock;

// Long enough for any real hold, short enough that the deadline cannot overflow.
constexpr double longestTimeout = 100.0 * 365 * 24 * 3600;

} // namespace

DecisionBroker::Result DecisionBroker::wait(const UUID& id, double timeout,
                                            const std::function<bool()>& isClientGone) {
    if (!(timeout > 0))
        return Result::timedOut();

    auto waiter = std::make_shared<Waiter>();
    {
        std::lock_guard guard(lock_);
        waiters_[id] = waiter;
    }

    // The steady clock: a change of the wall clock must not shorten or stretch a hold.
    const auto deadline =
        Steady::now() + std::chrono::duration_cast<Steady::duration>(
                            std::chrono::duration<double>(std::min(timeout, longestTimeout)));
    const auto slice =
        std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(sliceSeconds));

    std::unique_lock waiterLock(waiter->mutex);
    // The decision is looked at before the clock and the client after every wake-up, so
    // one that arrived during the last slice is never reported as a time-out.
    while (!waiter->decision) {
        const auto current = Steady::now();
        if (current >= deadline) {
            waiter->closed = true;
            waiterLock.unlock();
            leave(id, waiter);
            return Result::timedOut();
        }
        if (isClientGone) {
            // The probe is the caller's code: never run it under our lock.
            waiterLock.unlock();
            const bool gone = isClientGone();
            waiterLock.lock();
            if (waiter->decision)
                break;
            if (gone) {
                waiter->closed = true;
                waiterLock.unlock();
                leave(id, waiter);
                return Result::clientGone();
            }
        }
        waiter->condition.wait_until(waiterLock, std::min(current + slice, deadline));
    }
    Decision decision = *waiter->decision;
    waiterLock.unlock();
    leave(id, waiter);
    return Result::decided(std::move(decision));
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
    std::lock_guard waiterLock(waiter->mutex);
    if (waiter->decision || waiter->closed)
        return false;
    waiter->decision = std::move(decision);
    waiter->condition.notify_all();
    return true;
}

bool DecisionBroker::isWaiting(const UUID& id) const {
    std::lock_guard guard(lock_);
    return waiters_.contains(id);
}

void DecisionBroker::leave(const UUID& id, const std::shared_ptr<Waiter>& waiter) {
    std::lock_guard guard(lock_);
    auto found = waiters_.find(id);
    // A later wait on the same id owns the entry now; leave it in place.
    if (found != waiters_.end() && found->second == waiter)
        waiters_.erase(found);
}

} // namespace tidewick
