#include "wire/HookClient.h"

#include "wire/LocalClient.h"
#include "wire/Wire.h"

namespace tidewick {

namespace {

const char* sentence(HookClient::Failure::Kind kind) {
    switch (kind) {
    case HookClient::Failure::Kind::notRunning:
        return "Tidewick isn't running.";
    case HookClient::Failure::Kind::noSecret:
        return "Tidewick's secret file is missing or damaged.";
    case HookClient::Failure::Kind::protocolError:
        return "Tidewick didn't send a valid answer.";
    }
    return "Tidewick didn't send a valid answer.";
}

using Kind = HookClient::Failure::Kind;

} // namespace

HookClient::Failure::Failure(Kind kind) : std::runtime_error(sentence(kind)), kind_(kind) {}

HookResponse HookClient::send(const HookRequest& request, const std::string& socketPath,
                              std::string_view secret, double connectTimeout,
                              double responseTimeout) {
    Outcome outcome = attempt(request, socketPath, secret, connectTimeout, responseTimeout);
    if (!outcome.response)
        throw Failure(outcome.failure);
    return std::move(*outcome.response);
}

HookClient::Outcome HookClient::attempt(const HookRequest& request, const std::string& socketPath,
                                        std::string_view secret, double connectTimeout,
                                        double responseTimeout) {
    auto failed = [](Kind kind) { return Outcome{std::nullopt, kind}; };
    // The exchange checks that the listener runs as this user before the
    // secret leaves: the /tmp fallback path is predictable.
    LocalClient::Result result = LocalClient::exchange(socketPath, Wire::encode(request, secret),
                                                       connectTimeout, responseTimeout);
    if (!result.line)
        return failed(result.failure == LocalClient::Failure::notConnected ? Kind::notRunning
                                                                           : Kind::protocolError);
    auto output = Wire::decodeResponse(*result.line);
    if (!output)
        return failed(Kind::protocolError);
    return Outcome{HookResponse{std::move(*output)}, Kind::protocolError};
}

} // namespace tidewick
