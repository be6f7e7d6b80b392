// The command line that continues an agent's session outside its own window:
// which program to run, and the words to give it.
#pragma once

#include "agents/ProcessAccess.h"
#include "events/AgentKind.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::AgentCommand {

/// The command-line program that continues `agent`'s sessions: "claude", "codex" or
/// "cursor-agent"; nothing for Antigravity, which has none.
[[nodiscard]] std::optional<std::string_view> programName(AgentKind agent);

/// The words that start the program the agent process `pid` runs: its executable, or a
/// script runtime's executable and the script. Nothing when the process is gone, is not
/// the one that started at `startTime` (when given), or is not the agent's command-line
/// program (an editor hosting the agent, say).
[[nodiscard]] std::optional<std::vector<std::string>>
fromProcess(AgentKind agent, std::int32_t pid, std::optional<std::int64_t> startTime,
            const ProcessAccess& processes);

/// The first executable file called `name` in the folders of `searchPath` (a PATH value).
[[nodiscard]] std::optional<std::string> findOnPath(std::string_view name,
                                                    std::string_view searchPath);

/// Where to look for the program, in this order.
struct Sources {
    /// The agent process, when known.
    std::optional<std::int32_t> pid;
    std::optional<std::int64_t> startTime;
    /// The PATH to search.
    std::string searchPath;
    /// The program the user named in the settings for this agent.
    std::optional<std::string> configured;
};

/// The program continuing `agent`'s sessions: the one its process runs, else the first on
/// the search path, else the configured one when it is an executable file. Nothing when
/// none is found or the agent has no command-line program.
[[nodiscard]] std::optional<std::vector<std::string>>
resolve(AgentKind agent, const Sources& sources, const ProcessAccess& processes);

/// `program` followed by the words that continue session `sessionId` with `text` as its
/// next prompt, headless: `text` stays one word, after "--" where the program reads
/// options, so that nothing in it is taken for an option.
[[nodiscard]] std::vector<std::string> continuation(AgentKind agent,
                                                    std::vector<std::string> program,
                                                    const std::string& sessionId,
                                                    const std::string& text);

} // namespace tidewick::AgentCommand
