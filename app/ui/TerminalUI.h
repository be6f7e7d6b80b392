// The full-screen terminal interface of `tidewick app`: the sessions, their
// held requests and the keys that answer them, with the avatar in the header,
// alert sounds (or the bell), the glowing frame, a banner for requests held
// out of view and desktop notifications for new requests.
#pragma once

#include "presentation/Palette.h"
#include "service/TidewickService.h"

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
    /// The session bus for desktop notifications; nothing: DBUS_SESSION_BUS_ADDRESS. Without
    /// a bus there are no desktop notifications and nothing else changes.
    std::optional<std::string> busAddress;
    /// never: no colour whatever the terminal can do (--no-color); automatic also honours
    /// NO_COLOR.
    Palette::ColourRequest colours = Palette::ColourRequest::automatic;
    /// Where the sound player programs are looked for; nothing: PATH.
    std::optional<std::string> searchPath;
};

/// Runs the interface on this process's terminal (standard input and output) for the running
/// `service` until the user quits or a stop signal arrives, then restores the terminal and
/// returns 0. Installs the service's alert handler (removed again on return) and a change
/// handler (inert after return). Decisions go through the service's answerPermission, reply
/// and letStop, as the control commands' do. Leaves the service running: stopping it is the
/// caller's job. Throws std::runtime_error with a sentence when the terminal cannot be used.
int runTerminalUI(TidewickService& service, TerminalUIOptions options = {});

} // namespace tidewick
