// The rendezvous between a connection thread that holds a request and
// whichever thread delivers the user's decision.
#pragma once

#include "events/Decision.h"
#include "foundation/UUID.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace tidewick {

/// Thread-safe: any number of threads wait, any thread resolves. The broker's
/// lock guards only the table of waiters; each waiter has its own lock and
/// condition. The two locks are never held together, so no order between them
/// can deadlock.
class DecisionBroker {
public:
    /// How a wait ended.
    class Result {
    public:
        enum class Kind { decided, timedOut, clientGone };

        /// The user decided.
        [[nodiscard]] static Result decided(Decision decision) {
            return Result(Kind::decided, std::move(decision));
        }
        /// The time allowed ran out with no decision.
        [[nodiscard]] static Result timedOut() { return Result(Kind::timedOut, std::nullopt); }
        /// The client probe reported that the hook command went away.
        [[nodiscard]] static Result clientGone() { return Result(Kind::clientGone, std::nullopt); }

        [[nodiscard]] Kind kind() const { return kind_; }
        /// The decision of a `decided` result; nothing otherwise.
        [[nodiscard]] const std::optional<Decision>& decision() const { return decision_; }

        friend bool operator==(const Result&, const Result&) = default;

    private:
        Result(Kind kind, std::optional<Decision> decision)
            : kind_(kind), decision_(std::move(decision)) {}
        Kind kind_;
        std::optional<Decision> decision_;
    };

    /// How often a waiter wakes without a signal to ask whether the client has gone.
    static constexpr double sliceSeconds = 0.25;

    DecisionBroker() = default;
    DecisionBroker(const DecisionBroker&) = delete;
    DecisionBroker& operator=(const DecisionBroker&) = delete;

    /// Blocks until `id` is resolved, `timeout` seconds pass, or `isClientGone` (asked about
    /// every quarter second while no decision has arrived; may be empty) returns true.
    /// A decision that arrives before the last slice ends wins over the time-out. A timeout
    /// of zero, less or NaN returns timedOut at once without asking the probe. A second wait
    /// on the same id replaces the first in the table: only the later waiter can be resolved.
    [[nodiscard]] Result wait(const UUID& id, double timeout,
                              const std::function<bool()>& isClientGone);

    /// Hands `decision` to the thread waiting on `id`. True only when this call delivered it:
    /// false when nobody waits on `id` (never held, timed out, withdrawn) or an earlier
    /// decision already won.
    bool resolve(const UUID& id, Decision decision);

    /// Whether a thread is inside wait() on `id` now.
    [[nodiscard]] bool isWaiting(const UUID& id) const;

private:
    struct Waiter {
        std::mutex mutex;
        std::condition_variable condition;
        std::optional<Decision> decision;
        /// Set when the waiter gave up (time-out, client gone): a late decision is refused
        /// even though the waiter has not yet left the table.
        bool closed = false;
    };

    /// Removes `waiter` from the table if it is still the entry for `id`.
    void leave(const UUID& id, const std::shared_ptr<Waiter>& waiter);

    mutable std::mutex lock_;
    std::unordered_map<UUID, std::shared_ptr<Waiter>> waiters_;
};

} // namespace tidewick
