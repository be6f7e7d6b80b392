#include "events/EventKind.h"

#include <array>

namespace tidewick {

namespace {
constexpr std::array<std::string_view, 13> eventKindNames = {
    "sessionStarted", "working",     "toolStarted", "toolFinished", "permissionRequested",
    "turnFinished",   "notification", "message",    "compaction",   "interrupted",
    "error",          "sessionEnded", "userPrompt"};
constexpr std::array<std::string_view, 3> decisionTypeNames = {"none", "permission", "reply"};
} // namespace

std::string_view rawValue(EventKind kind) { return eventKindNames[static_cast<size_t>(kind)]; }

std::optional<EventKind> eventKindFromRaw(std::string_view raw) {
    for (size_t i = 0; i < eventKindNames.size(); ++i)
        if (eventKindNames[i] == raw)
            return static_cast<EventKind>(i);
    return std::nullopt;
}

std::string_view rawValue(DecisionType type) { return decisionTypeNames[static_cast<size_t>(type)]; }

std::optional<DecisionType> decisionTypeFromRaw(std::string_view raw) {
    for (size_t i = 0; i < decisionTypeNames.size(); ++i)
        if (decisionTypeNames[i] == raw)
            return static_cast<DecisionType>(i);
    return std::nullopt;
}

} // namespace tidewick
