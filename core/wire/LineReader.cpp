#include "wire/LineReader.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <unistd.h>

namespace tidewick {

LineReader::LineReader(int fd, std::size_t maxLineBytes) : fd_(fd), maxLineBytes_(maxLineBytes) {}

LineReader::Result LineReader::next(double timeoutSeconds) {
    using Steady = std::chrono::steady_clock;
    const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
    for (;;) {
        const std::size_t end = buffer_.find('\n', searched_);
        // A line over the limit ends the stream for good: what follows it means nothing.
        if ((end == std::string::npos ? buffer_.size() : end) > maxLineBytes_) {
            closed_ = true;
            buffer_.clear();
        }
        if (end != std::string::npos && !buffer_.empty()) {
            Result result{Status::line, buffer_.substr(0, end)};
            buffer_.erase(0, end + 1);
            searched_ = 0;
            return result;
        }
        searched_ = buffer_.size();
        if (closed_)
            return Result{Status::closed, {}};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now());
        pollfd entry{fd_, POLLIN, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(std::max<long long>(
                                                 0, std::min<long long>(left.count(), 3600'000))));
        if (ready < 0 && errno != EINTR) {
            closed_ = true;
            continue;
        }
        if (ready == 0) {
            if (Steady::now() >= deadline)
                return Result{Status::waiting, {}};
            continue;
        }
        if (ready < 0)
            continue;
        char chunk[Wire::readChunkBytes];
        const ssize_t got = ::read(fd_, chunk, sizeof chunk);
        if (got > 0)
            buffer_.append(chunk, static_cast<std::size_t>(got));
        else if (got == 0 || (errno != EINTR && errno != EAGAIN))
            closed_ = true;
    }
}

} // namespace tidewick
