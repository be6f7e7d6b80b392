// The registry that picks the adapter for an agent.
#pragma once

#include "events/AgentAdapter.h"

#include <memory>

namespace tidewick::Adapters {

/// A fresh adapter for `kind`: the Claude-style dialect for Claude Code and
/// Codex, and the Cursor and Antigravity dialects for the others.
[[nodiscard]] std::unique_ptr<AgentAdapter> adapter(AgentKind kind);

} // namespace tidewick::Adapters
