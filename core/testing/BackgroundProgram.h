// Runs a program in the background for the end-to-end tests: standard input
// given up front, output collected in files, waited for with a bound, killed
// with everything it started when the test is done with it.
#pragma once

#include "foundation/File.h"
#include "foundation/Subprocess.h"
#include "foundation/SystemError.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tidewick::testing {

class BackgroundProgram {
public:
    /// Starts `argv` with exactly `environment` in its own process group, feeding it
    /// `input` and writing its output to `outputBase` + ".out" and ".err".
    /// Throws SystemError when it cannot be started.
    BackgroundProgram(const std::vector<std::string>& argv,
                      const std::vector<std::string>& environment, const std::string& input,
                      std::string outputBase, const std::string& directory = {})
        : outputBase_(std::move(outputBase)),
          program_(Subprocess::start({argv, environment, directory, input}, outputBase_ + ".out",
                                     outputBase_ + ".err")) {}

    ~BackgroundProgram() {
        try {
            program_.kill();
            (void)program_.wait(std::chrono::seconds(10));
        } catch (const SystemError&) {
            // Already reaped elsewhere: nothing left to end.
        }
    }
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    [[nodiscard]] pid_t pid() const { return program_.pid(); }

    /// The exit status (128 + signal when a signal ended it), or nothing while it
    /// still runs after `timeout`.
    std::optional<int> waitFor(std::chrono::milliseconds timeout) { return program_.wait(timeout); }

    [[nodiscard]] bool isRunning() { return program_.isRunning(); }
    /// Sends signal `number` to the program alone.
    void signal(int number) { program_.signal(number); }

    [[nodiscard]] std::string out() const { return readOrEmpty(outputBase_ + ".out"); }
    [[nodiscard]] std::string err() const { return readOrEmpty(outputBase_ + ".err"); }

private:
    static std::string readOrEmpty(const std::string& path) {
        return File::exists(path) ? File::read(path) : std::string();
    }

    std::string outputBase_;
    Subprocess program_;
};

} // namespace tidewick::testing
