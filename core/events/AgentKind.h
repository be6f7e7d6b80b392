// Which coding agent an event came from.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace tidewick {

/// The four supported agents. The raw value is the agent's short command-line name.
enum class AgentKind { claude, codex, cursor, antigravity };

/// Every agent, in the order Tidewick lists them.
inline constexpr std::array<AgentKind, 4> allAgentKinds = {AgentKind::claude, AgentKind::codex,
                                                          AgentKind::cursor, AgentKind::antigravity};

/// "claude", "codex", "cursor" or "antigravity".
[[nodiscard]] std::string_view rawValue(AgentKind kind);
/// The same as rawValue: the agent's short name.
[[nodiscard]] inline std::string_view cliName(AgentKind kind) { return rawValue(kind); }
/// "Claude Code", "Codex", "Cursor" or "Antigravity".
[[nodiscard]] std::string_view displayName(AgentKind kind);
/// The agent with this raw value; nothing for any other text (matched exactly).
[[nodiscard]] std::optional<AgentKind> agentKindFromRaw(std::string_view raw);

} // namespace tidewick
