#include "foundation/MappedFile.h"

#include "foundation/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {

MappedFile::MappedFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw SystemError("open", path, errno);
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const int error = errno;
        ::close(fd);
        throw SystemError("fstat", path, error);
    }
    size_ = static_cast<std::size_t>(info.st_size);
    if (size_ == 0) {
        ::close(fd); // nothing to map
        return;
    }
    void* data = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
    const int error = errno;
    ::close(fd); // the mapping keeps the file
    if (data == MAP_FAILED) {
        size_ = 0;
        throw SystemError("mmap", path, error);
    }
    data_ = static_cast<const char*>(data);
}

MappedFile::~MappedFile() {
    if (data_)
        ::munmap(const_cast<char*>(data_), size_);
}

} // namespace tidewick
