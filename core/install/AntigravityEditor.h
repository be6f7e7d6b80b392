// The editor of Antigravity's hook file, in which each tool owns one member
// of the root and Tidewick's is "tidewick".
#pragma once

#include "install/HookConfigEditor.h"

namespace tidewick {

/// Edits ".gemini/config/hooks.json" under the home.
class AntigravityEditor final : public HookConfigEditor {
public:
    [[nodiscard]] std::string configPath(const std::string& home) const override;
    /// Replaces the whole "tidewick" member with a fresh block ("enabled": true
    /// first, then one list per HookSpec). Throws HookConfigError when the root is
    /// not an object.
    [[nodiscard]] JSONValue install(const std::optional<JSONValue>& document,
                                    const std::vector<HookSpec>& specs,
                                    const CommandBuilder& command) const override;
    /// Deletes the "tidewick" member.
    [[nodiscard]] JSONValue remove(const JSONValue& document) const override;
    [[nodiscard]] std::set<std::string> installedEvents(const JSONValue& document) const override;
    /// True when the root object has no members.
    [[nodiscard]] bool isEmptyShell(const JSONValue& document) const override;
    /// The block's "enabled": false.
    [[nodiscard]] std::optional<std::string>
    disabledReason(const JSONValue& document) const override;
};

} // namespace tidewick
