#include "events/AgentKind.h"

namespace tidewick {

namespace {
constexpr EnumTable<AgentKind, 4> displayNames{{{
    {AgentKind::claude, "Claude Code"},
    {AgentKind::codex, "Codex"},
    {AgentKind::cursor, "Cursor"},
    {AgentKind::antigravity, "Antigravity"},
}}};
} // namespace

std::string_view displayName(AgentKind kind) {
    return displayNames.name(kind);
}

} // namespace tidewick
