// The `tidewick` commands' side of the control socket, and the start of an
// interface's subscription.
#pragma once

#include "control/ControlProtocol.h"
#include "foundation/FileDescriptor.h"
#include "foundation/TidewickPaths.h"
#include "wire/LineReader.h"

#include <memory>
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

    /// The application answered in another version of the protocol; the sentence says
    /// which side is older and what to do.
    class VersionMismatch : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// The sentence NotRunning carries.
    static constexpr const char* notRunningSentence =
        "Tidewick isn't running. Start it with `tidewick app`.";
    /// How long the application has to answer; it never blocks on a decision.
    static constexpr double replySeconds = 10.0;

    /// Sends `request` with the secret of `paths` to the application's control socket
    /// and returns its reply. Throws NotRunning or VersionMismatch; throws
    /// std::invalid_argument when a text of the request is not UTF-8.
    [[nodiscard]] static ControlReply send(const ControlRequest& request,
                                           const TidewickPaths& paths);

    /// A subscription whose reply has been read: its events follow on `lines`.
    struct Subscription {
        FileDescriptor socket;
        std::unique_ptr<LineReader> lines;
    };

    /// Subscribes to the application of `paths`. Throws NotRunning or VersionMismatch.
    [[nodiscard]] static Subscription subscribe(const TidewickPaths& paths);
};

} // namespace tidewick
