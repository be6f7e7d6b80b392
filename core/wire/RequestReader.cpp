#include "wire/RequestReader.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace tidewick {

namespace {

// Bytes asked of one recv(), and how many a connection may take in one turn before the
// others get theirs.
constexpr std::size_t chunkBytes = 64 * 1024;
constexpr int chunksPerTurn = 16;

void setFlags(int fd, int add) {
    const int flags = ::fcntl(fd, F_GETFL);
    (void)::fcntl(fd, F_SETFL, flags | add);
}

} // namespace

RequestReader::Line::Line(std::string text, std::shared_ptr<Held> held)
    : text_(std::move(text)), held_(std::move(held)) {
    held_->bytes += text_.size();
    ++held_->lines;
}

RequestReader::Line::Line(Line&& other) noexcept
    : text_(std::move(other.text_)), held_(std::move(other.held_)) {}

RequestReader::Line::~Line() {
    if (held_) {
        held_->bytes -= text_.size();
        --held_->lines;
    }
}

RequestReader::RequestReader(Limits limits)
    : limits_(limits), handed_(std::make_shared<Line::Held>()) {
    int ends[2];
    if (::pipe(ends) != 0)
        throw SystemError("pipe", "request reader", errno);
    wakeRead_ = FileDescriptor(ends[0]);
    wakeWrite_ = FileDescriptor(ends[1]);
    for (int end : ends) {
        setFlags(end, O_NONBLOCK);
        (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    thread_ = std::thread([this] { run(); });
}

RequestReader::~RequestReader() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    wake();
    thread_.join();
}

std::shared_ptr<RequestReader> RequestReader::shared() {
    static std::mutex made;
    static std::weak_ptr<RequestReader> instance;
    std::lock_guard guard(made);
    std::shared_ptr<RequestReader> reader = instance.lock();
    if (!reader) {
        reader = std::make_shared<RequestReader>(Limits{});
        instance = reader;
    }
    return reader;
}

void RequestReader::add(const void* owner, FileDescriptor connection, double timeoutSeconds,
                        Done done) {
    const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
    {
        std::lock_guard guard(lock_);
        waiting_.emplace(nextId_++,
                         Waiting{owner, std::move(connection), deadline, std::move(done), {}});
    }
    wake();
}

void RequestReader::cancel(const void* owner) {
    std::lock_guard guard(lock_);
    for (auto entry = waiting_.begin(); entry != waiting_.end();) {
        auto next = std::next(entry);
        if (entry->second.owner == owner)
            close(entry);
        entry = next;
    }
}

bool RequestReader::makeDescriptorRoom(int fd) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return true;
    const auto reserve = static_cast<rlim_t>(limits_.reserveDescriptors);
    std::lock_guard guard(lock_);
    // Counting the open descriptors costs a folder listing: worth it only once the
    // connections alone could come near the limit, or `fd` itself is near it (POSIX hands
    // out the lowest free number, so every lower one is in use).
    const auto connections = static_cast<rlim_t>(waiting_.size() + handed_->lines.load());
    if (static_cast<rlim_t>(fd) + reserve < limit.rlim_cur &&
        2 * (connections + reserve) < limit.rlim_cur) {
        countedAt_ = {}; // far from the limit: count afresh when near it again
        return true;
    }
    // A listing is counted at most ten times a second; in between, each connection taken
    // counts one more and each one closed here one less. What else opens or closes
    // descriptors meanwhile is caught up with at the next count.
    const auto now = Steady::now();
    if (now - countedAt_ >= std::chrono::milliseconds(100)) {
        try {
            // Lists itself too, and "." and ".." are left out.
            openDescriptors_ = File::listFolder("/dev/fd").size() - 1;
        } catch (const SystemError&) {
            openDescriptors_ = static_cast<std::size_t>(fd) + 1; // none left even to count
        }
        countedAt_ = now;
    } else {
        ++openDescriptors_;
    }
    while (static_cast<rlim_t>(openDescriptors_) + reserve > limit.rlim_cur) {
        --openDescriptors_; // `fd` itself, or the one closed to make room
        if (waiting_.empty())
            return false;
        close(waiting_.begin());
    }
    return true;
}

bool RequestReader::closeOldest() {
    std::lock_guard guard(lock_);
    if (waiting_.empty())
        return false;
    close(waiting_.begin());
    return true;
}

std::size_t RequestReader::waitingCount() const {
    std::lock_guard guard(lock_);
    return waiting_.size();
}

std::size_t RequestReader::heldBytes() const {
    std::lock_guard guard(lock_);
    return readingBytes_ + handed_->bytes.load();
}

void RequestReader::wake() const {
    const char byte = 1;
    // A full pipe already holds a wake-up.
    (void)!::write(wakeWrite_.get(), &byte, 1);
}

