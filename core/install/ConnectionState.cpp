#include "install/ConnectionState.h"

namespace tidewick {

std::string ConnectionState::label() const {
    switch (case_) {
    case Case::connected:
        return "connected";
    case Case::disconnected:
        return "disconnected";
    case Case::notInstalled:
        return "not installed";
    case Case::unreadable:
        return "unreadable";
    case Case::hooksDisabled:
        return "hooks disabled";
    case Case::needsReconnect:
        return "needs reconnect";
    case Case::awaitingApproval:
        return "waiting for your approval in Codex";
    }
    return "disconnected";
}

} // namespace tidewick
