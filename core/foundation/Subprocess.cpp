#include "foundation/Subprocess.h"

#include "foundation/IO.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace tidewick {

namespace {

using Milliseconds = std::chrono::milliseconds;

FileDescriptor memoryFile(const char* name) {
    FileDescriptor file(::memfd_create(name, MFD_CLOEXEC));
    if (!file)
        throw SystemError("memfd_create", name, errno);
    return file;
}

void rewind(const FileDescriptor& file, const char* name) {
    if (::lseek(file.get(), 0, SEEK_SET) != 0)
        throw SystemError("lseek", name, errno);
}

// Standard input holding exactly `input`: a file in memory, which the program reads
// at its own pace, so that handing it over never waits for the program.
FileDescriptor inputHolding(const std::string& input) {
    if (input.empty())
        return FileDescriptor::open("/dev/null", O_RDONLY);
    FileDescriptor file = memoryFile("input");
    IO::writeAll(file.get(), input, "input");
    rewind(file, "input");
    return file;
}

std::string contentOf(const FileDescriptor& file, const char* name) {
    rewind(file, name);
    return IO::readAll(file.get(), IO::noLimit, name);
}

// A descriptor that turns readable when `pid` ends; none where the kernel has no pidfds.
// Called through syscall(): glibc's own wrapper is newer than some systems we build on.
FileDescriptor endOf(pid_t pid) {
    return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

int statusFrom(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

// What posix_spawn is told to do in the new process before the program runs: take
// `in`, `out` and `err` as its standard descriptors, move to `directory`, start clean
// of what this process changed (no blocked signal, SIGPIPE not ignored) and perhaps
// lead a group of its own. Released however the start ends.
class SpawnSettings {
public:
    SpawnSettings(Subprocess::Group group, int in, int out, int err,
                  const std::string& directory) {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
        sigset_t none, brokenPipe;
        sigemptyset(&none);
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (group == Subprocess::Group::own) {
            flags |= POSIX_SPAWN_SETPGROUP;
            posix_spawnattr_setpgroup(&attributes, 0);
        }
        posix_spawnattr_setflags(&attributes, flags);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &brokenPipe);
        posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
        if (!directory.empty())
            posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
};

std::vector<char*> pointersTo(const std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (const std::string& s : strings)
        pointers.push_back(const_cast<char*>(s.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// Starts the program with `in`, `out` and `err` as its standard descriptors.
pid_t spawn(const Subprocess::Command& command, Subprocess::Group group, int in, int out,
            int err) {
    if (command.arguments.empty())
        throw SystemError("posix_spawn", "", EINVAL);
    const std::string& program = command.arguments.front();
    SpawnSettings settings(group, in, out, err, command.directory);
    std::vector<char*> arguments = pointersTo(command.arguments);
    std::vector<char*> environment;
    if (command.environment)
        environment = pointersTo(*command.environment);
    pid_t pid = -1;
    const int error =
        ::posix_spawn(&pid, program.c_str(), &settings.actions, &settings.attributes,
                      arguments.data(), command.environment ? environment.data() : environ);
    if (error != 0)
        throw SystemError("posix_spawn",
                          command.directory.empty() ? program
                                                    : program + " in " + command.directory,
                          error);
    return pid;
}

} // namespace

Subprocess::Result Subprocess::run(const Command& command, Group group,
                                   std::optional<Milliseconds> timeLimit) {
    // Output goes to files in memory rather than pipes: nothing has to be pumped
    // while waiting, and a program that starts others ends the wait when it ends.
    const FileDescriptor in = inputHolding(command.input);
    const FileDescriptor out = memoryFile("output");
    const FileDescriptor err = memoryFile("errors");
    Subprocess program(spawn(command, group, in.get(), out.get(), err.get()), group);
    Result result;
    std::optional<int> status = timeLimit ? program.wait(*timeLimit) : program.wait();
    if (!status) {
        result.timedOut = true;
        program.kill();
        status = program.wait();
    }
    result.status = *status;
    result.out = contentOf(out, "output");
    result.err = contentOf(err, "errors");
    return result;
}

Subprocess Subprocess::start(const Command& command, const std::string& outputPath,
                             const std::string& errorPath) {
    const FileDescriptor in = inputHolding(command.input);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    const FileDescriptor out = FileDescriptor::open(outputPath, flags, 0600);
    const FileDescriptor err =
        errorPath == outputPath ? FileDescriptor() : FileDescriptor::open(errorPath, flags, 0600);
    const pid_t pid = spawn(command, Group::own, in.get(), out.get(), err ? err.get() : out.get());
    return Subprocess(pid, Group::own);
}

Subprocess::Subprocess(Subprocess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), group_(other.group_),
      status_(std::exchange(other.status_, std::nullopt)), ended_(std::move(other.ended_)) {}

Subprocess& Subprocess::operator=(Subprocess&& other) noexcept {
    if (this == &other)
        return *this;
    pid_ = std::exchange(other.pid_, -1);
    group_ = other.group_;
    status_ = std::exchange(other.status_, std::nullopt);
    ended_ = std::move(other.ended_);
    return *this;
}

bool Subprocess::reap(int options) {
    if (status_)
        return true;
    int waitStatus = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid_, &waitStatus, options);
        if (done == pid_)
            break;
        if (done == 0)
            return false;
        if (errno != EINTR)
            throw SystemError("waitpid", std::to_string(pid_), errno);
    }
    status_ = statusFrom(waitStatus);
    return true;
}

int Subprocess::wait() {
    (void)reap(0);
    return *status_;
}

std::optional<int> Subprocess::wait(Milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // A pidfd turns readable when the program ends; where the system has none,
    // looking every few milliseconds does.
    if (!ended_ && !reap(WNOHANG))
        ended_ = endOf(pid_);
    while (!reap(WNOHANG)) {
        const auto left =
            std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= Milliseconds::zero())
            return std::nullopt;
        if (!ended_) {
            std::this_thread::sleep_for(std::min(left, Milliseconds(5)));
            continue;
        }
        pollfd entry{ended_.get(), POLLIN, 0};
        const auto step = std::min<Milliseconds::rep>(left.count(), 3600 * 1000);
        if (::poll(&entry, 1, static_cast<int>(step)) < 0 && errno != EINTR)
            throw SystemError("poll", std::to_string(pid_), errno);
    }
    return status_;
}

void Subprocess::signal(int number) const {
    // Until it is waited for, an ended program's id is not given to another.
    if (!status_)
        (void)::kill(pid_, number);
}

void Subprocess::kill() const {
    if (!status_)
        (void)::kill(group_ == Group::own ? -pid_ : pid_, SIGKILL);
}

} // namespace tidewick
