// A command that ran but could not do what was asked, with its exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace tidewick {

/// Exit status of a control command when no Tidewick application answers.
inline constexpr int notRunningExitStatus = 3;

/// Thrown by a command callback; runCommandLine prints what() on standard error
/// (unless it is empty: the command has already said why) and exits with status().
class CommandFailure : public std::runtime_error {
public:
    CommandFailure(int status, const std::string& message)
        : std::runtime_error(message), status_(status) {}
    [[nodiscard]] int status() const { return status_; }

private:
    int status_;
};

} // namespace tidewick
