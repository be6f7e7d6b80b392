// Text helpers that count "characters" as a reader sees them: extended
// grapheme clusters, so a flag or an emoji with a skin tone is one character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tidewick::Text {

/// The number of user-perceived characters in UTF-8 `text`. Invalid bytes
/// count one character each.
[[nodiscard]] std::size_t characterCount(std::string_view text);

/// The first `count` user-perceived characters of `text` (all of it when it is shorter).
[[nodiscard]] std::string_view prefix(std::string_view text, std::size_t count);

/// `text` when it has at most `limit` characters; otherwise its first
/// `limit` characters followed by `marker` (for example "…").
[[nodiscard]] std::string cut(std::string_view text, std::size_t limit, std::string_view marker = {});

/// Unicode lower-casing, code point by code point.
[[nodiscard]] std::string lowercased(std::string_view text);

/// `text` without leading and trailing white space and line breaks (Unicode aware).
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// `text` without leading and trailing spaces and tabs only.
[[nodiscard]] std::string_view trimmedSpaces(std::string_view text);

/// Whether `text` starts with `prefix`.
[[nodiscard]] inline bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

/// `text` with every occurrence of `from` replaced by `to`.
[[nodiscard]] std::string replacingAll(std::string_view text, std::string_view from, std::string_view to);

/// The ellipsis (U+2026) used wherever Tidewick shortens a text.
inline constexpr std::string_view ellipsis = "\xE2\x80\xA6";

/// What starts the line of each option where a question is written out as text.
inline constexpr std::string_view bullet = "\xE2\x80\xA2 ";

} // namespace tidewick::Text
