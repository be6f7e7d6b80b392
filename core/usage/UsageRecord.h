// Small helpers the usage readers share: reading a small JSON file with a size
// bound, a file's modification time, and one window built from a percentage.
#pragma once

#include "foundation/Clock.h"
#include "foundation/JSONValue.h"
#include "usage/UsageWindow.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tidewick::UsageRecord {

/// Whether `path` exists (any kind of file). Throws SystemError for any failure of stat(2)
/// other than its absence.
[[nodiscard]] bool exists(const std::string& path);

/// The JSON value in `path`. Throws SystemError when it cannot be read, std::runtime_error
/// ("it is larger than 1048576 bytes") past `limit`, JSONValue::ParseError when it is not
/// JSON (a file being written, or not Tidewick's).
[[nodiscard]] JSONValue readSmallJSON(const std::string& path, std::int64_t limit);

/// When `path` was last written; nothing when it cannot be stat'ed.
[[nodiscard]] std::optional<Date> modifiedAt(const std::string& path);

/// A window named `name` of `minutes` length, `used` percent full (held to 0–100); nothing
/// when `used` is missing, not a number, or not finite.
[[nodiscard]] std::optional<UsageWindow> window(std::string name, const JSONValue* used,
                                                std::optional<std::int64_t> minutes);

} // namespace tidewick::UsageRecord
