// Names the terminal or editor an agent runs in, from the variables such
// programs put in the environment of the shells they start.
#pragma once

#include "Environment.h"

#include <optional>
#include <string>

namespace tidewick::HostApp {

/// A stable short identifier of the hosting application ("iterm", "kitty",
/// "wezterm", "ghostty", "vscode", "cursor", "jetbrains", "tmux", ...);
/// nothing when the environment names none. A program's own variables win
/// over TERM_PROGRAM, which a multiplexer such as tmux overwrites; an
/// unknown TERM_PROGRAM is reported lowercased with anything but letters,
/// digits and "-" turned into "-".
[[nodiscard]] std::optional<std::string> detect(const Environment& environment);

} // namespace tidewick::HostApp
