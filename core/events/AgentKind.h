// Which coding agent an event came from.
#pragma once

#include "foundation/EnumTable.h"

#include <array>
#include <string_view>

namespace tidewick {

/// The four supported agents. The raw value is the agent's short command-line name.
enum class AgentKind { claude, codex, cursor, antigravity };

/// Raw values "claude", "codex", "cursor" and "antigravity".
template <> struct RawValues<AgentKind> {
    static constexpr EnumTable<AgentKind, 4> table{{{
        {AgentKind::claude, "claude"},
        {AgentKind::codex, "codex"},
        {AgentKind::cursor, "cursor"},
        {AgentKind::antigravity, "antigravity"},
    }}};
};

/// Every agent, in the order Tidewick lists them.
inline constexpr std::array<AgentKind, 4> allAgentKinds = {AgentKind::claude, AgentKind::codex,
                                                          AgentKind::cursor, AgentKind::antigravity};

/// The same as rawValue: the agent's short name.
[[nodiscard]] inline std::string_view cliName(AgentKind kind) { return rawValue(kind); }
/// "Claude Code", "Codex", "Cursor" or "Antigravity".
[[nodiscard]] std::string_view displayName(AgentKind kind);

} // namespace tidewick
