// Antigravity's hook dialect: "conversationId", a "toolCall" object, and a
// "decision" answer. Only shell commands are held for approval.
#pragma once

#include "events/AgentAdapter.h"

#include <array>
#include <string_view>

namespace tidewick {

class AntigravityAdapter final : public AgentAdapter {
public:
    /// Termination reasons (lower case) that mean the user stopped the agent.
    static constexpr std::array<std::string_view, 6> cancelReasons = {
        "cancelled", "canceled", "interrupted", "aborted", "user_cancelled", "user_canceled"};

    [[nodiscard]] AgentKind kind() const override { return AgentKind::antigravity; }
    /// The event name is always `event`; payloads without "conversationId"
    /// and events Tidewick does not report are ignored.
    [[nodiscard]] std::optional<ParsedHook> parse(std::string_view event,
                                                  const Payload& payload) const override;
    /// A JSON object for every combination; "ask" when a held command went unanswered.
    [[nodiscard]] HookOutput output(const ParsedHook& parsed,
                                    const std::optional<Decision>& decision) const override;
    /// {"decision":"ask"} for "PreToolUse", {"decision":"stop"} for "Stop", {} otherwise.
    [[nodiscard]] HookOutput failSafe(std::string_view event) const override;
    /// Always false: every event waits for the application's answer.
    [[nodiscard]] bool isFireAndForget(std::string_view event) const override;
};

} // namespace tidewick
