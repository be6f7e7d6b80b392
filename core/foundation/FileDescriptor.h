// An open file descriptor with one owner, closed when the owner goes.
#pragma once

#include <string>
#include <sys/types.h>
#include <utility>

namespace tidewick {

/// Move-only. Holds one descriptor, or none (-1).
class FileDescriptor {
public:
    /// Holds nothing.
    FileDescriptor() = default;
    /// Takes ownership of `fd`; -1 means nothing.
    explicit FileDescriptor(int fd) : fd_(fd) {}
    /// Closes the descriptor held, ignoring a failure (use close() to see one).
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    /// open(2) with O_CLOEXEC added. Throws SystemError ("open(/path): Permission denied").
    [[nodiscard]] static FileDescriptor open(const std::string& path, int flags, mode_t mode = 0);

    /// The descriptor, or -1.
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
    /// Gives the descriptor up without closing it; -1 stays behind.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    /// Closes the descriptor held (errors ignored) and takes `fd` instead.
    void reset(int fd = -1) noexcept;
    /// Closes the descriptor now (nothing held: nothing to do). It is gone even when
    /// close(2) fails, which throws SystemError("close", subject, ...): a write the
    /// system had deferred may have failed.
    void close(const std::string& subject);

private:
    int fd_ = -1;
};

} // namespace tidewick
