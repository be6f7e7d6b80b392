// Claude Code's permission updates: the objects an allow carries so that the
// agent stops asking, and readable sentences for them.
#pragma once

#include "foundation/JSONValue.h"

#include <string>
#include <string_view>

namespace tidewick::PermissionUpdates {

/// The update that keeps allowing `tool` calls matching `rule` in the project's local
/// settings: {"type":"addRules","rules":[{"toolName":…,"ruleContent":…}],"behavior":"allow",
/// "destination":"localSettings"}. An empty rule leaves "ruleContent" out (the whole tool).
[[nodiscard]] JSONValue allowRule(std::string_view tool, std::string_view rule);

/// One line per update, as the user reads it ("Allow Bash(npm test:*), kept in this
/// project's local settings"). Updates of a kind Tidewick does not know are shown as
/// their JSON text. Never fails.
[[nodiscard]] std::string describe(const JSONValue::Array& updates);

} // namespace tidewick::PermissionUpdates
