// One agent event as the hook command sends it to the application.
#pragma once

#include "foundation/JSONValue.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tidewick {

struct HookRequest {
    /// The agent's raw value: "claude", "codex", "cursor" or "antigravity".
    std::string agent;
    /// The agent's own event name, as given to the hook command.
    std::string event;
    /// The agent's event payload (a JSON object), already trimmed by the hook command.
    JSONValue payload{JSONValue::Object{}};
    /// Process id of the hook command.
    std::int32_t pid = 0;
    /// Short identifier of the terminal or editor hosting the agent.
    std::optional<std::string> host;
    /// Process id of the agent that ran the hook.
    std::optional<std::int32_t> agentPid;
    /// The tmux pane the agent runs in ($TMUX_PANE, "%3") and the socket of that tmux
    /// server (the first part of $TMUX).
    std::optional<std::string> tmuxPane = std::nullopt;
    std::optional<std::string> tmuxSocket = std::nullopt;
    /// The application must record this event but never hold it for a decision.
    bool noHold = false;

    friend bool operator==(const HookRequest&, const HookRequest&) = default;
};

} // namespace tidewick