void RequestReader::close(Entries::iterator entry) {
    readingBytes_ -= entry->second.line.size();
    waiting_.erase(entry);
}

void RequestReader::handOn(Entries::iterator entry) {
    Waiting& waiting = entry->second;
    readingBytes_ -= waiting.line.size();
    // Room grown for a long line is given back before the line is decoded.
    if (waiting.line.capacity() > waiting.line.size() + waiting.line.size() / 8 + 64)
        waiting.line.shrink_to_fit();
    FileDescriptor connection = std::move(waiting.connection);
    Line line(std::move(waiting.line), handed_);
    Done done = std::move(waiting.done);
    waiting_.erase(entry);
    // Under the lock, so that cancel() never returns while a hand-over is under way.
    try {
        done(std::move(connection), std::move(line));
    } catch (...) {
        // The server could not take it: the connection and line end here.
    }
}

bool RequestReader::makeRoom(Entries::iterator entry, std::size_t bytes) {
    const bool shortLine = entry->second.line.size() + bytes <= limits_.shortLineBytes;
    const std::size_t limit = limits_.lineBytes + (shortLine ? limits_.shortLinesBytes : 0);
    while (readingBytes_ + handed_->bytes.load() + bytes > limit) {
        // The connection that has waited longest and holds part of a line makes room.
        auto oldest = std::find_if(waiting_.begin(), waiting_.end(), [&](const auto& other) {
            return other.first != entry->first && !other.second.line.empty();
        });
        if (oldest == waiting_.end()) {
            close(entry);
            return false;
        }
        close(oldest);
    }
    readingBytes_ += bytes;
    return true;
}

void RequestReader::readFrom(Entries::iterator entry) {
    static thread_local std::vector<char> chunk(chunkBytes);
    for (int turn = 0; turn < chunksPerTurn; ++turn) {
        Waiting& waiting = entry->second;
        const ssize_t got = ::recv(waiting.connection.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                close(entry);
            return;
        }
        if (got == 0) {
            // A peer that closes after part of a line still delivers it.
            if (waiting.line.empty())
                close(entry);
            else
                handOn(entry);
            return;
        }
        const auto* feed =
            static_cast<const char*>(std::memchr(chunk.data(), '\n', static_cast<std::size_t>(got)));
        const std::size_t piece = feed ? static_cast<std::size_t>(feed - chunk.data())
                                       : static_cast<std::size_t>(got);
        if (waiting.line.size() + piece > limits_.maxLineBytes) {
            close(entry);
            return;
        }
        if (!makeRoom(entry, piece))
            return;
        // Grown by a quarter at a time: a long line holds little room it does not use.
        const std::size_t needed = waiting.line.size() + piece;
        if (waiting.line.capacity() < needed)
            waiting.line.reserve(std::max(needed, std::min(limits_.maxLineBytes,
                                                           needed + needed / 4 + chunkBytes)));
        waiting.line.append(chunk.data(), piece);
        // One exchange per connection: whatever follows the line feed is dropped.
        if (feed) {
            handOn(entry);
            return;
        }
    }
}

void RequestReader::run() {
    (void)::pthread_setname_np(::pthread_self(), "tidewick.lines");
    std::vector<pollfd> polled;
    std::vector<std::uint64_t> ids;
    std::unique_lock guard(lock_);
    while (!stopping_) {
        polled.assign(1, pollfd{wakeRead_.get(), POLLIN, 0});
        ids.clear();
        auto next = Steady::time_point::max();
        for (const auto& [id, waiting] : waiting_) {
            polled.push_back(pollfd{waiting.connection.get(), POLLIN, 0});
            ids.push_back(id);
            next = std::min(next, waiting.deadline);
        }
        int timeout = -1;
        if (next != Steady::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Steady::now());
            timeout = static_cast<int>(std::clamp<long long>(left.count(), 0, 3600 * 1000));
        }
        guard.unlock();
        const int ready = ::poll(polled.data(), polled.size(), timeout);
        guard.lock();
        if (ready < 0 && errno != EINTR)
            ::usleep(1000); // nothing a retry cannot fix (ENOMEM)
        char drain[64];
        while (::read(wakeRead_.get(), drain, sizeof drain) > 0) {
        }
        // Results are matched by identity, not descriptor: one closed meanwhile may
        // already have a new connection under its number.
        for (std::size_t i = 1; ready > 0 && i < polled.size(); ++i) {
            if (polled[i].revents == 0)
                continue;
            auto entry = waiting_.find(ids[i - 1]);
            if (entry != waiting_.end())
                readFrom(entry);
        }
        const auto now = Steady::now();
        for (auto entry = waiting_.begin(); entry != waiting_.end();) {
            auto following = std::next(entry);
            if (entry->second.deadline <= now)
                close(entry);
            entry = following;
        }
    }
    waiting_.clear();
    readingBytes_ = 0;
}

} // namespace tidewick
