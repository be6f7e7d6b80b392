// The single table of hooks Tidewick registers with each agent, the command
// line every hook runs, and how Tidewick recognises its own entries.
#pragma once

#include "events/AgentKind.h"
#include "foundation/JSONValue.h"
#include "install/HookSpec.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::HookCatalog {

/// The hook executable's file name; a command containing it is Tidewick's.
inline constexpr std::string_view marker = "tidewick-hook";

/// Time-out (seconds, 25 hours) of every hook that waits for the user, so the
/// agent never gives up on a held hook by itself: the app decides when it ends.
inline constexpr std::int64_t userWaitTimeout = 90000;

/// The ordered entries for `agent`, in the order they are written into its
/// file. `gate` only matters for Cursor, where it adds the two command-gating events.
[[nodiscard]] std::vector<HookSpec> specs(AgentKind agent, GateCommands gate);

/// Every event name that could ever be installed for `agent` (gating included).
[[nodiscard]] std::set<std::string> installedEvents(AgentKind agent);

/// The shell command line that runs the hook executable at `helperPath` for
/// `agent` and `event`: the path in single quotes (each quote in it written
/// as '\''), then " --agent <raw name> --event <event>".
[[nodiscard]] std::string command(std::string_view helperPath, AgentKind agent,
                                  std::string_view event);

} // namespace tidewick::HookCatalog

namespace tidewick {

/// True only for an object whose "command" is a string containing HookCatalog::marker.
[[nodiscard]] bool isOurs(const JSONValue& value);

} // namespace tidewick
