// The application's control socket: lets the `tidewick` commands of the same
// user, who know the shared secret, list sessions and held requests and answer
// them.
#pragma once

#include "control/ControlProtocol.h"
#include "service/SessionActions.h"
#include "wire/LocalServer.h"

#include <string>

namespace tidewick {

class ControlServer {
public:
    /// A stopped server on `socketPath` acting on `target`, which must outlive it.
    ControlServer(std::string socketPath, std::string secret, SessionActions& target);

    /// Listens on the socket (mode 0600, replacing any file there). Throws SystemError.
    void start();
    /// Stops listening, removes the socket file, cuts off requests still being served
    /// and waits for their threads.
    void stop();
    [[nodiscard]] const std::string& socketPath() const { return server_.socketPath(); }

    /// What `request` gets from `target`: listings, or the decision handed over and
    /// whether it was delivered. Session identifiers are matched by matchSession.
    [[nodiscard]] static ControlReply respond(const ControlRequest& request,
                                              SessionActions& target);

    /// The reply line for a request line; nothing for a malformed line or a wrong
    /// secret, which are closed without a word like on the hook socket.
    [[nodiscard]] static std::optional<std::string>
    answer(std::string_view line, std::string_view secret, SessionActions& target);

private:
    LocalServer server_;
};

} // namespace tidewick
