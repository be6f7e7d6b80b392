// An advisory classifier that names the most serious danger of a shell command
// in a few plain words, shown beside a held request.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidewick::CommandRisk {

/// What was recognised, such as "deletes files for good".
struct Finding {
    std::string reason;

    friend bool operator==(const Finding&, const Finding&) = default;
};

/// The first of the fixed risk rules that `command` matches (admin rights, recursive or
/// forced deletion, a downloaded script piped to a shell, force push, hard reset, cleaning
/// untracked files, recursive permission changes, raw disk writes, disk formatting, fork
/// bombs, dropping database data, shutting down, publishing a package). Nothing when none
/// matches or the command is absent or empty. Words inside quoted messages and search
/// patterns of echo, printf, grep, rg, ag and of git commit, tag, log, notes, grep and stash
/// are not taken for commands. Tabs and runs of blanks count as one space. Never fails.
[[nodiscard]] std::optional<Finding> assess(std::optional<std::string_view> command);

/// The risk of the command a permission request shows in its detail. Claude Code adds the
/// tool's own description after a blank line, which must not count as the command.
[[nodiscard]] std::optional<Finding> assessDetail(const std::optional<std::string>& detail);

} // namespace tidewick::CommandRisk
