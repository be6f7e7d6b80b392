// Claude Code's adapter: the Claude-style dialect speaking for Claude Code.
#pragma once

#include "adapters/ClaudeStyleAdapter.h"

namespace tidewick {

/// Events carry agent claude; titles name "Claude Code".
class ClaudeAdapter final : public ClaudeStyleForwarder<AgentKind::claude> {};

} // namespace tidewick
