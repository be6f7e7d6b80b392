// How a held request ended: the one record the broker returns, the service
// answers from and the session store writes into the timeline.
#pragma once

#include "events/Decision.h"

#include <optional>
#include <utility>

namespace tidewick {

class HoldResult {
public:
    enum class Kind { decided, timedOut, clientGone };

    /// The user (or the service shutting down) decided.
    [[nodiscard]] static HoldResult decided(Decision decision) {
        return HoldResult(Kind::decided, std::move(decision));
    }
    /// The time allowed ran out with no decision.
    [[nodiscard]] static HoldResult timedOut() { return HoldResult(Kind::timedOut, std::nullopt); }
    /// The hook command went away before anyone decided.
    [[nodiscard]] static HoldResult clientGone() {
        return HoldResult(Kind::clientGone, std::nullopt);
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    /// The decision the agent is answered with: the user's, else the time-out decision.
    [[nodiscard]] Decision decision() const { return decision_.value_or(Decision::timeout()); }
    /// Whether nobody decided in time: a time-out, or a time-out decision (a shutdown).
    [[nodiscard]] bool isTimeout() const {
        return kind_ == Kind::timedOut || decision().type() == Decision::Type::timeout;
    }

    friend bool operator==(const HoldResult&, const HoldResult&) = default;

private:
    HoldResult(Kind kind, std::optional<Decision> decision)
        : kind_(kind), decision_(std::move(decision)) {}

    Kind kind_;
    std::optional<Decision> decision_;
};

} // namespace tidewick
