// A request held for the user, as listed in its session.
#pragma once

#include "events/AskedQuestion.h"
#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "foundation/UUID.h"
#include "sessions/AlwaysAllow.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// What the user is asked for. Raw values "permission" and "reply".
enum class PendingKind { permission, reply };

template <> struct RawValues<PendingKind> {
    static constexpr EnumTable<PendingKind, 2> table{{{
        {PendingKind::permission, "permission"},
        {PendingKind::reply, "reply"},
    }}};
};

struct PendingRequest {
    /// The key under which the decision broker waits.
    UUID id;
    PendingKind kind = PendingKind::permission;
    /// Headline shown to the user.
    std::string title;
    /// The tool call or question text.
    std::optional<std::string> detail;
    /// When the hold began.
    Date createdAt;
    /// createdAt plus the time-out in force.
    Date deadline;
    /// A permission request that asks the user these questions (answered rather than
    /// allowed); empty for any other request.
    std::vector<AskedQuestion> questions;
    /// What "always allow" would do; nothing when it is not offered.
    std::optional<AlwaysAllowOffer> alwaysAllow;

    /// Whether the request asks questions.
    [[nodiscard]] bool isQuestion() const { return !questions.empty(); }

    friend bool operator==(const PendingRequest&, const PendingRequest&) = default;
};

/// {"id", "kind", "title", "detail" (when present), "createdAt", "deadline", "questions"
/// (when there are any), "alwaysAllow" (when offered)}.
void writeJSON(JSONWriter& out, const PendingRequest& request);
/// The request writeJSON writes; false when a required member is missing or any member
/// has the wrong type or an unknown value.
[[nodiscard]] bool readJSON(JSONReader& in, PendingRequest& out);

} // namespace tidewick
