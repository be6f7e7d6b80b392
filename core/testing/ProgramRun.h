// Runs a program for the end-to-end tests: given arguments, environment,
// standard input and working directory, bounded in time, output captured.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tidewick::testing {

/// Starts `argv` with exactly `environment` ("NAME=value" entries) in its own
/// process group, in `directory` (empty: the current one), with `in`, `out` and
/// `err` as its standard descriptors. The child's pid, or -1.
inline pid_t spawnProgram(const std::vector<std::string>& argv,
                          const std::vector<std::string>& environment, const std::string& directory,
                          int in, int out, int err) {
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<char*> env;
    for (const std::string& e : environment)
        env.push_back(const_cast<char*>(e.c_str()));
    env.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid == 0) {
        ::setpgid(0, 0);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        if (!directory.empty() && ::chdir(directory.c_str()) != 0)
            ::_exit(126);
        ::execve(args[0], args.data(), env.data());
        ::_exit(127);
    }
    return pid;
}

struct ProgramResult {
    /// The exit status, or 128 + the signal that ended the program.
    int status = -1;
    bool timedOut = false;
    std::string out;
    std::string err;
};

/// Runs `argv` with exactly `environment` ("NAME=value" entries) in `directory`
/// (empty: the current one), feeding `input` on standard input. A program
/// still running after `timeout` is killed with its process group.
inline ProgramResult runProgram(const std::vector<std::string>& argv,
                                const std::vector<std::string>& environment,
                                const std::string& input = {}, const std::string& directory = {},
                                std::chrono::seconds timeout = std::chrono::seconds(60)) {
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        return {};
    pid_t pid = spawnProgram(argv, environment, directory, in[0], out[1], err[1]);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    // Small inputs fit the pipe; the tests never send more.
    if (!input.empty() && ::write(in[1], input.data(), input.size()) < 0) {
        // The program may have exited without reading: its status tells.
    }
    ::close(in[1]);

    ProgramResult result;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            ::kill(-pid, SIGKILL);
            break;
        }
        if (::poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            char buffer[65536];
            ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
            if (got <= 0) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
                continue;
            }
            (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(got));
        }
    }
    for (pollfd& fd : fds)
        if (fd.fd >= 0)
            ::close(fd.fd);
    int status = 0;
    ::waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

} // namespace tidewick::testing
