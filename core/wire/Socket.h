// The socket calls that differ from one system to the next, each behind one
// small function: who runs the peer, and writing without dying of SIGPIPE.
#pragma once

#include <cstddef>
#include <optional>
#include <sys/types.h>

namespace tidewick::Socket {

/// A new AF_UNIX stream socket, closed on exec. -1 with errno set on failure.
[[nodiscard]] int openStream();

/// The effective user id of the process at the other end of the connected
/// Unix-domain socket `fd` (for a client: the process that called listen()).
/// Nothing when the system cannot tell.
[[nodiscard]] std::optional<uid_t> peerUserId(int fd);

/// Sends up to `size` bytes on `fd`; a peer that has gone yields -1 with
/// EPIPE instead of a SIGPIPE that would kill the process. Returns what
/// send() returns.
[[nodiscard]] ssize_t sendWithoutSignal(int fd, const void* data, std::size_t size);

/// Makes the whole process ignore SIGPIPE (the application side, which may
/// write to a hook command its agent has just killed).
void ignoreBrokenPipes();

/// Closes `fd` on scope exit.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return fd_; }

private:
    int fd_;
};

} // namespace tidewick::Socket
