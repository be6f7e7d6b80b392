// Lets a handler that holds a request ask whether the hook command still waits.
#pragma once

namespace tidewick {

class ClientProbe {
public:
    /// A probe on the server side of one connection; `fd` stays owned by the server.
    explicit ClientProbe(int fd) : fd_(fd) {}

    /// True once the hook command has closed its end (it exited or its agent
    /// killed it) or the connection is broken. Never blocks and never
    /// consumes a byte.
    [[nodiscard]] bool isDisconnected() const;

    /// The server-side descriptor of the connection.
    [[nodiscard]] int fd() const { return fd_; }

private:
    int fd_;
};

} // namespace tidewick
