#include "foundation/IO.h"

#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick::IO {

namespace {

/// What is asked of the first read when the size is not known in advance: one page.
/// A larger buffer costs a fault per page it is zeroed over, even for a short input.
constexpr std::size_t firstChunk = 4096;

// The loop both writers share: `transfer` moves some bytes and returns what write(2) would.
template <typename Transfer>
void transferAll(std::string_view bytes, const char* call, const std::string& subject,
                 Transfer&& transfer) {
    while (!bytes.empty()) {
        const ssize_t written = transfer(bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw SystemError(call, subject, errno);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

// How much to ask of the first read. A regular file says its size, so one read
// usually does; the size is only a hint (the file may grow, and /proc files say 0).
// A small limit needs no hint: a buffer that large is cheaper than asking.
std::size_t firstRead(int fd, std::size_t limit) {
    if (limit <= firstChunk)
        return limit;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0)
        return std::min(static_cast<std::size_t>(info.st_size) + 1, limit);
    return firstChunk;
}

} // namespace

std::string readAll(int fd, std::size_t limit, const std::string& subject) {
    // Reading goes on until read() says the end, whatever the first guess was.
    std::string data(firstRead(fd, limit), '\0');
    std::size_t used = 0;
    while (used < limit) {
        if (used == data.size())
            data.resize(std::min(std::max(data.size() * 2, firstChunk), limit));
        const ssize_t got = ::read(fd, data.data() + used, data.size() - used);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throw SystemError("read", subject, errno);
        }
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    data.resize(used);
    return data;
}

std::string readAt(int fd, std::uint64_t offset, std::size_t length, const std::string& subject) {
    std::string data(length, '\0');
    std::size_t used = 0;
    while (used < length) {
        const ssize_t got = ::pread(fd, data.data() + used, length - used,
                                    static_cast<off_t>(offset + used));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throw SystemError("pread", subject, errno);
        }
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    data.resize(used);
    return data;
}

void writeAll(int fd, std::string_view bytes, const std::string& subject) {
    transferAll(bytes, "write", subject,
                [fd](const char* data, std::size_t size) { return ::write(fd, data, size); });
}

void sendAll(int fd, std::string_view bytes, const std::string& subject) {
    transferAll(bytes, "send", subject, [fd](const char* data, std::size_t size) {
        return ::send(fd, data, size, MSG_NOSIGNAL);
    });
}

} // namespace tidewick::IO
