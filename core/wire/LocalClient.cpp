#include "wire/LocalClient.h"

#include "wire/Socket.h"
#include "wire/Wire.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace tidewick {

namespace {

// Connects, waiting out a full backlog until the deadline.
bool connectWithin(int fd, const sockaddr_un& address, double timeoutSeconds) {
    using Steady = std::chrono::steady_clock;
    const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0)
        return false;
    for (;;) {
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            break;
        // Only a full backlog is worth waiting for; a missing socket file or a
        // refused connection means nobody is listening.
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN || Steady::now() >= deadline)
            return false;
        ::usleep(5000);
    }
    return ::fcntl(fd, F_SETFL, flags) == 0;
}

// Bounds a write that a stalled listener never drains, so a client can never
// hang on a large request.
void limitSending(int fd, double seconds) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(seconds);
    limit.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(limit.tv_sec)) * 1e6);
    (void)::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace

FileDescriptor LocalClient::connect(const std::string& socketPath, double connectTimeout) {
    FileDescriptor socket = Socket::openStream();
    if (!socket)
        return socket;
    auto address = Wire::makeAddress(socketPath);
    if (!address || !connectWithin(socket.get(), *address, connectTimeout))
        return FileDescriptor();
    // A socket under /tmp has a predictable path, so another user could be
    // listening there: lines go only to a listener of our own user.
    auto peer = Socket::peerUserId(socket.get());
    if (!peer || *peer != ::geteuid())
        return FileDescriptor();
    return socket;
}

LocalClient::Result LocalClient::exchange(const std::string& socketPath, std::string_view line,
                                          double connectTimeout, double responseTimeout) {
    const Result notConnected{std::nullopt, Failure::notConnected};
    const FileDescriptor socket = connect(socketPath, connectTimeout);
    if (!socket)
        return notConnected;
    limitSending(socket.get(), responseTimeout);
    if (!Wire::writeAll(socket.get(), line))
        return notConnected;
    auto answer = Wire::readLine(socket.get(), responseTimeout);
    if (!answer)
        return Result{std::nullopt, Failure::noAnswer};
    return Result{std::move(answer), Failure::noAnswer};
}

} // namespace tidewick
