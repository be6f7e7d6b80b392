// A tmux server of a test's own, for the terminal interface tests: programs in
// named sessions of a given size, their screens captured and keys sent to them.
// Test-only.
#pragma once

#include "testing/ProgramRun.h"
#include "testing/TemporaryDirectory.h"

#include "foundation/File.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tidewick::testing {

/// Its own socket and directory; killed, with everything in it, at the end.
class Tmux {
public:
    static constexpr const char* path = "/usr/bin/tmux";

    Tmux() {
        static std::atomic<int> counter{0};
        socket_ = "tw-ui-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    }
    ~Tmux() { (void)run({"kill-server"}); }

    [[nodiscard]] static bool isInstalled() { return File::isExecutableFile(path); }

    ProgramResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {path, "-L", socket_, "-f", "/dev/null"});
        return runProgram(arguments,
                          {"TMUX_TMPDIR=" + directory_.path(), "TERM=xterm-256color",
                           "LANG=C.UTF-8", "PATH=/usr/bin:/bin"},
                          {}, {}, std::chrono::seconds(20));
    }
    /// Runs the shell command `command` in a new session `name` of 100 × 30.
    [[nodiscard]] bool start(const std::string& name, const std::string& command) const {
        return run({"new-session", "-d", "-s", name, "-x", "100", "-y", "30", command}).status == 0;
    }
    std::string screen(const std::string& name) const {
        return run({"capture-pane", "-p", "-t", name}).out;
    }
    /// The screen with its colours and attributes as escape sequences.
    std::string styledScreen(const std::string& name) const {
        return run({"capture-pane", "-e", "-p", "-t", name}).out;
    }
    void keys(const std::string& name, std::vector<std::string> keys) const {
        keys.insert(keys.begin(), {"send-keys", "-t", name});
        (void)run(keys);
    }
    /// The process running in the session's pane; 0 when there is none.
    [[nodiscard]] pid_t panePid(const std::string& name) const {
        const std::string out = run({"display-message", "-p", "-t", name, "#{pane_pid}"}).out;
        return out.empty() ? 0 : static_cast<pid_t>(std::stol(out));
    }

    /// Polls the screen of `name` until `shown` holds for it (generous: a loaded machine,
    /// sanitizers); false, with a failure showing the screen, when it never does.
    template <typename Shown> bool waitFor(const std::string& name, Shown shown) const {
        std::string captured;
        for (int i = 0; i < 300; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
            captured = screen(name);
            if (shown(captured))
                return true;
        }
        ADD_FAILURE() << name << " shows:\n" << captured;
        return false;
    }
    /// Polls until every part shows on the screen of `name`.
    bool waitForAll(const std::string& name, std::initializer_list<std::string> parts) const {
        return waitFor(name, [&](const std::string& captured) {
            return std::all_of(parts.begin(), parts.end(), [&](const std::string& part) {
                return captured.find(part) != std::string::npos;
            });
        });
    }
    /// Polls until `part` no longer shows on the screen of `name`.
    bool waitForGone(const std::string& name, const std::string& part) const {
        return waitFor(name, [&](const std::string& captured) {
            return captured.find(part) == std::string::npos;
        });
    }

    /// Polls until the program in `name` has ended.
    bool waitForEnd(const std::string& name) const {
        return waitFor(name, [&](const std::string&) {
            return run({"has-session", "-t", name}).status != 0;
        });
    }

private:
    TemporaryDirectory directory_;
    std::string socket_;
};

} // namespace tidewick::testing
