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

ConnectionError ConnectionError::connectUndone(const std::string& configPath,
                                               const ConnectionError& recordFailure) {
    return ConnectionError(Case::notRecorded,
                           "Tidewick couldn't write " + recordFailure.path() + ": " +
                               recordFailure.reason() + ". It put " + configPath +
                               " back as it was, so nothing was changed.",
                           recordFailure.path(), recordFailure.reason());
}

ConnectionError ConnectionError::connectNotUndone(AgentKind agent, const std::string& configPath,
                                                  const ConnectionError& recordFailure,
                                                  const std::string& undoReason) {
    return ConnectionError(Case::notRecorded,
                           "Tidewick added its hooks to " + configPath + " but couldn't write " +
                               recordFailure.path() + ": " + recordFailure.reason() +
                               ". It couldn't take them out again (" + undoReason + "), so " +
                               std::string(displayName(agent)) + " has Tidewick's hooks.",
                           recordFailure.path(), recordFailure.reason());
}

ConnectionError ConnectionError::disconnectNotRecorded(AgentKind agent,
                                                       const std::string& configPath,
                                                       const ConnectionError& recordFailure) {
    return ConnectionError(Case::notRecorded,
                           "Tidewick removed its hooks from " + configPath +
                               " but couldn't write " + recordFailure.path() + ": " +
                               recordFailure.reason() + ". " + std::string(displayName(agent)) +
                               " is disconnected.",
                           recordFailure.path(), recordFailure.reason());
}

} // namespace tidewick
