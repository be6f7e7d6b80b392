#include "agents/ProcessAccess.h"

#include "foundation/ProcFile.h"

#include <cerrno>
#include <climits>
#include <signal.h>
#include <string_view>
#include <unistd.h>

namespace tidewick {

namespace {

class SystemProcesses final : public ProcessAccess {
public:
    std::optional<std::int64_t> startTime(std::int32_t pid) const override {
        if (pid <= 0)
            return std::nullopt;
        // "pid (name) state ppid ... starttime ...": the name may hold spaces and
        // parentheses, so the fields are counted from the last ')'. State is field 3,
        // the start time field 22.
        const std::string content = ProcFile::read(pid, "stat", 1023);
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
        const std::string link = ProcFile::path(pid, "exe");
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
        return ProcFile::commandLine(pid);
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
