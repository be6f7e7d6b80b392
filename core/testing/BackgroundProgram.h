// Runs a program in the background for the end-to-end tests: standard input
// given up front, output collected in files, waited for with a bound.
#pragma once

#include "foundation/File.h"
#include "testing/ProgramRun.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tidewick::testing {

class BackgroundProgram {
public:
    /// Starts `argv` with exactly `environment` in its own process group, feeding it
    /// `input` and writing its output to `outputBase` + ".out" and ".err".
    BackgroundProgram(const std::vector<std::string>& argv,
                      const std::vector<std::string>& environment, const std::string& input,
                      std::string outputBase, const std::string& directory = {})
        : outputBase_(std::move(outputBase)) {
        int in[2];
        if (::pipe2(in, O_CLOEXEC) != 0)
            return;
        const int out =
            ::open((outputBase_ + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int err =
            ::open((outputBase_ + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        pid_ = spawnProgram(argv, environment, directory, in[0], out, err);
        ::close(out);
        ::close(err);
        ::close(in[0]);
        // Payloads are far smaller than a pipe's buffer.
        if (!input.empty() && ::write(in[1], input.data(), input.size()) < 0) {
            // The program exited without reading: its status tells.
        }
        ::close(in[1]);
    }

    ~BackgroundProgram() {
        if (pid_ > 0 && !status_) {
            ::kill(-pid_, SIGKILL);
            (void)waitFor(std::chrono::seconds(10));
        }
    }
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// The exit status (128 + signal when a signal ended it), or nothing while it
    /// still runs after `timeout`.
    std::optional<int> waitFor(std::chrono::milliseconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!status_) {
            int status = 0;
            pid_t done = ::waitpid(pid_, &status, WNOHANG);
            if (done == pid_)
                status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            else if (done < 0)
                status_ = -1;
            else if (std::chrono::steady_clock::now() >= deadline)
                break;
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return status_;
    }

    [[nodiscard]] bool isRunning() { return !waitFor(std::chrono::milliseconds(0)); }
    void signal(int number) { ::kill(pid_, number); }

    [[nodiscard]] std::string out() const { return readOrEmpty(outputBase_ + ".out"); }
    [[nodiscard]] std::string err() const { return readOrEmpty(outputBase_ + ".err"); }

private:
    static std::string readOrEmpty(const std::string& path) {
        return File::exists(path) ? File::read(path) : std::string();
    }

    std::string outputBase_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

} // namespace tidewick::testing
