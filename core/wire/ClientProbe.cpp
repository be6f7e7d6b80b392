#include "wire/ClientProbe.h"

#include <poll.h>
#include <sys/socket.h>

namespace tidewick {

bool ClientProbe::isDisconnected() const {
    pollfd entry{fd_, POLLIN, 0};
    int ready = ::poll(&entry, 1, 0);
    if (ready <= 0)
        return false; // Nothing to read yet: the client is still waiting.
    if (entry.revents & (POLLERR | POLLHUP | POLLNVAL))
        return true;
    // Readable: either end of stream (gone) or stray bytes (still there).
    char byte;
    return ::recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

} // namespace tidewick
