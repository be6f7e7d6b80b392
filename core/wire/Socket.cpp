#include "wire/Socket.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/socket.h>

namespace tidewick::Socket {

FileDescriptor openStream() {
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

std::optional<uid_t> peerUserId(int fd) {
    // Linux keeps the credentials the peer had when it connected or listened.
    struct ucred credentials {};
    socklen_t length = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        length != sizeof credentials)
        return std::nullopt;
    return credentials.uid;
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max)
        return;
    limit.rlim_cur = limit.rlim_max;
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace tidewick::Socket
