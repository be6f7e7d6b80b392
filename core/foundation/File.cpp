#include "foundation/File.h"

#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {

namespace {

std::string temporarySibling(const std::string& path) {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".tmp-%d-%08llx", static_cast<int>(getpid()),
                  static_cast<unsigned long long>(generator() & 0xffffffffULL));
    return path + suffix;
}

} // namespace

AtomicFile::AtomicFile(std::string path, mode_t mode) : path_(std::move(path)) {
    tempPath_ = temporarySibling(path_);
    fd_ = ::open(tempPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd_ < 0)
        throw SystemError("open", tempPath_, errno);
    // The umask may have narrowed the mode; the caller asked for exactly this one.
    if (::fchmod(fd_, mode) != 0) {
        int error = errno;
        ::close(fd_);
        ::unlink(tempPath_.c_str());
        fd_ = -1;
        throw SystemError("fchmod", tempPath_, error);
    }
}

AtomicFile::~AtomicFile() {
    if (fd_ >= 0) {
        ::close(fd_);
        ::unlink(tempPath_.c_str());
    }
}

void AtomicFile::write(std::string_view data) {
    while (!data.empty()) {
        ssize_t written = ::write(fd_, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw SystemError("write", tempPath_, errno);
        }
        data.remove_prefix(static_cast<size_t>(written));
    }
}

void AtomicFile::commit() {
    if (::fsync(fd_) != 0)
        throw SystemError("fsync", tempPath_, errno);
    if (::close(fd_) != 0) {
        fd_ = -1;
        int error = errno;
        ::unlink(tempPath_.c_str());
        throw SystemError("close", tempPath_, error);
    }
    fd_ = -1;
    if (::rename(tempPath_.c_str(), path_.c_str()) != 0) {
        int error = errno;
        ::unlink(tempPath_.c_str());
        throw SystemError("rename", path_, error);
    }
}

namespace File {

std::string read(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw SystemError("open", path, errno);
    struct stat info {};
    size_t expected =
        ::fstat(fd, &info) == 0 && info.st_size > 0 ? static_cast<size_t>(info.st_size) : 0;
    // Read straight into the result; the size from fstat is only a hint (the file may
    // grow, and some files report 0), so keep going until read() says the end.
    std::string data(expected + 1, '\0');
    size_t used = 0;
    for (;;) {
        if (used == data.size())
            data.resize(std::max<size_t>(data.size() * 2, 65536));
        ssize_t got = ::read(fd, data.data() + used, data.size() - used);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            int error = errno;
            ::close(fd);
            throw SystemError("read", path, error);
        }
        if (got == 0)
            break;
        used += static_cast<size_t>(got);
    }
    ::close(fd);
    data.resize(used);
    return data;
}

void writeAtomically(const std::string& path, std::string_view data, mode_t mode) {
    AtomicFile file(path, mode);
    file.write(data);
    file.commit();
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool isExecutableFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

void makeDirectories(const std::string& path, mode_t mode) {
    if (path.empty())
        return;
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return;
        throw SystemError("mkdir", path, ENOTDIR);
    }
    std::string up = parent(path);
    if (up != path && up != "." && up != "/")
        makeDirectories(up, mode);
    if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST)
        throw SystemError("mkdir", path, errno);
    // mkdir honours the umask; owner-only folders must stay exactly as asked.
    if (::chmod(path.c_str(), mode) != 0)
        throw SystemError("chmod", path, errno);
}

std::string parent(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string join(const std::string& directory, std::string_view name) {
    if (directory.empty())
        return std::string(name);
    std::string out = directory;
    if (out.back() != '/')
        out.push_back('/');
    out += name;
    return out;
}

} // namespace File
} // namespace tidewick
