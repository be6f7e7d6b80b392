#include "service/SessionActions.h"

namespace tidewick {

namespace {
constexpr const char* notHere = "This view of Tidewick can't do that.";
}

SessionActions::Result SessionActions::continueSession(const SessionKey&, std::string) {
    return {false, notHere};
}

SessionActions::Result SessionActions::endSession(const SessionKey&) {
    return {false, notHere};
}

} // namespace tidewick
