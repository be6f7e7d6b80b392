// The preview of one install into, or removal from, an agent's configuration file.
#pragma once

#include "events/AgentKind.h"
#include "install/DiffLine.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewick {

/// What connecting or disconnecting would do to one file, computed before anything is written.
struct ConfigChange {
    AgentKind agent = AgentKind::claude;
    /// The configuration file (symbolic links not yet resolved).
    std::string path;
    /// Whether something was at `path` when the preview was made.
    bool fileExisted = false;
    /// The file's text as read; empty when absent.
    std::string before;
    /// The new text: the new document pretty-printed, then one line feed.
    std::string after;
    /// LineDiff::diff(before, after).
    std::vector<DiffLine> diff;
    /// Events that carry a Tidewick entry after the change and did not before.
    std::set<std::string> addedEvents;
    /// Events that carried a Tidewick entry before and no longer will.
    std::set<std::string> removedEvents;
    /// Where the old text was backed up, once it has been.
    std::optional<std::string> backup;
    /// Hooks of the user's that the agent approved where they stand and that the change
    /// moves, as "Event: command": the agent will ask to approve them again (Codex).
    std::vector<std::string> movedApprovedHooks;
    /// Set on a removal that will delete the file, because Tidewick created it
    /// and nothing but its own scaffolding would be left.
    bool deletesFile = false;

    /// True when applying would change nothing.
    [[nodiscard]] bool isNoChange() const { return !deletesFile && before == after; }
};

} // namespace tidewick
