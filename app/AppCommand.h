// `tidewick app`: runs the application (the service and its control socket)
// until it is told to stop.
#pragma once

#include "AppContext.h"
#include "presentation/Palette.h"

#include <CLI/CLI.hpp>

namespace tidewick {

/// Adds `app [--headless] [--no-color]` to `app`. Its callback runs until SIGINT or SIGTERM and
/// throws CommandFailure (status 1) when the application cannot start, for instance
/// because another one already runs for the same home.
void registerAppCommand(CLI::App& app, AppContext& context);

/// How the application shows itself while it runs.
enum class Interface {
    /// No interface: one line per alert on standard output, decisions through the
    /// control commands.
    headless,
    /// The full-screen terminal interface (the control commands work as well).
    terminal,
};

/// How the terminal interface looks.
struct ApplicationOptions {
    /// never: no colours (--no-color).
    Palette::ColourRequest colours = Palette::ColourRequest::automatic;
};

/// Runs the application (the service and its control socket) with `interface` until
/// SIGINT or SIGTERM (or the user quits the terminal interface), then stops it cleanly:
/// held requests get the time-out answer, sessions are saved and both sockets removed.
/// Must be called before any thread is started, since it blocks the two signals for the
/// whole process. Throws CommandFailure when start-up fails.
void runApplication(AppContext& context, Interface interface, ApplicationOptions options = {});

} // namespace tidewick
