// Finds the agent process that ran the hook command, and tells whether it
// runs unattended (then nobody could answer a held event).
#pragma once

#include "events/AgentKind.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// One process as the probe needs it.
struct ProcessRecord {
    /// Process id of the parent; 0 for the first process.
    std::int32_t parent = 0;
    /// The system's short name of the process (its executable name, cut to
    /// 15 bytes on Linux).
    std::string name;
};

/// Read access to the system's process list; tests provide their own.
class ProcessTable {
public:
    virtual ~ProcessTable() = default;
    /// The process `pid`; nothing when it does not exist or cannot be read.
    [[nodiscard]] virtual std::optional<ProcessRecord> record(std::int32_t pid) const = 0;
    /// The arguments `pid` was started with (the program first); empty when unreadable.
    [[nodiscard]] virtual std::vector<std::string> commandLine(std::int32_t pid) const = 0;

    /// The live process list (/proc on Linux).
    [[nodiscard]] static const ProcessTable& system();
};

namespace ProcessProbe {

/// The nearest ancestor of `pid`, at most `maxSteps` parents up, that is the
/// agent `agent`: Claude Code's "claude", Codex's "codex", Cursor's
/// "cursor-agent" or editor, Antigravity's "antigravity", whether run as a
/// native program or as a script of a JavaScript runtime. Nothing when none
/// is found or the chain cannot be read.
[[nodiscard]] std::optional<std::int32_t>
agentAncestor(std::int32_t pid, AgentKind agent, int maxSteps,
              const ProcessTable& table = ProcessTable::system());

/// Whether the agent process `pid` runs a scripted, non-interactive session
/// ("claude -p", "cursor-agent --print", "codex exec"), where nobody is
/// there to answer. False when its command line cannot be read.
[[nodiscard]] bool isHeadless(std::int32_t pid, AgentKind agent,
                              const ProcessTable& table = ProcessTable::system());

} // namespace ProcessProbe
} // namespace tidewick
