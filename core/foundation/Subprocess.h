// Starting another program: never through a shell, with exactly the arguments,
// environment, folder and input given; either run to its end within a time
// limit, or started to go on by itself with its output in files.
#pragma once

#include "foundation/FileDescriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tidewick {

/// One started program. Not thread-safe.
class Subprocess {
public:
    /// What to start.
    struct Command {
        /// The program's path, then its arguments. The path is not looked up in PATH.
        std::vector<std::string> arguments;
        /// Exactly the program's environment ("NAME=value"); nothing: this process's own.
        std::optional<std::vector<std::string>> environment = std::nullopt;
        /// The folder it starts in; empty: this process's current folder.
        std::string directory = {};
        /// All the program reads on standard input, which then ends.
        std::string input = {};
    };

    /// The process group the program joins.
    enum class Group {
        /// This process's: a Ctrl-C at the terminal reaches both.
        shared,
        /// A new one that it leads, so that kill() reaches whatever it starts too.
        own,
    };

    /// How a program run to its end ended, and what it wrote.
    struct Result {
        /// The exit status, or 128 + the number of the signal that ended it.
        int status = -1;
        /// Whether it ran past its time limit and was killed.
        bool timedOut = false;
        std::string out;
        std::string err;
    };

    /// Runs `command` to its end and collects its standard output and error. One still
    /// running after `timeLimit` (nothing: no limit) is killed, with its group when it
    /// leads one. Throws SystemError naming the call that failed, for instance
    /// "posix_spawn(/usr/bin/missing): No such file or directory" (the folder follows
    /// the program when one is given: "posix_spawn(/bin/ls in /missing): ...").
    [[nodiscard]] static Result run(const Command& command, Group group,
                                    std::optional<std::chrono::milliseconds> timeLimit);

    /// Starts `command` in a group of its own and returns at once. Its standard output
    /// goes to `outputPath` and its standard error to `errorPath`, each created or
    /// emptied with mode 0600 (the same path twice: one file for both). Throws
    /// SystemError naming the call that failed.
    [[nodiscard]] static Subprocess start(const Command& command, const std::string& outputPath,
                                          const std::string& errorPath);

    /// Leaves the program running. One that ends unwaited-for stays in the process table
    /// until this process ends.
    ~Subprocess() = default;
    Subprocess(Subprocess&& other) noexcept;
    Subprocess& operator=(Subprocess&& other) noexcept;
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

    /// Waits at most `timeout` for the program to end: its status (as in Result), or
    /// nothing while it runs on. Once known, the status is kept. Throws SystemError.
    [[nodiscard]] std::optional<int> wait(std::chrono::milliseconds timeout);
    /// Waits as long as the program runs; its status. Throws SystemError.
    int wait();
    /// Whether the program still runs. Throws SystemError.
    [[nodiscard]] bool isRunning() { return !wait(std::chrono::milliseconds(0)); }

    /// Sends signal `number` to the program alone; nothing once it has ended.
    void signal(int number) const;
    /// Kills the program (SIGKILL), and everything in its group when it leads one;
    /// nothing once it has ended.
    void kill() const;

private:
    Subprocess(pid_t pid, Group group) : pid_(pid), group_(group) {}
    [[nodiscard]] bool reap(int options);

    pid_t pid_ = -1;
    Group group_ = Group::shared;
    std::optional<int> status_;
    /// Readable once the program has ended (a pidfd), opened on the first bounded wait.
    FileDescriptor ended_;
};

} // namespace tidewick
