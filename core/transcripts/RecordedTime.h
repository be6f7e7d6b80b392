// The times agents write into their records, read into dates.
#pragma once

#include "foundation/Clock.h"

#include <optional>
#include <string_view>

namespace tidewick {

class JSONValue;

namespace RecordedTime {

/// An ISO 8601 time in UTC or with an offset ("2026-11-21T04:53:29.855Z",
/// "2026-11-21T13:53:29+09:00", "2026-11-21 04:53:29"); nothing for anything else.
[[nodiscard]] std::optional<Date> parseISO8601(std::string_view text);

/// A time given as such a text, or as a number of seconds, milliseconds or microseconds
/// since 1970 (told apart by size); nothing for anything else or a date out of range.
[[nodiscard]] std::optional<Date> fromJSON(const JSONValue* value);

/// A number since 1970 in any of those units, as fromJSON reads it.
[[nodiscard]] std::optional<Date> fromEpochNumber(double value);

} // namespace RecordedTime
} // namespace tidewick
