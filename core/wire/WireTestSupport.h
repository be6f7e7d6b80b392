// Helpers shared by the socket tests: raw clients and listeners that speak (or
// break) the protocol on purpose, and a second user for the peer checks.
#pragma once

#include "wire/Socket.h"
#include "wire/Wire.h"

#include <grp.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tidewick::testing {

enum class RawSocket { connected, bound, listening };

/// A stream socket at `path`, connected to it or bound there (and listening),
/// replacing any file there; -1 on failure.
inline int openRaw(const std::string& path, RawSocket kind, int backlog = 8) {
    FileDescriptor socket = Socket::openStream();
    auto address = Wire::makeAddress(path);
    if (!socket || !address)
        return -1;
    const int fd = socket.get();
    const auto* raw = reinterpret_cast<const sockaddr*>(&*address);
    if (kind != RawSocket::connected)
        ::unlink(path.c_str());
    bool ok = kind == RawSocket::connected
                  ? ::connect(fd, raw, sizeof *address) == 0
                  : ::bind(fd, raw, sizeof *address) == 0 &&
                        (kind == RawSocket::bound || ::listen(fd, backlog) == 0);
    return ok ? socket.release() : -1;
}

/// Runs `body` in a child process as the user "nobody" and returns its exit
/// status. The child only makes system calls, as a forked copy of a threaded
/// program must.
template <typename Body> int runAsNobody(Body body) {
    pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
            ::setresuid(65534, 65534, 65534) != 0)
            ::_exit(90);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 99;
}

} // namespace tidewick::testing
