// The agent-neutral vocabulary of what happened, what answer is wanted and
// whether the hook command must wait for it.
#pragma once

#include "foundation/EnumTable.h"

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

template <> struct RawValues<EventKind> {
    static constexpr EnumTable<EventKind, 13> table{{{
        {EventKind::sessionStarted, "sessionStarted"},
        {EventKind::working, "working"},
        {EventKind::toolStarted, "toolStarted"},
        {EventKind::toolFinished, "toolFinished"},
        {EventKind::permissionRequested, "permissionRequested"},
        {EventKind::turnFinished, "turnFinished"},
        {EventKind::notification, "notification"},
        {EventKind::message, "message"},
        {EventKind::compaction, "compaction"},
        {EventKind::interrupted, "interrupted"},
        {EventKind::error, "error"},
        {EventKind::sessionEnded, "sessionEnded"},
        {EventKind::userPrompt, "userPrompt"},
    }}};
};

/// Which answer an event wants. Raw values "none", "permission", "reply".
enum class DecisionType { none, permission, reply };

template <> struct RawValues<DecisionType> {
    static constexpr EnumTable<DecisionType, 3> table{{{
        {DecisionType::none, "none"},
        {DecisionType::permission, "permission"},
        {DecisionType::reply, "reply"},
    }}};
};

/// Whether the hook command keeps the agent waiting, and for what.
enum class HoldKind { none, permission, reply };

} // namespace tidewick
