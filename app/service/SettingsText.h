// Every sentence the user reads about settings and pausing, in one place: the
// service, the command line and the interface all show these.
#pragma once

#include "events/AgentKind.h"
#include "foundation/Clock.h"

#include <optional>
#include <string>
#include <string_view>

namespace tidewick::SettingsText {

/// The frame's and `tidewick status`'s word while nothing is held.
inline constexpr std::string_view paused = "Paused";
/// "Paused" with what it means and, when set, when it ends ("until 15:30").
[[nodiscard]] std::string pausedState(const std::optional<Date>& until);
/// Said when a pause starts.
[[nodiscard]] std::string pausedNow(const std::optional<Date>& until);
inline constexpr std::string_view resumed =
    "Resumed: Tidewick holds your agents' requests again.";
inline constexpr std::string_view notPaused = "Tidewick isn't paused.";
/// "15:30" today, "Tue 12 May 15:30" on another day.
[[nodiscard]] std::string clockTime(Date date, Date now);

/// Claude Code's and Codex's requests are held whatever the setting says.
[[nodiscard]] std::string alwaysHeld(AgentKind agent);
/// "Cursor's shell commands are held for you again." and the like.
[[nodiscard]] std::string gated(AgentKind agent, bool on);

[[nodiscard]] std::string unknownSetting(std::string_view name);
/// "<name> takes <what>, not "<value>"."
[[nodiscard]] std::string wrongValue(std::string_view name, std::string_view takes,
                                     std::string_view value);
[[nodiscard]] std::string changed(std::string_view name, std::string_view value);
[[nodiscard]] std::string unchanged(std::string_view name, std::string_view value);
/// "Added "make -n" to gating.safePrefixes." and the like, `done` false when it already
/// was (or was not) there.
[[nodiscard]] std::string listEdited(std::string_view name, std::string_view item, bool adding,
                                     bool done);
/// The settings file does not read: nothing is written over it.
[[nodiscard]] std::string unreadable(std::string_view problem);
/// launchAtLogin changes the user service, which only the command line does.
inline constexpr std::string_view launchAtLoginFromCommandLine =
    "launchAtLogin installs or removes the systemd user service: set it with `tidewick "
    "settings set launchAtLogin true` (or false) in a terminal.";

} // namespace tidewick::SettingsText
