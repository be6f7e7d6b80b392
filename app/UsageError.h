// A command line that cannot be carried out as written (exit status 2).
#pragma once

#include <stdexcept>

namespace tidewick {

/// Thrown by a command for a wrong argument; what() is the message for the user.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The exit statuses of `tidewick`.
enum class ExitStatus : int {
    success = 0,
    /// Tidewick refused: a HookConfigError or ConnectionError.
    refused = 1,
    /// The command line was wrong.
    usage = 2,
};

} // namespace tidewick
