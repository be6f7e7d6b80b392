// The application's control socket: lets the `tidewick` commands of the same
// user, who know the shared secret, list sessions and held requests and answer
// them, and lets interfaces subscribe to every change and alert.
#pragma once

#include "control/ControlProtocol.h"
#include "service/ApplicationView.h"
#include "wire/LocalServer.h"

#include <cstddef>
#include <string>

namespace tidewick {

class ControlServer {
public:
    /// Events a subscriber may fall behind by. One that falls further behind is cut off
    /// (its interface then subscribes again and starts afresh) rather than ever holding
    /// up the application.
    static constexpr std::size_t subscriberBacklog = 4096;

    /// A stopped server on `socketPath` acting on `target`, which must outlive it.
    ControlServer(std::string socketPath, std::string secret, ApplicationView& target);

    /// Listens on the socket (mode 0600, replacing any file there). Throws SystemError.
    void start();
    /// Stops listening, removes the socket file, cuts off requests still being served and
    /// subscriptions, and waits for their threads.
    void stop();
    [[nodiscard]] const std::string& socketPath() const { return server_.socketPath(); }

    /// What `request` gets from `target`: listings, the decision handed over and whether
    /// it was delivered, or the transcript step recorded. Session identifiers are matched
    /// by matchSession. A subscription is no single answer: `badRequest`.
    [[nodiscard]] static ControlReply respond(const ControlRequest& request,
                                              ApplicationView& target);

private:
    /// Answers one request line: nothing at all for a malformed line or a wrong secret
    /// (closed without a word, like on the hook socket), a sentence for another version,
    /// else the reply or the subscription.
    void serve(std::string_view line, LocalServer::Stream& stream);
    /// Streams the sessions, then every change and alert, until the subscriber leaves,
    /// falls behind or the server stops.
    void subscribe(LocalServer::Stream& stream);

    std::string secret_;
    ApplicationView& target_;
    LocalServer server_;
};

} // namespace tidewick
