// Reads the rate-limit figures Claude Code hands its status line, as the hook
// command records them in "claude-limits.json".
#pragma once

#include "usage/UsageWindow.h"

#include <string>

namespace tidewick::ClaudeLimitsReader {

/// The windows recorded in `file` ({"at": seconds, "rate_limits": {"<name>": {
/// "used_percentage" or "utilization": 0–100, "resets_at": seconds or ISO 8601}}}), in
/// file order, each percentage held to 0–100; "five_hour" and "seven_day…" windows get
/// their length. Windows that are not objects or carry no finite percentage are left out.
/// Never throws: a missing, unreadable or malformed file, or one without windows, gives
/// no windows and the sentence saying why in `missing`.
[[nodiscard]] AgentUsage read(const std::string& file);

} // namespace tidewick::ClaudeLimitsReader
