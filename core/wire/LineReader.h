// Reads the lines a local line server streams: whatever arrives after one
// line is kept for the next, unlike Wire::readLine, which reads one answer.
#pragma once

#include "wire/Wire.h"

#include <cstddef>
#include <string>

namespace tidewick {

class LineReader {
public:
    enum class Status {
        /// A complete line was read.
        line,
        /// No complete line arrived in time; more may still come.
        waiting,
        /// The peer closed the stream, it failed, or a line outgrew the limit. Final.
        closed,
    };

    struct Result {
        Status status = Status::waiting;
        /// The line, without its line feed, when `status` is `line`.
        std::string line;
    };

    /// Reads from the stream socket `fd`, which stays owned by the caller. Lines longer
    /// than `maxLineBytes` (without the line feed) close the reader.
    explicit LineReader(int fd, std::size_t maxLineBytes = Wire::maxLineBytes);

    /// The next line, waiting at most `timeoutSeconds` for it (0: only what is already
    /// there or arrives without waiting). A partial line left when the peer closes is
    /// dropped. Never throws beyond std::bad_alloc.
    [[nodiscard]] Result next(double timeoutSeconds);

private:
    int fd_;
    std::size_t maxLineBytes_;
    std::string buffer_;
    /// Bytes of buffer_ already searched for a line feed.
    std::size_t searched_ = 0;
    bool closed_ = false;
};

} // namespace tidewick
