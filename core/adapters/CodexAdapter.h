// Codex's adapter: the Claude-style dialect speaking for Codex.
#pragma once

#include "adapters/ClaudeStyleAdapter.h"

namespace tidewick {

/// Events carry agent codex; titles name "Codex".
class CodexAdapter final : public ClaudeStyleForwarder<AgentKind::codex> {};

} // namespace tidewick
