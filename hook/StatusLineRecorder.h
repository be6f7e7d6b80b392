// Keeps the usage-limit figures that Claude Code hands its status line, so
// the application can show how much of each rate-limit window is used.
#pragma once

#include "foundation/Clock.h"
#include "foundation/JSONValue.h"

#include <string>

namespace tidewick::StatusLineRecorder {

/// Writes the "rate_limits" windows of the status-line `payload` to `file`
/// atomically (mode 0600, creating its directory with 0700 when missing) as
/// {"at":<seconds since 1970>,"rate_limits":{"<window>":{"used_percentage":n,
/// "resets_at":t},...}}. A window's percentage is its "used_percentage", else
/// its "utilization"; windows with neither are left out. Returns false and
/// leaves the file alone when the payload has no such window. Throws
/// SystemError when the file cannot be written.
bool record(const JSONValue& payload, const std::string& file, Date now);

} // namespace tidewick::StatusLineRecorder
