#include "wire/HookServer.h"

#include "wire/Wire.h"

namespace tidewick {

namespace {

// The hook protocol on top of the generic line server: decode, check the
// secret, run the handler, encode. Every refusal closes without a word, so a
// probing client learns nothing.
LocalServer::Handler protocol(std::string secret, HookServer::Handler handler) {
    return [secret = std::move(secret), handler = std::move(handler)](
               std::string_view line, const ClientProbe& probe) -> std::optional<std::string> {
        std::optional<HookRequest> request = Wire::decode(line, secret);
        if (!request)
            return std::nullopt;
        HookResponse response = handler(*request, probe);
        return Wire::encode(response.output);
    };
}

} // namespace

HookServer::HookServer(std::string socketPath, std::string secret, Handler handler)
    : server_(std::move(socketPath), protocol(std::move(secret), std::move(handler)),
              LocalServer::Options{threadName, "tidewick.hook-connection", backlog,
                                   requestReadSeconds, nullptr}) {}

} // namespace tidewick
