// The application's side of the hook socket: accepts hook commands, checks
// who they are, and runs each request through the handler on its own thread.
#pragma once

#include "wire/ClientProbe.h"
#include "wire/HookRequest.h"
#include "wire/HookResponse.h"
#include "wire/LocalServer.h"

#include <functional>
#include <string>

namespace tidewick {

class HookServer {
public:
    /// Runs one request. Called on the connection's own thread, concurrently
    /// with other connections, and may block for as long as the user takes;
    /// `probe` tells whether the hook command still waits. An exception
    /// closes the connection without a reply (the hook command answers fail-safe).
    using Handler = std::function<HookResponse(const HookRequest&, const ClientProbe&)>;

    /// Name of the accepting thread (the system shows its first 15 bytes).
    static constexpr const char* threadName = "tidewick.hook-server";
    /// Connections waiting to be accepted before clients see a full backlog.
    static constexpr int backlog = 32;
    /// How long a connected client has to send its request line.
    static constexpr double requestReadSeconds = 10.0;

    /// A stopped server for `socketPath`, accepting requests carrying `secret`.
    HookServer(std::string socketPath, std::string secret, Handler handler);
    /// Stops the server, wakes every connection still open (its probe then
    /// reports the client gone) and waits until their threads have finished.
    ~HookServer() = default;
    HookServer(const HookServer&) = delete;
    HookServer& operator=(const HookServer&) = delete;

    /// Replaces any file at the socket path with a listening socket of mode
    /// 0600 and starts accepting. Does nothing when already running. Throws
    /// SystemError naming the failed call (ENAMETOOLONG for a path over 103
    /// bytes); the server is then left stopped with nothing open.
    void start() { server_.start(); }

    /// Stops accepting and removes the socket file. Connections being served
    /// finish their exchange. Does nothing when stopped.
    void stop() { server_.stop(); }

    [[nodiscard]] bool isRunning() const { return server_.isRunning(); }
    [[nodiscard]] const std::string& socketPath() const { return server_.socketPath(); }

private:
    LocalServer server_;
};

} // namespace tidewick
