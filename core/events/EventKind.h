// The agent-neutral vocabulary of what happened, what answer is wanted and
// whether the hook command must wait for it.
#pragma once

#include <optional>
#include <string_view>

namespace tidewick {

/// What happened, independent of the agent. Raw values equal the case names.
enum class EventKind {
    sessionStarted,
    working,
    toolStarted,
    toolFinished,
    permissionRequested,
    turnFinished,
    notification,
    message,
    compaction,
    interrupted,
    error,
    sessionEnded,
    userPrompt,
};

/// Which answer an event wants. Raw values "none", "permission", "reply".
enum class DecisionType { none, permission, reply };

/// Whether the hook command keeps the agent waiting, and for what.
enum class HoldKind { none, permission, reply };

[[nodiscard]] std::string_view rawValue(EventKind kind);
/// The kind with this raw value; nothing for any other text.
[[nodiscard]] std::optional<EventKind> eventKindFromRaw(std::string_view raw);
[[nodiscard]] std::string_view rawValue(DecisionType type);
/// The decision type with this raw value; nothing for any other text.
[[nodiscard]] std::optional<DecisionType> decisionTypeFromRaw(std::string_view raw);

} // namespace tidewick
