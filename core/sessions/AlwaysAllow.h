// What "always allow" means for a held permission request: the rule the agent
// keeps, the agent's own suggestions, or a prefix Tidewick itself lets through.
#pragma once

#include "events/AgentKind.h"
#include "events/HeldCall.h"
#include "foundation/EnumTable.h"

#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// What "always allow" would do, shown to the user before it is sent.
struct AlwaysAllowOffer {
    enum class Kind {
        /// A rule the agent keeps in the project's local settings: `text` is the rule
        /// ("npm test:*") for `tool`. The user may change it before it is sent.
        agentRule,
        /// The agent's own suggestions, sent as they are: `text` describes them.
        agentSuggestions,
        /// A command prefix added to the commands Tidewick allows without asking: `text`
        /// is the prefix ("npm test"). The user may change it before it is added.
        safePrefix,
    };

    Kind kind = Kind::agentRule;
    /// The tool as the agent names it.
    std::string tool;
    std::string text;

    /// Whether the user may change `text` before it is sent.
    [[nodiscard]] bool isEditable() const { return kind != Kind::agentSuggestions; }

    friend bool operator==(const AlwaysAllowOffer&, const AlwaysAllowOffer&) = default;
};

template <> struct RawValues<AlwaysAllowOffer::Kind> {
    static constexpr EnumTable<AlwaysAllowOffer::Kind, 3> table{{{
        {AlwaysAllowOffer::Kind::agentRule, "agentRule"},
        {AlwaysAllowOffer::Kind::agentSuggestions, "agentSuggestions"},
        {AlwaysAllowOffer::Kind::safePrefix, "safePrefix"},
    }}};
};

/// {"kind", "tool", "text"}.
void writeJSON(JSONWriter& out, const AlwaysAllowOffer& offer);
/// The offer writeJSON writes; false when a member is missing, mistyped or unknown.
[[nodiscard]] bool readJSON(JSONReader& in, AlwaysAllowOffer& out);

namespace AlwaysAllow {

/// The leading words of a shell command that name what it runs: the command word, and for
/// tools with subcommands (git, npm, cargo, docker …) the subcommand too ("npm run" takes
/// the script's name as well). Leading variable assignments are skipped, and the words end
/// at the first option, quote or shell metacharacter, so a prefix never reaches past a
/// pipe or a redirection. Nothing when no command word is left.
[[nodiscard]] std::optional<std::string> commandPrefix(std::string_view command);

/// What "always allow" offers for `call` of `agent`: for Claude Code a shell command's
/// prefix followed by ":*" as a rule, else its own suggestions; for Cursor and Antigravity
/// the shell command's prefix, lower-cased, as a prefix Tidewick allows; nothing for Codex
/// (its answer takes no lasting rule), for questions, and where there is nothing to offer.
[[nodiscard]] std::optional<AlwaysAllowOffer> offer(AgentKind agent, const HeldCall& call);

} // namespace AlwaysAllow
} // namespace tidewick
