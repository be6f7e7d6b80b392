// Terminal column arithmetic for UTF-8 text: how wide a text is on screen,
// and how to cut, pad and wrap it to a number of columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::DisplayText {

/// The number of terminal columns `text` takes: wide (East Asian, emoji) characters count
/// two, combining marks and zero-width characters none, invalid bytes one each.
[[nodiscard]] int width(std::string_view text);

/// `text` when it fits in `columns`; otherwise as many whole characters as fit in
/// `columns` - 1 followed by "…". Nothing for zero or fewer columns. Never splits a
/// character.
[[nodiscard]] std::string fit(std::string_view text, int columns);

/// `fit(text, columns)` padded with spaces to exactly `columns` columns.
[[nodiscard]] std::string pad(std::string_view text, int columns);

/// `text` on one line: line breaks and tabs become spaces and other control characters are
/// dropped, so that nothing a payload carries can move the cursor or change the terminal.
[[nodiscard]] std::string singleLine(std::string_view text);

/// `text` broken into lines of at most `columns` columns: at its own line breaks, else at
/// the last space that fits, else in the middle of a word. At most `maxLines` lines; when
/// text is left over, the last line ends with "…". Control characters are dropped.
[[nodiscard]] std::vector<std::string> wrap(std::string_view text, int columns,
                                            std::size_t maxLines);

} // namespace tidewick::DisplayText
