// Keeping texts valid UTF-8 before they are stored: one invalid byte in the
// sessions file would make the whole file unreadable on the next start.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick::UTF8 {

/// Whether `text` is strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
[[nodiscard]] bool isValid(std::string_view text);

/// `text` with every byte that is not part of a valid sequence replaced by U+FFFD.
[[nodiscard]] std::string repaired(std::string_view text);

/// The same for an optional text.
[[nodiscard]] std::optional<std::string> repairedOptional(const std::optional<std::string>& text);

/// Appends the UTF-8 encoding of `codePoint`, which the caller keeps at most U+10FFFF.
void append(std::string& out, std::uint32_t codePoint);

/// Removes the last code point of UTF-8 `text` (what Backspace takes back); nothing
/// happens to an empty text.
void removeLast(std::string& text);

} // namespace tidewick::UTF8
