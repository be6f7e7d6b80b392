// `tidewick usage`: how much of each agent's quota is left and how many tokens
// each session used, read here from the agents' own files.
#pragma once

#include "AppContext.h"
#include "usage/UsageReport.h"

#include <CLI/CLI.hpp>

#include <string>

namespace tidewick {

/// Adds `usage [--json]`: the report of the running application's sessions (or the saved
/// ones when none runs), printed as text or as JSON. It always succeeds: an agent without
/// figures is reported with the sentence saying why.
void registerUsageCommand(CLI::App& app, AppContext& context);

/// The report as `tidewick usage` prints it: each agent's windows (bar, percentage, time to
/// reset) with the figures' age or the sentence saying why there are none, then the
/// sessions' token use.
[[nodiscard]] std::string formatUsage(const UsageReport& report);

} // namespace tidewick
