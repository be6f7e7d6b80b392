// One hook entry that Tidewick registers with an agent: the event, its
// time-out and whether the agent is held there until the user answers.
#pragma once

#include "foundation/JSONValue.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tidewick {

/// Whether Cursor's shell and MCP calls are held for the user (the other agents ignore it).
enum class GateCommands : bool { off = false, on = true };

/// One entry of the hook catalog. Equal when all five fields are equal.
struct HookSpec {
    /// The agent's own event name, spelled exactly as that agent expects it.
    std::string event;
    /// A tool-name matcher; editors that need one use their own default when absent.
    std::optional<std::string> matcher;
    /// Written into the agent's configuration as the hook's time-out.
    std::int64_t timeoutSeconds = 0;
    /// True where the hook command holds the agent until the user decides.
    bool waitsForUser = false;
    /// Pairs copied verbatim into the hook entry after the standard keys.
    JSONValue::Object extra;

    friend bool operator==(const HookSpec&, const HookSpec&) = default;
};

} // namespace tidewick
