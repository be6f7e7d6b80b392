// A request held for the user, as listed in its session.
#pragma once

#include "foundation/Clock.h"
#include "foundation/JSONValue.h"
#include "foundation/UUID.h"

#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

/// What the user is asked for. Raw values "permission" and "reply".
enum class PendingKind { permission, reply };

/// "permission" or "reply".
[[nodiscard]] std::string_view rawValue(PendingKind kind);
/// The kind with this raw value; nothing for any other text.
[[nodiscard]] std::optional<PendingKind> pendingKindFromRaw(std::string_view raw);

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

    /// The JSON object {"id", "kind", "title", "detail" (when present), "createdAt", "deadline"},
    /// dates as seconds since 1970.
    [[nodiscard]] JSONValue toJSON() const;
    /// The request encoded by toJSON; nothing when a required field is missing or any field
    /// has the wrong type or an unknown value.
    [[nodiscard]] static std::optional<PendingRequest> fromJSON(const JSONValue& value);
    /// The same, taking the texts out of `value` instead of copying them.
    [[nodiscard]] static std::optional<PendingRequest> fromJSON(JSONValue&& value);

    friend bool operator==(const PendingRequest&, const PendingRequest&) = default;
};

} // namespace tidewick
