// The full-screen terminal interface of `tidewick app`: the sessions, their
// held requests and the keys that answer them, with the avatar in the header,
// the glowing frame, a banner for requests held out of view, and the bell when
// the application cannot play an alert's sound. It shows the application
// through ApplicationView, whether that runs in this process or another one it
// is attached to.
#pragma once

#include "presentation/Palette.h"
#include "service/ApplicationView.h"

#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

struct TerminalUIOptions {
    /// Signals that end the interface as `q` does, without asking. They must be blocked in
    /// every thread (the app command blocks them before the service starts its threads);
    /// the interface then reads them through a signalfd.
    std::vector<int> stopSignals = {SIGINT, SIGTERM};
    /// never: no colour whatever the terminal can do (--no-color); automatic also honours
    /// NO_COLOR.
    Palette::ColourRequest colours = Palette::ColourRequest::automatic;
};

/// Runs the interface on this process's terminal (standard input and output) for
/// `application` until the user quits or a stop signal arrives, then restores the terminal
/// and returns 0. Watches the application while it runs; decisions go through its
/// answerPermission, reply and letStop. Shows the avatar of the application's
/// "avatar.json" (reporting once on the status line when that is unusable) or the built-in
/// one. Leaves the application running: stopping one in this process is the caller's job.
/// Throws std::runtime_error with a sentence when the terminal cannot be used.
int runTerminalUI(ApplicationView& application, TerminalUIOptions options = {});

} // namespace tidewick
