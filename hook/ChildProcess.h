// Test helper: runs a program as a child process with a given environment,
// feeds its standard input and captures standard output and standard error.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tidewick::testing {

class ChildProcess {
public:
    struct Result {
        std::string out;
        std::string err;
        /// The exit status, or -1 when the process died of a signal.
        int status = -1;
        int signal = 0;
        double seconds = 0;
    };

    /// Starts `program` with `arguments` (not including the program name)
    /// and exactly the variables `environment`. Standard input is a pipe, or
    /// `stdinFd` when it is given (for example a terminal).
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment, int stdinFd = -1) {
        // A child that stops reading its input must not kill the test with SIGPIPE.
        std::signal(SIGPIPE, SIG_IGN);
        start_ = std::chrono::steady_clock::now();
        int in[2], out[2], err[2];
        EXPECT_EQ(::pipe2(in, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(err, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, stdinFd >= 0 ? stdinFd : in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        // The child starts with SIGPIPE at its default, as under an agent.
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

        std::vector<std::string> argv{program};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        std::vector<char*> argPointers, envPointers;
        for (auto& a : argv)
            argPointers.push_back(const_cast<char*>(a.c_str()));
        argPointers.push_back(nullptr);
        std::vector<std::string> env = environment;
        for (auto& e : env)
            envPointers.push_back(const_cast<char*>(e.c_str()));
        envPointers.push_back(nullptr);
        int spawned = ::posix_spawn(&pid_, program.c_str(), &actions, &attributes,
                                    argPointers.data(), envPointers.data());
        EXPECT_EQ(spawned, 0) << program;
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        if (stdinFd >= 0) {
            ::close(in[1]);
            in[1] = -1;
        }
        stdin_ = in[1];
        stdout_ = out[0];
        stderr_ = err[0];
    }

    ~ChildProcess() {
        if (pid_ > 0 && !reaped_) {
            ::kill(pid_, SIGKILL);
            (void)wait("");
        }
    }

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// Writes `input` (then closes standard input), collects both outputs
    /// until the child closes them, and reaps it. A child that stops reading
    /// early simply gets the rest of its input dropped.
    Result wait(const std::string& input) {
        size_t written = 0;
        Result result;
        if (stdin_ >= 0 && input.empty())
            closeFd(stdin_);
        if (stdin_ >= 0)
            ::fcntl(stdin_, F_SETFL, O_NONBLOCK);
        while (stdout_ >= 0 || stderr_ >= 0) {
            pollfd entries[3] = {{stdout_, POLLIN, 0}, {stderr_, POLLIN, 0}, {stdin_, POLLOUT, 0}};
            if (::poll(entries, 3, 30000) <= 0)
                break;
            drain(entries[0], stdout_, result.out);
            drain(entries[1], stderr_, result.err);
            if (stdin_ >= 0 && entries[2].revents) {
                ssize_t got = ::write(stdin_, input.data() + written,
                                      std::min<size_t>(input.size() - written, 1 << 16));
                if (got > 0)
                    written += static_cast<size_t>(got);
                if ((got < 0 && errno != EAGAIN && errno != EINTR) || written == input.size())
                    closeFd(stdin_);
            }
        }
        closeFd(stdin_);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        reaped_ = true;
        result.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        if (WIFEXITED(status))
            result.status = WEXITSTATUS(status);
        else if (WIFSIGNALED(status))
            result.signal = WTERMSIG(status);
        return result;
    }

private:
    static void closeFd(int& fd) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }

    static void drain(const pollfd& entry, int& fd, std::string& into) {
        if (fd < 0 || !entry.revents)
            return;
        char buffer[65536];
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got > 0)
            into.append(buffer, static_cast<size_t>(got));
        else if (got == 0 || errno != EINTR)
            closeFd(fd);
    }

    pid_t pid_ = -1;
    bool reaped_ = false;
    int stdin_ = -1, stdout_ = -1, stderr_ = -1;
    std::chrono::steady_clock::time_point start_;
};

} // namespace tidewick::testing
