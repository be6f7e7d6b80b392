// One line of a line-by-line comparison: kept, added or removed.
#pragma once

#include <string>

namespace tidewick {

/// A line of a diff, without its line feed.
struct DiffLine {
    /// How the line differs between the old and the new text.
    enum class Kind { same = 0, added = 1, removed = 2 };

    Kind kind = Kind::same;
    std::string text;

    friend bool operator==(const DiffLine&, const DiffLine&) = default;
};

} // namespace tidewick
