#include "events/SessionStatus.h"

namespace tidewick {

namespace {
constexpr EnumTable<SessionStatus, 7> labels{{{
    {SessionStatus::working, "Working"},
    {SessionStatus::needsPermission, "Needs permission"},
    {SessionStatus::waitingReply, "Waiting for reply"},
    {SessionStatus::finished, "Finished"},
    {SessionStatus::idle, "Idle"},
    {SessionStatus::error, "Error"},
    {SessionStatus::ended, "Ended"},
}}};
} // namespace

std::string_view label(SessionStatus status) {
    return labels.name(status);
}

bool needsYou(SessionStatus status) {
    return status == SessionStatus::needsPermission || status == SessionStatus::waitingReply;
}

} // namespace tidewick
