#include "foundation/ProcessIdentity.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <unistd.h>

#if defined(__APPLE__)
#include <sys/sysctl.h>
#else
#include "foundation/File.h"
#include "foundation/SystemError.h"

#include <charconv>
#endif

namespace tidewick {

namespace {

#if defined(__APPLE__)

std::optional<std::uint64_t> startTimeOf(pid_t pid) {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    kinfo_proc info{};
    size_t size = sizeof info;
    if (::sysctl(name, 4, &info, &size, nullptr, 0) != 0 || size == 0)
        return std::nullopt;
    const timeval started = info.kp_proc.p_starttime;
    return static_cast<std::uint64_t>(started.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(started.tv_usec);
}

#else

// Field 22 of /proc/<pid>/stat: clock ticks from boot to the process's start. The
// command name in field 2 may hold spaces and parentheses, so fields are counted from
// its closing parenthesis.
std::optional<std::uint64_t> startTimeOf(pid_t pid) {
    std::string stat;
    try {
        stat = File::read("/proc/" + std::to_string(pid) + "/stat");
    } catch (const SystemError&) {
        return std::nullopt;
    }
    std::size_t at = stat.rfind(')');
    if (at == std::string::npos)
        return std::nullopt;
    for (int field = 2; field < 22; ++field) {
        at = stat.find(' ', at + 1);
        if (at == std::string::npos)
            return std::nullopt;
    }
    std::uint64_t ticks = 0;
    const char* first = stat.data() + at + 1;
    const auto [end, error] = std::from_chars(first, stat.data() + stat.size(), ticks);
    if (error != std::errc() || end == first)
        return std::nullopt;
    return ticks;
}

#endif

} // namespace

ProcessIdentity ProcessIdentity::current() {
    static const ProcessIdentity self{::getpid(), startTimeOf(::getpid()).value_or(0)};
    // A child forked from this process is another process.
    if (self.pid != ::getpid())
        return ProcessIdentity{::getpid(), startTimeOf(::getpid()).value_or(0)};
    return self;
}

std::optional<ProcessIdentity> ProcessIdentity::of(pid_t pid) {
    if (pid <= 0)
        return std::nullopt;
    const std::optional<std::uint64_t> started = startTimeOf(pid);
    if (!started)
        return std::nullopt;
    return ProcessIdentity{pid, *started};
}

bool ProcessIdentity::isRunning() const {
    return of(pid) == *this;
}

} // namespace tidewick
