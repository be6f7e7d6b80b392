// Line-by-line comparison of two texts for the previews of configuration
// changes, and the trimming of that comparison to the lines around changes.
#pragma once

#include "install/DiffLine.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace tidewick::LineDiff {

/// Above this many cells (old lines times new lines) no comparison is made.
inline constexpr std::size_t maxCells = 4'000'000;

/// The lines of `before` and `after` (split on "\n"; an empty text has no
/// lines, a final line feed gives a last empty line) marked as same, added or
/// removed along a longest common subsequence; a changed line shows as its
/// removal followed by its addition. When the product of the line counts
/// exceeds maxCells, every old line is removed and then every new line added.
[[nodiscard]] std::vector<DiffLine> diff(std::string_view before, std::string_view after);

/// The lines within `context` positions of a changed line, in order, without
/// separators between runs. Empty when nothing changed.
[[nodiscard]] std::vector<DiffLine> condensed(const std::vector<DiffLine>& lines, int context);

} // namespace tidewick::LineDiff
