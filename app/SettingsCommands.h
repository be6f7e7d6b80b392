// The commands that change how the running application behaves: `pause`,
// `resume`, `gate`, `safe`, `settings` and `forget`.
#pragma once

#include "AppContext.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string_view>

namespace tidewick {

/// Adds the six commands to `app`. Changes go to the running application and, when none
/// runs, into the settings file directly (forget needs the application). A refusal fails
/// with status 1 and its sentence, a wrong argument with status 2; forget exits 3 when
/// no application answers.
void registerSettingsCommands(CLI::App& app, AppContext& context);

/// The seconds in a duration such as "90s", "30m", "1h30m" or "2d" (units s, m, h, d,
/// each at most once, largest first); nothing for anything else, zero or beyond a year.
[[nodiscard]] std::optional<double> parseDuration(std::string_view text);

} // namespace tidewick
