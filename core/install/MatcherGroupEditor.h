// The editor of Claude Code's and Codex's hook files, where each event holds
// a list of matcher groups and each group a list of handlers.
#pragma once

#include "install/HookConfigEditor.h"

namespace tidewick {

/// Where a Tidewick handler goes in its event's list of groups.
enum class Placement {
    /// Earlier Tidewick handlers are dropped and a new group is appended.
    append,
    /// The first group holding a Tidewick handler keeps its place and gets the new handler
    /// where the old one stood; only without such a group is a new one appended.
    keepPlace,
};

/// `groups` with `handler` placed as `placement` says (a new group carries `matcher`
/// when given); every other Tidewick handler is dropped, with the groups it leaves empty.
[[nodiscard]] JSONValue::Array placeOurs(const JSONValue::Array& groups, const JSONValue& handler,
                                         const std::optional<std::string>& matcher,
                                         Placement placement);

/// Edits ".claude/settings.json" or ".codex/hooks.json" under the home.
class MatcherGroupEditor final : public HookConfigEditor {
public:
    /// Which agent's file: Claude Code's also carries the status line and its
    /// own switch; Codex's switch lives in config.toml instead.
    enum class Flavor { claudeCode, codex };

    explicit MatcherGroupEditor(Flavor flavor) : flavor_(flavor) {}

    [[nodiscard]] std::string configPath(const std::string& home) const override;
    /// Puts one Tidewick handler per HookSpec into its event's list (events new to the
    /// file after the user's own): Claude Code's is appended in a new group after earlier
    /// ones are removed; Codex's stays where it was, since Codex approves hooks by their
    /// place. For Claude Code also sets the status line unless the user has their own.
    /// Throws HookConfigError when the root or "hooks" is not an object.
    [[nodiscard]] JSONValue install(const std::optional<JSONValue>& document,
                                    const std::vector<HookSpec>& specs,
                                    const CommandBuilder& command) const override;
    [[nodiscard]] JSONValue remove(const JSONValue& document) const override;
    [[nodiscard]] std::set<std::string> installedEvents(const JSONValue& document) const override;
    [[nodiscard]] bool isEmptyShell(const JSONValue& document) const override;
    /// Claude Code's "disableAllHooks": true; never a reason for Codex.
    [[nodiscard]] std::optional<std::string>
    disabledReason(const JSONValue& document) const override;

private:
    [[nodiscard]] std::string fileName() const;

    Flavor flavor_;
};

} // namespace tidewick
