// The `status`, `connect` and `disconnect` commands of `tidewick`.
#pragma once

#include "AppContext.h"

#include <CLI/CLI.hpp>

namespace tidewick {

/// Adds `status [--json]`, `connect AGENT [--gate-commands] [--yes]` and
/// `disconnect AGENT [--yes]` to `app`. Their callbacks throw UsageError for an
/// unknown agent, and let HookConfigError and ConnectionError through.
void registerConnectCommands(CLI::App& app, AppContext& context);

/// The agent named `name` on the command line; UsageError listing the four
/// valid names otherwise.
[[nodiscard]] AgentKind agentFromArgument(const std::string& name);

} // namespace tidewick
