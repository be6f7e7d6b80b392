// The rendezvous between a connection thread that holds a request and
// whichever thread delivers the user's decision.
#pragma once

#include "events/Decision.h"
#include "foundation/UUID.h"
#include "sessions/HoldResult.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace tidewick {

/// Thread-safe: any number of threads wait, any thread resolves. The broker's
/// lock guards only the table of waiters; each waiter has its own lock and
/// condition. The two locks are never held together, so no order between them
/// can deadlock.
class DecisionBroker {
public:
    using Result = HoldResult;
    /// The monotonic time the broker measures holds by; tests pass one they move by hand.
    using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

    /// How often a waiter wakes without a signal to ask whether the client has gone.
    static constexpr double sliceSeconds = 0.25;

    explicit DecisionBroker(SteadyClock clock = std::chrono::steady_clock::now);
    DecisionBroker(const DecisionBroker&) = delete;
    DecisionBroker& operator=(const DecisionBroker&) = delete;

    /// Registers `id` before anyone waits on it, so that a decision arriving from now on is
    /// kept (the first one wins) for the wait() that follows. Every expect() must be
    /// followed by a wait() on the same id, which ends the registration. Registering an id
    /// that is already registered or waited on does nothing.
    void expect(const UUID& id);

    /// Blocks until `id` is resolved, `timeout` seconds pass, or `isClientGone` (asked about
    /// every quarter second while no decision has arrived; may be empty) returns true.
    /// A decision that is there when the deadline comes wins over the time-out. A timeout
    /// of zero, less or NaN returns timedOut at once without asking the probe (a decision
    /// already kept for an expected id still wins). Waiting on an id that another thread
    /// waits on replaces that entry: only the later waiter can be resolved.
    [[nodiscard]] Result wait(const UUID& id, double timeout,
                              const std::function<bool()>& isClientGone);

    /// Hands `decision` to the request `id`. True only when this call delivered it: false
    /// when `id` is neither expected nor waited on (never held, timed out, withdrawn) or an
    /// earlier decision already won.
    bool resolve(const UUID& id, Decision decision);

    /// Resolves every request expected or waited on now with `decision` (a shutdown
    /// answering everything); the number of requests it was delivered to.
    std::size_t resolveAll(const Decision& decision);

    /// Whether `id` is expected or waited on now.
    [[nodiscard]] bool isWaiting(const UUID& id) const;

private:
    struct Waiter {
        std::mutex mutex;
        std::condition_variable condition;
        std::optional<Decision> decision;
        /// Set when a thread has entered wait() for it; a second wait() replaces it then.
        bool claimed = false;
        /// Set when the waiter gave up (time-out, client gone): a late decision is refused
        /// even though the waiter has not yet left the table.
        bool closed = false;
    };

    /// The registered waiter for `id`, claimed for the calling thread; a fresh one when
    /// there is none or another thread has claimed it.
    std::shared_ptr<Waiter> claim(const UUID& id);
    /// Ends the wait of `waiter`, whose lock `held` is, with `result`.
    Result leave(const UUID& id, const std::shared_ptr<Waiter>& waiter,
                 std::unique_lock<std::mutex>& held, Result result);
    /// Hands `decision` to `waiter` unless it has one or gave up.
    static bool deliver(Waiter& waiter, const Decision& decision);

    SteadyClock clock_;
    mutable std::mutex lock_;
    std::unordered_map<UUID, std::shared_ptr<Waiter>> waiters_;
};

} // namespace tidewick
