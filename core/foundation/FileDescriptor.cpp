#include "foundation/FileDescriptor.h"

#include "foundation/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tidewick {

FileDescriptor FileDescriptor::open(const std::string& path, int flags, mode_t mode) {
    FileDescriptor fd(::open(path.c_str(), flags | O_CLOEXEC, mode));
    if (!fd)
        throw SystemError("open", path, errno);
    return fd;
}

void FileDescriptor::reset(int fd) noexcept {
    // Not retried on EINTR: Linux has released the number whatever close() says.
    if (fd_ >= 0)
        (void)::close(fd_);
    fd_ = fd;
}

void FileDescriptor::close(const std::string& subject) {
    if (fd_ >= 0 && ::close(release()) != 0)
        throw SystemError("close", subject, errno);
}

} // namespace tidewick
