// Reading and writing whole buffers through a file descriptor: the one place
// that loops over short transfers and interrupted calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace tidewick::IO {

/// No bound on what readAll() reads.
inline constexpr std::size_t noLimit = std::numeric_limits<std::size_t>::max();

/// Reads `fd` from where it stands to its end, or to `limit` bytes, whichever comes
/// first (the rest is left unread). Retries interrupted reads. Throws
/// SystemError("read", subject, ...) on any other error; what was read is then lost.
[[nodiscard]] std::string readAll(int fd, std::size_t limit, const std::string& subject);

/// Reads up to `length` bytes of `fd` starting at `offset` with pread(2), without moving
/// the file position, retrying short and interrupted reads; fewer bytes only at the end
/// of the file. Throws SystemError("pread", subject, ...) on any other error.
[[nodiscard]] std::string readAt(int fd, std::uint64_t offset, std::size_t length,
                                 const std::string& subject);

/// Writes every byte of `bytes` to `fd`, retrying short and interrupted writes. Throws
/// SystemError("write", subject, ...) on any other error; part may have been written.
void writeAll(int fd, std::string_view bytes, const std::string& subject);

/// writeAll() for a socket whose peer may have gone: that fails with EPIPE instead of
/// raising SIGPIPE. Throws SystemError("send", subject, ...).
void sendAll(int fd, std::string_view bytes, const std::string& subject);

} // namespace tidewick::IO
