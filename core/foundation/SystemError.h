// The error thrown when a system call fails: names the call, the path or
// object it was given, and the system's own description of errno.
#pragma once

#include <stdexcept>
#include <string>

namespace tidewick {

class SystemError : public std::runtime_error {
public:
    /// A message such as "bind(/path): Address already in use".
    SystemError(const std::string& call, const std::string& subject, int code);
    /// The errno value of the failed call.
    [[nodiscard]] int code() const { return code_; }
    /// The system's description of the error alone ("Address already in use").
    [[nodiscard]] std::string reason() const;

private:
    int code_;
};

} // namespace tidewick
