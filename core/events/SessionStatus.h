// The state of a session as the user sees it.
#pragma once

#include "foundation/EnumTable.h"

#include <string_view>

namespace tidewick {

/// Raw values equal the case names.
enum class SessionStatus { working, needsPermission, waitingReply, finished, idle, error, ended };

template <> struct RawValues<SessionStatus> {
    static constexpr EnumTable<SessionStatus, 7> table{{{
        {SessionStatus::working, "working"},
        {SessionStatus::needsPermission, "needsPermission"},
        {SessionStatus::waitingReply, "waitingReply"},
        {SessionStatus::finished, "finished"},
        {SessionStatus::idle, "idle"},
        {SessionStatus::error, "error"},
        {SessionStatus::ended, "ended"},
    }}};
};

/// The user-facing label ("Working", "Needs permission", ...).
[[nodiscard]] std::string_view label(SessionStatus status);
/// True exactly when the user is needed: needsPermission and waitingReply.
[[nodiscard]] bool needsYou(SessionStatus status);

} // namespace tidewick
