// The `tidewick` commands' side of the control socket.
#pragma once

#include "control/ControlProtocol.h"
#include "foundation/TidewickPaths.h"

#include <stdexcept>

namespace tidewick {

class ControlClient {
public:
    /// No application answered: no secret, no socket, nobody of this user listening,
    /// or no valid reply in time.
    class NotRunning : public std::runtime_error {
    public:
        NotRunning();
    };

    /// The sentence NotRunning carries.
    static constexpr const char* notRunningSentence =
        "Tidewick isn't running. Start it with `tidewick app`.";
    /// How long the application has to answer; it never blocks on a decision.
    static constexpr double replySeconds = 10.0;

    /// Sends `request` with the secret of `paths` to the application's control socket
    /// and returns its reply. Throws NotRunning; throws std::invalid_argument when a text
    /// of the request is not UTF-8.
    [[nodiscard]] static ControlReply send(const ControlRequest& request,
                                           const TidewickPaths& paths);
};

} // namespace tidewick
