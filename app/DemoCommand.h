// `tidewick demo`: scripted sessions of the four agents, run through the real
// hook command against the running application, so that its interface can be
// tried without any agent installed.
#pragma once

#include "AppContext.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tidewick {

/// Adds `demo` to `app`. Its callback throws CommandFailure with status 3 (and how to start
/// the application) when no application answers, and status 1 when the hook command is
/// missing.
void registerDemoCommand(CLI::App& app, AppContext& context);

/// One scripted agent session: hook events sent in order through `tidewick-hook`.
struct DemoStep {
    std::string event;
    /// The agent's payload, compact JSON.
    std::string payload;
    /// Whether the agent's answer to this step is printed (the steps the user decides, and
    /// the one Tidewick allows by itself).
    bool showsAnswer = false;
    /// What the user sees and is asked, printed before the step runs.
    std::string announcement;
};

struct DemoScript {
    AgentKind agent = AgentKind::claude;
    std::string sessionId;
    std::vector<DemoStep> steps;
};

/// The four scripted sessions: a Claude Code permission request for a risky command, a
/// Codex turn waiting for a reply, a Cursor read-only command (allowed silently) and a risky
/// one (held), and an Antigravity shell command. Session identifiers end in `suffix`;
/// projects live under `home`.
[[nodiscard]] std::vector<DemoScript> demoScripts(const std::string& home,
                                                  const std::string& suffix);

/// What an agent's answer means, in words: "allowed", "denied: …", "reply: …", "no answer
/// from Tidewick (the agent asks in its own window)", for `output` printed by the hook.
[[nodiscard]] std::string describeAnswer(AgentKind agent, const std::string& event,
                                         const std::string& output);

} // namespace tidewick
