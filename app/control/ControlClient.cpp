#include "control/ControlClient.h"

#include "wire/LocalClient.h"

namespace tidewick {

ControlClient::NotRunning::NotRunning() : std::runtime_error(notRunningSentence) {}

ControlReply ControlClient::send(const ControlRequest& request, const TidewickPaths& paths) {
    // Without a secret no application can have started for these paths.
    auto secret = paths.secretIfReadable();
    if (!secret)
        throw NotRunning();
    const std::string line = ControlProtocol::encode(request, *secret);
    LocalClient::Result result =
        LocalClient::exchange(paths.controlSocketPath(), line, 1.0, replySeconds);
    if (!result.line)
        throw NotRunning();
    auto reply = ControlProtocol::decodeReply(*result.line);
    if (!reply)
        throw NotRunning();
    return std::move(*reply);
}

} // namespace tidewick
