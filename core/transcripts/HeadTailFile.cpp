#include "transcripts/HeadTailFile.h"

#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>

namespace tidewick {

HeadTailFile::HeadTailFile(const std::string& path, Limits limits) {
    // Non-blocking, so that a pipe put where a record should be cannot hang the open.
    FileDescriptor file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0)
        throw SystemError("fstat", path, errno);
    if (!S_ISREG(info.st_mode))
        throw std::runtime_error(path + " is not a regular file.");
    size_ = info.st_size;

    if (size_ <= limits.whole || size_ <= limits.head + limits.tail) {
        tail_ = IO::readAt(file.get(), 0, static_cast<std::size_t>(size_), path);
        return;
    }
    head_ = IO::readAt(file.get(), 0, static_cast<std::size_t>(limits.head), path);
    head_.resize(head_.rfind('\n') + 1); // nothing at all when no line ends in the head
    // One byte more than the tail: when it is a line feed the tail starts on a whole line.
    const std::int64_t from = size_ - limits.tail - 1;
    tail_ = IO::readAt(file.get(), static_cast<std::uint64_t>(from),
                       static_cast<std::size_t>(limits.tail + 1), path);
    const std::size_t firstBreak = tail_.find('\n');
    const std::size_t cut = firstBreak == std::string::npos ? tail_.size() : firstBreak + 1;
    tail_.erase(0, cut);
    tailOffset_ = from + static_cast<std::int64_t>(cut);
}

} // namespace tidewick
