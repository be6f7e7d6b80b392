#include "foundation/SystemError.h"

#include <cstring>

namespace tidewick {

SystemError::SystemError(const std::string& call, const std::string& subject, int code)
    : std::runtime_error(call + "(" + subject + "): " + std::strerror(code)), code_(code) {}

std::string SystemError::reason() const { return std::strerror(code_); }

} // namespace tidewick
