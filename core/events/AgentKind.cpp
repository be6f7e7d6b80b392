#include "events/AgentKind.h"

namespace tidewick {

std::string_view rawValue(AgentKind kind) {
    switch (kind) {
    case AgentKind::claude:
        return "claude";
    case AgentKind::codex:
        return "codex";
    case AgentKind::cursor:
        return "cursor";
    case AgentKind::antigravity:
        return "antigravity";
    }
    return "claude";
}

std::string_view displayName(AgentKind kind) {
    switch (kind) {
    case AgentKind::claude:
        return "Claude Code";
    case AgentKind::codex:
        return "Codex";
    case AgentKind::cursor:
        return "Cursor";
    case AgentKind::antigravity:
        return "Antigravity";
    }
    return "Claude Code";
}

std::optional<AgentKind> agentKindFromRaw(std::string_view raw) {
    for (AgentKind kind : allAgentKinds)
        if (rawValue(kind) == raw)
            return kind;
    return std::nullopt;
}

} // namespace tidewick
