#include "install/ConnectionError.h"

namespace tidewick {

ConnectionError ConnectionError::notInstalled(AgentKind agent) {
    return ConnectionError(Case::notInstalled,
                           std::string(displayName(agent)) + " does not appear to be installed.");
}

ConnectionError ConnectionError::unreadable(const std::string& path, const std::string& reason) {
    return ConnectionError(Case::unreadable,
                           "Tidewick can't safely read " + path + " (" + reason +
                               "), so it left the file alone.",
                           path, reason);
}

ConnectionError ConnectionError::writeFailed(const std::string& path, const std::string& reason) {
    return ConnectionError(
        Case::writeFailed,
        "Tidewick couldn't write " + path + ": " + reason + ". Nothing was changed.", path, reason);
}

ConnectionError ConnectionError::helperMissing() {
    return ConnectionError(Case::helperMissing, "The Tidewick helper isn't available.");
}

} // namespace tidewick
