#include "wire/Socket.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace tidewick::Socket {

int openStream() {
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
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

ssize_t sendWithoutSignal(int fd, const void* data, std::size_t size) {
    return ::send(fd, data, size, MSG_NOSIGNAL);
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

Descriptor::~Descriptor() {
    if (fd_ >= 0)
        ::close(fd_);
}

} // namespace tidewick::Socket
