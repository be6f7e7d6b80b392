// How Codex decides which hooks it runs: each hook is approved under a key that
// names its place in hooks.json, together with a hash of its content. Tidewick
// reads these approvals (it never writes them) to tell whether Codex will run
// its hooks, and which of the user's hooks a change would move.
#pragma once

#include "foundation/JSONValue.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::CodexTrust {

/// Where one handler stands in hooks.json.
struct Place {
    /// The event as the file spells it ("PreToolUse").
    std::string event;
    std::size_t group = 0;
    std::size_t handler = 0;

    friend bool operator==(const Place&, const Place&) = default;
};

/// One handler of hooks.json with its place and the hash Codex keeps for it.
struct Hook {
    Place place;
    /// "sha256:" and the hex digest of the handler as Codex hashes it.
    std::string hash;
    /// The handler's command ("" when it has none).
    std::string command;
    bool ours = false;
};

/// "pre_tool_use" for "PreToolUse": the spelling Codex uses in keys and hashes.
[[nodiscard]] std::string snakeCase(std::string_view event);

/// The key Codex approves a hook under: the real path of hooks.json (its folder's
/// symbolic links followed), the event in snake case, the group and the handler index.
[[nodiscard]] std::string key(std::string_view hooksFile, const Place& place);

/// Every command handler of a hooks.json document, event by event in file order.
/// Entries that are not objects are skipped but still count for the positions.
[[nodiscard]] std::vector<Hook> hooks(const JSONValue& document);

/// The approved hashes in the text of config.toml, by key.
[[nodiscard]] std::map<std::string, std::string> approvals(std::string_view configToml);

/// Whether `hook` at its place in `hooksFile` is approved as it is now.
[[nodiscard]] bool isApproved(const Hook& hook, std::string_view hooksFile,
                              const std::map<std::string, std::string>& approvals);

/// The user's approved hooks that stand at another place in `after` than in `before`,
/// as "Event: command" lines: Codex will ask to approve each of them again.
[[nodiscard]] std::vector<std::string> movedApprovedHooks(
    const JSONValue& before, const JSONValue& after, std::string_view hooksFile,
    const std::map<std::string, std::string>& approvals);

} // namespace tidewick::CodexTrust
