// Which permission requests stop the user, which are answered at once because
// the command only reads, and which are left to the agent.
#pragma once

#include "events/AgentEvent.h"
#include "events/AgentKind.h"
#include "foundation/Clock.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// The `gating` member of the settings. A default-constructed policy is the one new
/// settings get: every agent gated, the default safe prefixes, not paused.
struct GatingPolicy {
    enum class Verdict {
        /// Hold the request for the user.
        ask,
        /// Answer allow at once: the command only reads.
        allowSilently,
        /// Give no decision; the agent carries on with its own approval flow.
        passThrough,
    };

    /// Per agent, whether its shell-command permission requests are gated; missing means gated.
    std::map<AgentKind, bool> gateCommands = {{AgentKind::claude, true},
                                              {AgentKind::codex, true},
                                              {AgentKind::cursor, true},
                                              {AgentKind::antigravity, true}};
    /// Command prefixes that count as read-only, compared against the lower-cased command.
    std::vector<std::string> safePrefixes = defaultSafePrefixes();
    /// When true nothing is held and nothing is answered.
    bool paused = false;
    /// While paused: when the pause ends by itself. Kept in the file so that a pause for a
    /// while outlives a restart; evaluate() does not read it, whoever owns the clock does.
    std::optional<Date> pausedUntil;

    /// The 33 prefixes of new settings, from "ls" to "cargo --version".
    [[nodiscard]] static const std::vector<std::string>& defaultSafePrefixes();

    /// The verdict for one incoming event. Only permission events are ever held or answered;
    /// Claude Code's and Codex's are always held.
    [[nodiscard]] Verdict evaluate(const AgentEvent& event) const;

    /// Whether `command` plainly only reads: trimmed, at most 399 characters, free of shell
    /// metacharacters and control characters, with none of the options that write, run or
    /// page (also when quoted or abbreviated), and either the listing-only form of
    /// "git branch" or a safe prefix followed by nothing or a space. Never fails: anything
    /// doubtful is not read-only.
    [[nodiscard]] bool isReadOnly(std::string_view command) const;

    friend bool operator==(const GatingPolicy&, const GatingPolicy&) = default;
};

/// {"gateCommands": {raw agent: bool, ...}, "safePrefixes": [...], "paused": bool}, and
/// "pausedUntil" (seconds since 1970) when it is set.
void writeJSON(JSONWriter& out, const GatingPolicy& policy);
/// The policy writeJSON writes. False when any of the three keys is missing or mistyped, or
/// pausedUntil is not a date
/// (the settings then fall back to the default policy). Entries of gateCommands for
/// agents this version does not know are skipped.
[[nodiscard]] bool readJSON(JSONReader& in, GatingPolicy& out);

} // namespace tidewick
