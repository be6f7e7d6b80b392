// The hook dialect Claude Code and Codex share: their event names, payload
// keys and answers. Configured with the agent it speaks for.
#pragma once

#include "events/AgentAdapter.h"

namespace tidewick {

class ClaudeStyleAdapter final : public AgentAdapter {
public:
    /// `kind` is claude or codex; it names the agent in events and titles.
    explicit ClaudeStyleAdapter(AgentKind kind) : kind_(kind) {}

    [[nodiscard]] AgentKind kind() const override { return kind_; }
    /// Ignores payloads without "session_id" and events Tidewick does not report.
    [[nodiscard]] std::optional<ParsedHook> parse(std::string_view event,
                                                  const Payload& payload) const override;
    /// Empty output (no opinion) unless the decision fits the hold.
    [[nodiscard]] HookOutput output(const ParsedHook& parsed,
                                    const std::optional<Decision>& decision) const override;
    /// Always silent: the agent falls back to its own prompts.
    [[nodiscard]] HookOutput failSafe(std::string_view event) const override;
    /// True for "SessionEnd" and "Interrupt".
    [[nodiscard]] bool isFireAndForget(std::string_view event) const override;

private:
    AgentKind kind_;
};

/// An adapter that holds a ClaudeStyleAdapter fixed to `Kind` and forwards
/// every operation to it; ClaudeAdapter and CodexAdapter are the two uses.
template <AgentKind Kind> class ClaudeStyleForwarder : public AgentAdapter {
public:
    [[nodiscard]] AgentKind kind() const override { return base_.kind(); }
    [[nodiscard]] std::optional<ParsedHook> parse(std::string_view event,
                                                  const Payload& payload) const override {
        return base_.parse(event, payload);
    }
    [[nodiscard]] HookOutput output(const ParsedHook& parsed,
                                    const std::optional<Decision>& decision) const override {
        return base_.output(parsed, decision);
    }
    [[nodiscard]] HookOutput failSafe(std::string_view event) const override {
        return base_.failSafe(event);
    }
    [[nodiscard]] bool isFireAndForget(std::string_view event) const override {
        return base_.isFireAndForget(event);
    }

private:
    ClaudeStyleAdapter base_{Kind};
};

} // namespace tidewick
