// Reads an agent's record, which may grow to gigabytes: whole when it is
// small, else only its head and its tail, so that memory and time stay
// bounded whatever the size.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewick {

/// Sizes that decide how much of a record is read.
struct HeadTailLimits {
    /// Files up to this size are read whole...
    std::int64_t whole = 4 << 20;
    /// ...larger ones as this much of the beginning...
    std::int64_t head = 256 << 10;
    /// ...and this much of the end.
    std::int64_t tail = 1 << 20;
};

class HeadTailFile {
public:
    using Limits = HeadTailLimits;

    /// Whether a line ends with a line feed, or is the last one of the file, still open:
    /// the agent may be writing it.
    enum class LineEnd { complete, open };

    /// Opens `path` and reads it up to the size it has now; what is appended meanwhile is
    /// left for the next read. A line cut by the head's or the tail's edge is dropped. Throws
    /// SystemError naming the call that failed ("open(/path): No such file or directory"),
    /// and std::runtime_error("... is not a regular file.") for a folder, a pipe or a device.
    explicit HeadTailFile(const std::string& path, Limits limits = {});

    /// The file's size when it was opened.
    [[nodiscard]] std::int64_t size() const { return size_; }
    /// Bytes between the head and the tail that were not read; 0 when read whole.
    [[nodiscard]] std::int64_t skippedBytes() const { return tailOffset_ - headEnd(); }

    /// Calls `onLine(std::string_view line, std::int64_t offset, LineEnd end)` for every line
    /// read, in file order, without its line feed, and `onSkip(std::int64_t bytes,
    /// std::int64_t offset)` once between the head and the tail when the middle was skipped.
    template <typename OnLine, typename OnSkip>
    void forEachLine(OnLine&& onLine, OnSkip&& onSkip) const {
        eachLine(head_, 0, LineEnd::complete, onLine);
        if (skippedBytes() > 0)
            onSkip(skippedBytes(), headEnd());
        eachLine(tail_, tailOffset_, LineEnd::open, onLine);
    }

private:
    /// The lines of `bytes`, which starts at `offset`; a last line without a line feed is
    /// passed with `lastEnd`.
    template <typename OnLine>
    static void eachLine(std::string_view bytes, std::int64_t offset, LineEnd lastEnd,
                         OnLine& onLine) {
        std::size_t start = 0;
        while (start < bytes.size()) {
            const std::size_t end = bytes.find('\n', start);
            if (end == std::string_view::npos) {
                onLine(bytes.substr(start), offset + static_cast<std::int64_t>(start), lastEnd);
                return;
            }
            onLine(bytes.substr(start, end - start), offset + static_cast<std::int64_t>(start),
                   LineEnd::complete);
            start = end + 1;
        }
    }
    [[nodiscard]] std::int64_t headEnd() const { return static_cast<std::int64_t>(head_.size()); }

    std::int64_t size_ = 0;
    /// Read whole, the file is all tail; otherwise the head ends at its last line feed.
    std::string head_;
    std::string tail_;
    std::int64_t tailOffset_ = 0;
};

} // namespace tidewick
