// The socket calls that differ from one system to the next, each behind one
// small function: opening a local socket and who runs the peer.
#pragma once

#include "foundation/FileDescriptor.h"

#include <optional>
#include <sys/types.h>

namespace tidewick::Socket {

/// A new AF_UNIX stream socket, closed on exec; none (errno set) on failure.
[[nodiscard]] FileDescriptor openStream();

/// The effective user id of the process at the other end of the connected
/// Unix-domain socket `fd` (for a client: the process that called listen()).
/// Nothing when the system cannot tell.
[[nodiscard]] std::optional<uid_t> peerUserId(int fd);

/// Makes the whole process ignore SIGPIPE (the application side, which may
/// write to a hook command its agent has just killed).
void ignoreBrokenPipes();

/// Raises the process's soft limit on open descriptors to its hard limit: with the
/// common soft limit of 1,024, a thousand idle local clients could otherwise leave
/// no descriptor for anyone else. Failure leaves the limit as it was.
void raiseDescriptorLimit();

} // namespace tidewick::Socket
