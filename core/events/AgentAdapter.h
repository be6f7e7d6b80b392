// The interface every agent family implements: payload in, agent-neutral
// event out; decision in, the agent's own answer out.
#pragma once

#include "events/AgentEvent.h"
#include "events/Decision.h"
#include "events/HookOutput.h"
#include "events/Payload.h"

#include <optional>
#include <string_view>

namespace tidewick {

class AgentAdapter {
public:
    virtual ~AgentAdapter() = default;

    /// The agent this adapter serves.
    [[nodiscard]] virtual AgentKind kind() const = 0;
    /// The event for one invocation; nothing when it is to be ignored (no
    /// session, an event Tidewick does not report). Never throws: values of
    /// unexpected types count as absent.
    [[nodiscard]] virtual std::optional<ParsedHook> parse(std::string_view event,
                                                          const Payload& payload) const = 0;
    /// The agent's answer for `parsed` given the user's decision, or none.
    [[nodiscard]] virtual HookOutput output(const ParsedHook& parsed,
                                            const std::optional<Decision>& decision) const = 0;
    /// What to print when no answer can be had: lets the agent go on as if no hook had run.
    [[nodiscard]] virtual HookOutput failSafe(std::string_view event) const = 0;
    /// True for events that are only reported and never held.
    [[nodiscard]] virtual bool isFireAndForget(std::string_view event) const = 0;
};

} // namespace tidewick
