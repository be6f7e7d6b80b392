// Something the user should notice, raised by the service when a request is
// held, a turn ends unanswered or an agent reports an error, and shown by the
// terminal UI and desktop notifications.
#pragma once

#include "foundation/EnumTable.h"
#include "foundation/UUID.h"
#include "sessions/Session.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

struct Alert {
    enum class Kind {
        /// A permission request is held for the user.
        needsPermission,
        /// The agent finished its turn and waits for a reply.
        waitingReply,
        /// The agent's turn is over (a reply wait ended unanswered).
        finished,
        /// The agent reported an error.
        error,
        /// One of the agent's usage-limit windows is more than 90 % used; `session` names
        /// the agent only (its sessionId is empty).
        usageLimit,
    };

    Kind kind = Kind::needsPermission;
    SessionKey session;
    std::string title;
    std::optional<std::string> detail;
    /// The held request this alert is about; answering it through the service answers the agent.
    std::optional<UUID> requestId;
    /// True for alerts that ask for nothing.
    bool informational = false;
    /// True when the agent's turn has ended (a reply is awaited or it is over).
    bool turnEnded = false;
    /// How many other new requests of the same session this alert also stands for (alerts
    /// of a burst are announced together).
    std::size_t alsoHeld = 0;
    /// The request offers "always allow".
    bool canAlwaysAllow = false;
    /// The request asks questions; `choices` holds the labels to answer with at once
    /// when it is one question with one answer to choose.
    bool question = false;
    std::vector<std::string> choices = {};
    /// Set by the application as it announces the alert: it has a sound for it but could
    /// not play one, so every interface rings the terminal bell instead.
    bool bell = false;

    friend bool operator==(const Alert&, const Alert&) = default;
};

/// Raw values equal the case names (the keys of the alertSounds setting).
template <> struct RawValues<Alert::Kind> {
    static constexpr EnumTable<Alert::Kind, 5> table{{{
        {Alert::Kind::needsPermission, "needsPermission"},
        {Alert::Kind::waitingReply, "waitingReply"},
        {Alert::Kind::finished, "finished"},
        {Alert::Kind::error, "error"},
        {Alert::Kind::usageLimit, "usageLimit"},
    }}};
};

} // namespace tidewick
