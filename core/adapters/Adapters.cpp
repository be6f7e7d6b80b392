#include "adapters/Adapters.h"

#include "adapters/AntigravityAdapter.h"
#include "adapters/ClaudeAdapter.h"
#include "adapters/CodexAdapter.h"
#include "adapters/CursorAdapter.h"

namespace tidewick::Adapters {

std::unique_ptr<AgentAdapter> adapter(AgentKind kind) {
    switch (kind) {
    case AgentKind::claude:
        return std::make_unique<ClaudeAdapter>();
    case AgentKind::codex:
        return std::make_unique<CodexAdapter>();
    case AgentKind::cursor:
        return std::make_unique<CursorAdapter>();
    case AgentKind::antigravity:
        return std::make_unique<AntigravityAdapter>();
    }
    // Unreachable for a valid enum value; Claude's dialect is the neutral default.
    return std::make_unique<ClaudeAdapter>();
}

} // namespace tidewick::Adapters
