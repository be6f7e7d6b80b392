// Reads the request lines of local connections that have not sent theirs yet:
// all of them on one thread, within bounds on the memory their lines take and
// on the descriptors they hold, so that no number of idle or flooding clients
// keeps a well-behaved one from being read at once.
#pragma once

#include "foundation/FileDescriptor.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace tidewick {

class RequestReader {
public:
    struct Limits {
        /// Bytes of request lines held at once, those being read and those handed on
        /// whose Line still lives: one line of the longest kind at a time, since handling
        /// one takes several times its size. Reaching it closes the connection that has
        /// waited longest for its line, and, when no other is being read, the one that
        /// would pass it.
        std::size_t lineBytes = 24 * 1024 * 1024;
        /// Short lines (up to shortLineBytes) may go past lineBytes by this much, so that
        /// long lines still being handled never shut out a well-behaved client.
        std::size_t shortLinesBytes = 8 * 1024 * 1024;
        std::size_t shortLineBytes = 64 * 1024;
        /// Longest line, without its line feed; a longer one closes its connection.
        std::size_t maxLineBytes = 16 * 1024 * 1024;
        /// Descriptors left for everything but connections still being read: a connection
        /// accepted into this reserve closes the one that has waited longest for its line.
        int reserveDescriptors = 64;
    };

    /// A request line read whole, without its line feed. Its bytes count against
    /// Limits::lineBytes until it is destroyed.
    class Line {
    public:
        Line(Line&& other) noexcept;
        Line& operator=(Line&&) = delete;
        Line(const Line&) = delete;
        ~Line();
        [[nodiscard]] std::string_view text() const { return text_; }

    private:
        friend class RequestReader;
        struct Held {
            std::atomic<std::size_t> bytes{0};
            std::atomic<std::size_t> lines{0};
        };
        Line(std::string text, std::shared_ptr<Held> held);
        std::string text_;
        std::shared_ptr<Held> held_;
    };

    /// Told a connection's line, on the reader's thread: it must not block.
    using Done = std::function<void(FileDescriptor connection, Line line)>;

    /// A reader with its own thread.
    explicit RequestReader(Limits limits);
    /// Closes every connection still being read and ends the thread.
    ~RequestReader();
    RequestReader(const RequestReader&) = delete;
    RequestReader& operator=(const RequestReader&) = delete;

    /// The reader the servers of this process share: the descriptors and memory it
    /// guards are the process's. Made when first asked for, ended with its last user.
    [[nodiscard]] static std::shared_ptr<RequestReader> shared();

    /// Reads one line from `connection` within `timeoutSeconds` and hands both to `done`.
    /// A connection that sends nothing in time, closes with nothing sent, fails, sends a
    /// line longer than maxLineBytes or is closed to make room is closed without a word.
    /// A peer that closes after part of a line delivers that part. `owner` names the
    /// connection's server for cancel().
    void add(const void* owner, FileDescriptor connection, double timeoutSeconds, Done done);

    /// Closes every connection of `owner` still being read; once this returns, `done` is
    /// called for none of them.
    void cancel(const void* owner);

    /// Keeps the process out of its descriptor reserve once `fd` has just been opened:
    /// closes the connections that have waited longest for their line while fewer than
    /// Limits::reserveDescriptors descriptors are free. False when it cannot (none is
    /// waiting); the caller then closes `fd`.
    [[nodiscard]] bool makeDescriptorRoom(int fd);

    /// Closes the connection that has waited longest for its line; false when there is none.
    bool closeOldest();

    /// Connections still being read.
    [[nodiscard]] std::size_t waitingCount() const;
    /// Bytes of lines held now: being read or handed on.
    [[nodiscard]] std::size_t heldBytes() const;

private:
    using Steady = std::chrono::steady_clock;
    struct Waiting {
        const void* owner;
        FileDescriptor connection;
        Steady::time_point deadline;
        Done done;
        std::string line;
    };
    using Entries = std::map<std::uint64_t, Waiting>;

    void run();
    /// Reads what `entry` has sent; false when it ended (closed or handed on).
    void readFrom(Entries::iterator entry);
    /// Makes room for `bytes` more of `entry`'s line; false when `entry` was closed.
    bool makeRoom(Entries::iterator entry, std::size_t bytes);
    void close(Entries::iterator entry);
    void handOn(Entries::iterator entry);
    void wake() const;

    const Limits limits_;
    mutable std::mutex lock_;
    Entries waiting_;
    std::uint64_t nextId_ = 0;
    /// Bytes of the lines in waiting_.
    std::size_t readingBytes_ = 0;
    /// Lines handed on, and their bytes; each Line takes itself off when it goes.
    std::shared_ptr<Line::Held> handed_;
    bool stopping_ = false;
    /// Descriptors open in the process, as last counted and kept up since.
    std::size_t openDescriptors_ = 0;
    Steady::time_point countedAt_;
    FileDescriptor wakeRead_;
    FileDescriptor wakeWrite_;
    std::thread thread_;
};

} // namespace tidewick
