#include "agents/ProcessAccess.h"

#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <signal.h>
#include <string_view>
#include <unistd.h>

namespace tidewick {

namespace {

std::string procPath(std::int32_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

// At most `limit` bytes of a small /proc file; empty when it cannot be read (the process
// may have ended meanwhile).
std::string readProcFile(const std::string& path, std::size_t limit) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return {};
    try {
        return IO::readAll(file.get(), limit, path);
    } catch (const SystemError&) {
        return {};
    }
}

class SystemProcesses final : public ProcessAccess {
public:
    std::optional<std::int64_t> startTime(std::int32_t pid) const override {
        if (pid <= 0)
            return std::nullopt;
        // "pid (name) state ppid ... starttime ...": the name may hold spaces and
        // parentheses, so the fields are counted from the last ')'. State is field 3,
        // the start time field 22.
        const std::string content = readProcFile(procPath(pid, "stat"), 1023);
        const std::size_t close = content.rfind(')');
        if (close == std::string::npos || close + 2 >= content.size())
            return std::nullopt;
        std::string_view rest = std::string_view(content).substr(close + 2);
        if (rest.front() == 'Z' || rest.front() == 'X')
            return std::nullopt;
        for (int field = 3; field < 22; ++field) {
            const std::size_t space = rest.find(' ');
            if (space == std::string_view::npos)
                return std::nullopt;
            rest.remove_prefix(space + 1);
        }
        std::int64_t ticks = 0;
        std::size_t digits = 0;
        for (; digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits)
            ticks = ticks * 10 + (rest[digits] - '0');
        if (digits == 0)
            return std::nullopt;
        return ticks;
    }

    std::optional<std::string> executable(std::int32_t pid) const override {
        char buffer[PATH_MAX];
        const std::string link = procPath(pid, "exe");
        const ssize_t length = ::readlink(link.c_str(), buffer, sizeof buffer);
        if (length <= 0 || static_cast<std::size_t>(length) >= sizeof buffer)
            return std::nullopt;
        std::string path(buffer, static_cast<std::size_t>(length));
        // A program replaced on disk since it started (an agent that updated itself).
        constexpr std::string_view deleted = " (deleted)";
        if (path.ends_with(deleted))
            path.resize(path.size() - deleted.size());
        return path;
    }

    std::vector<std::string> commandLine(std::int32_t pid) const override {
        const std::string buffer = readProcFile(procPath(pid, "cmdline"), 65536);
        std::vector<std::string> arguments;
        for (std::size_t start = 0; start < buffer.size();) {
            std::size_t end = buffer.find('\0', start);
            if (end == std::string::npos)
                end = buffer.size();
            arguments.push_back(buffer.substr(start, end - start));
            start = end + 1;
        }
        return arguments;
    }

    bool signal(std::int32_t pid, int number) const override {
        return pid > 0 && ::kill(pid, number) == 0;
    }
};

} // namespace

bool ProcessAccess::isSameProcess(std::int32_t pid, std::optional<std::int64_t> started) const {
    const std::optional<std::int64_t> now = startTime(pid);
    return now && (!started || *now == *started);
}

const ProcessAccess& ProcessAccess::system() {
    static const SystemProcesses processes;
    return processes;
}

} // namespace tidewick
