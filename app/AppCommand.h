// `tidewick app`: runs the application (the service and its control socket)
// until it is told to stop.
#pragma once

#include "AppContext.h"

#include <CLI/CLI.hpp>

namespace tidewick {

/// Adds `app [--headless]` to `app`. Its callback runs until SIGINT or SIGTERM and
/// throws CommandFailure (status 1) when the application cannot start, for instance
/// because another one already runs for the same home.
void registerAppCommand(CLI::App& app, AppContext& context);

/// Runs the application without a user interface until SIGINT or SIGTERM, then stops
/// it cleanly: held requests get the time-out answer, sessions are saved and both
/// sockets removed. Must be called before any thread is started, since it blocks the
/// two signals for the whole process. Throws CommandFailure when start-up fails.
void runHeadless(AppContext& context);

} // namespace tidewick
