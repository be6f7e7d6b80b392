// Finds the session a control command means from an identifier the user typed:
// the whole identifier or any unique prefix of it, optionally within one agent.
#pragma once

#include "control/ControlProtocol.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

struct SessionMatch {
    /// The session meant; set exactly when `outcome` is done.
    std::optional<SessionKey> key;
    /// done, noMatch, ambiguous or badRequest (an empty identifier).
    ControlOutcome outcome = ControlOutcome::done;
    /// Why nothing was chosen, as a sentence for the user.
    std::string message;
};

/// The session among `sessions` (of `agent` only, when given) whose identifier equals
/// `query`, else the only one whose identifier starts with it. Several starting with it
/// give `ambiguous` with a sentence listing them; none gives `noMatch` with
/// "No session matches ..."; an empty `query` gives `badRequest`.
[[nodiscard]] SessionMatch matchSession(const std::vector<Session>& sessions,
                                        std::string_view query, std::optional<AgentKind> agent);

/// The short identifier (ShortIds) of each session in `known` whose identifier `named`
/// holds, by identifier: what listings and confirmations show, and what the commands accept.
[[nodiscard]] std::map<std::string, std::string>
shortIdsOf(const std::vector<Session>& known, const std::vector<std::string>& named);

/// "Claude Code session 1a2b3c4d": the agent and the short identifier; the identifier's
/// first eight characters when `shortIds` does not name it.
[[nodiscard]] std::string describeSession(const SessionKey& key,
                                          const std::map<std::string, std::string>& shortIds);

} // namespace tidewick
