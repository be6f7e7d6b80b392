// The state of a session as the user sees it.
#pragma once

#include <optional>
#include <string_view>

namespace tidewick {

/// Raw values equal the case names.
enum class SessionStatus { working, needsPermission, waitingReply, finished, idle, error, ended };

[[nodiscard]] std::string_view rawValue(SessionStatus status);
/// The status with this raw value; nothing for any other text.
[[nodiscard]] std::optional<SessionStatus> sessionStatusFromRaw(std::string_view raw);
/// The user-facing label ("Working", "Needs permission", ...).
[[nodiscard]] std::string_view label(SessionStatus status);
/// True exactly when the user is needed: needsPermission and waitingReply.
[[nodiscard]] bool needsYou(SessionStatus status);

} // namespace tidewick
