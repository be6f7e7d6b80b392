#include "foundation/File.h"

#include "foundation/IO.h"
#include "foundation/ProcessIdentity.h"
#include "foundation/SystemError.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {

namespace {

constexpr std::string_view temporaryMark = ".tmp-";

// "<path>.tmp-<pid>-<start>-<random>": the writer's process id and start time let a later
// start tell a temporary whose writer died from one still being written.
std::string temporarySibling(const std::string& path) {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    const ProcessIdentity writer = ProcessIdentity::current();
    char suffix[80];
    std::snprintf(suffix, sizeof suffix, ".tmp-%d-%llu-%08llx", static_cast<int>(writer.pid),
                  static_cast<unsigned long long>(writer.startTime),
                  static_cast<unsigned long long>(generator() & 0xffffffffULL));
    return path + suffix;
}

// Splits "<digits>-" off the front of `text`; nothing when it does not start that way.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data() || end == text.data() + text.size() ||
        *end != '-')
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return value;
}

bool isRandomPart(std::string_view text) {
    return text.size() == 8 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

enum class Writer { none, running, gone };

// Whether `name` is a temporary of an atomic write and, if so, whether its writer still
// runs. Names of earlier versions carry only the process id: a live process with that id
// may be the writer, so such a temporary is kept.
Writer writerOf(std::string_view name) {
    const std::size_t mark = name.rfind(temporaryMark);
    if (mark == std::string_view::npos || mark == 0)
        return Writer::none;
    std::string_view rest = name.substr(mark + temporaryMark.size());
    const std::optional<std::uint64_t> pid = takeNumber(rest);
    if (!pid || *pid == 0 || *pid > INT_MAX)
        return Writer::none;
    if (isRandomPart(rest)) {
        const bool alive = ::kill(static_cast<pid_t>(*pid), 0) == 0 || errno == EPERM;
        return alive ? Writer::running : Writer::gone;
    }
    const std::optional<std::uint64_t> started = takeNumber(rest);
    if (!started || !isRandomPart(rest))
        return Writer::none;
    const ProcessIdentity writer{static_cast<pid_t>(*pid), *started};
    return writer.isRunning() ? Writer::running : Writer::gone;
}

} // namespace

AtomicFile::AtomicFile(std::string path, mode_t mode) : path_(std::move(path)) {
    tempPath_ = temporarySibling(path_);
    file_ = FileDescriptor::open(tempPath_, O_WRONLY | O_CREAT | O_EXCL, mode);
    // The umask may have narrowed the mode; the caller asked for exactly this one.
    if (::fchmod(file_.get(), mode) != 0) {
        int error = errno;
        file_.reset();
        ::unlink(tempPath_.c_str());
        throw SystemError("fchmod", tempPath_, error);
    }
}

AtomicFile::~AtomicFile() {
    if (file_) {
        file_.reset();
        ::unlink(tempPath_.c_str());
    }
}

void AtomicFile::write(std::string_view data) {
    IO::writeAll(file_.get(), data, tempPath_);
}

void AtomicFile::commit() {
    if (::fsync(file_.get()) != 0)
        throw SystemError("fsync", tempPath_, errno);
    try {
        file_.close(tempPath_);
    } catch (const SystemError&) {
        ::unlink(tempPath_.c_str());
        throw;
    }
    if (::rename(tempPath_.c_str(), path_.c_str()) != 0) {
        int error = errno;
        ::unlink(tempPath_.c_str());
        throw SystemError("rename", path_, error);
    }
}

namespace File {

std::string read(const std::string& path) {
    const FileDescriptor file = FileDescriptor::open(path, O_RDONLY);
    return IO::readAll(file.get(), IO::noLimit, path);
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

std::vector<std::string> removeStaleTemporaries(const std::string& directory) {
    std::vector<std::string> removed;
    std::vector<std::string> names;
    try {
        names = listFolder(directory);
    } catch (const SystemError&) {
        return removed; // nothing to clean where there is no folder
    }
    for (const std::string& name : names) {
        if (writerOf(name) != Writer::gone)
            continue;
        const std::string path = join(directory, name);
        struct stat info {};
        if (::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
            ::unlink(path.c_str()) == 0)
            removed.push_back(path);
    }
    return removed;
}

std::vector<std::string> listFolder(const std::string& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(directory.c_str()), ::closedir);
    if (!folder)
        throw SystemError("opendir", directory, errno);
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    return names;
}

std::optional<std::string> linkTarget(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length < 0 || static_cast<std::size_t>(length) == sizeof target)
        return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

std::string resolveLinks(const std::string& path) {
    std::string current = path;
    // Follow the last component by hand so a dangling link still names the
    // file it would create; give up on loops like the kernel does.
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info {};
        if (::lstat(current.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            break;
        const std::optional<std::string> next = linkTarget(current);
        if (!next)
            break;
        current = next->starts_with('/') ? *next : join(parent(current), *next);
    }
    // Links among the folders matter too: a rename must land beside the real file.
    const std::unique_ptr<char, void (*)(void*)> folder(::realpath(parent(current).c_str(), nullptr),
                                                        std::free);
    return folder ? join(folder.get(), lastComponent(current)) : current;
}

} // namespace File
} // namespace tidewick
