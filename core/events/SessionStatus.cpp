#include "events/SessionStatus.h"

#include <array>

namespace tidewick {

namespace {
constexpr std::array<std::string_view, 7> names = {"working", "needsPermission", "waitingReply",
                                                   "finished", "idle", "error", "ended"};
constexpr std::array<std::string_view, 7> labels = {"Working",  "Needs permission", "Waiting for reply",
                                                    "Finished", "Idle",             "Error",
                                                    "Ended"};
} // namespace

std::string_view rawValue(SessionStatus status) { return names[static_cast<size_t>(status)]; }

std::optional<SessionStatus> sessionStatusFromRaw(std::string_view raw) {
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == raw)
            return static_cast<SessionStatus>(i);
    return std::nullopt;
}

std::string_view label(SessionStatus status) { return labels[static_cast<size_t>(status)]; }

bool needsYou(SessionStatus status) {
    return status == SessionStatus::needsPermission || status == SessionStatus::waitingReply;
}

} // namespace tidewick
