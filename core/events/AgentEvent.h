// The agent-neutral event record that adapters build from a hook payload.
#pragma once

#include "events/AgentKind.h"
#include "events/EventKind.h"
#include "events/HeldCall.h"
#include "foundation/Clock.h"

#include <optional>
#include <string>

namespace tidewick {

struct AgentEvent {
    AgentKind agent = AgentKind::claude;
    /// The agent's own session or conversation identifier; never empty.
    std::string sessionId;
    std::optional<std::string> projectPath;
    EventKind kind = EventKind::working;
    std::optional<std::string> title;
    std::optional<std::string> detail;
    bool needsDecision = false;
    DecisionType decisionType = DecisionType::none;
    Date receivedAt;
    std::optional<std::string> transcriptPath;
    std::optional<std::string> model;
    /// The tool concerned, or "question" for a question put to the user.
    std::optional<std::string> toolName;
    /// The agent's own hook event name exactly as received.
    std::string hookEvent;

    friend bool operator==(const AgentEvent&, const AgentEvent&) = default;
};

/// One parsed hook invocation: the event and whether the agent must wait.
struct ParsedHook {
    AgentEvent event;
    HoldKind hold = HoldKind::none;
    /// For a held permission request, the call it is about; nothing otherwise.
    std::optional<HeldCall> call;

    friend bool operator==(const ParsedHook&, const ParsedHook&) = default;
};

} // namespace tidewick
