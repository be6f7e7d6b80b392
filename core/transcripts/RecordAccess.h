// Small lookups into the JSON lines agents write, shared by the readers. Each
// one tolerates a missing or mistyped member by giving nothing.
#pragma once

#include "foundation/JSONValue.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick::RecordAccess {

/// The value at the path of object keys below `value`; null when any step is missing.
[[nodiscard]] const JSONValue* at(const JSONValue* value,
                                  std::initializer_list<std::string_view> path);
/// The string at the path; null when missing or not a string.
[[nodiscard]] const std::string* stringAt(const JSONValue* value,
                                          std::initializer_list<std::string_view> path);
/// The whole number at the path; 0 when missing or not one.
[[nodiscard]] std::int64_t integerAt(const JSONValue* value,
                                     std::initializer_list<std::string_view> path);

/// The text of a message's content: a string as it is, or the texts of an array of blocks
/// ({"type": "text" | "input_text" | "output_text", "text": ...}, or plain strings) joined
/// by blank lines. Blocks of other types are left out.
[[nodiscard]] std::string contentText(const JSONValue* content);

/// The value itself when it is an object; the object a string holds when it holds one (tool
/// arguments are often JSON inside a string); otherwise nothing.
[[nodiscard]] std::optional<JSONValue> objectOrEmbedded(const JSONValue* value);

} // namespace tidewick::RecordAccess
