// Cutting a shell command into words, as the command checks read it.
#pragma once

#include <string_view>
#include <vector>

namespace tidewick::ShellWords {

/// The non-empty pieces of `text` between any of the `separators`, in order. The pieces
/// point into `text`, which must outlive them. Never fails.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text,
                                                  std::string_view separators);

} // namespace tidewick::ShellWords
