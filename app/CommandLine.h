// The `tidewick` command line: builds the command tree from each command
// group, runs it and turns failures into exit statuses.
#pragma once

#include "AppContext.h"

namespace tidewick {

/// Runs `tidewick` with `argv` and returns the exit status: 0 on success, 1
/// when Tidewick refused (its sentence on standard error), 2 on a usage error.
[[nodiscard]] int runCommandLine(int argc, const char* const* argv, AppContext& context);

} // namespace tidewick
