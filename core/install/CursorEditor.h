// The editor of Cursor's hook file, where each event maps straight to a list
// of handlers and the file carries a "version".
#pragma once

#include "install/HookConfigEditor.h"

namespace tidewick {

/// Edits ".cursor/hooks.json" under the home.
class CursorEditor final : public HookConfigEditor {
public:
    [[nodiscard]] std::string configPath(const std::string& home) const override;
    /// Adds "version": 1 first when missing, drops every earlier Tidewick
    /// handler and appends one per HookSpec to its event's list. Throws
    /// HookConfigError when the root or "hooks" is not an object.
    [[nodiscard]] JSONValue install(const std::optional<JSONValue>& document,
                                    const std::vector<HookSpec>& specs,
                                    const CommandBuilder& command) const override;
    [[nodiscard]] JSONValue remove(const JSONValue& document) const override;
    [[nodiscard]] std::set<std::string> installedEvents(const JSONValue& document) const override;
    /// True when, once Tidewick's handlers are gone, only "version" and an
    /// empty or absent "hooks" are left.
    [[nodiscard]] bool isEmptyShell(const JSONValue& document) const override;
    /// Cursor has no switch of its own: always none.
    [[nodiscard]] std::optional<std::string>
    disabledReason(const JSONValue& document) const override;
};

} // namespace tidewick
