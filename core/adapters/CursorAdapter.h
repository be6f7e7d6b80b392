// Cursor's hook dialect: lower-camel-case events, "conversation_id", and a
// JSON object as every answer (never empty output).
#pragma once

#include "events/AgentAdapter.h"

#include <functional>
#include <set>
#include <string>

namespace tidewick {

class CursorAdapter final : public AgentAdapter {
public:
    /// The events that expect a "permission" answer.
    [[nodiscard]] static const std::set<std::string, std::less<>>& permissionEvents();

    [[nodiscard]] AgentKind kind() const override { return AgentKind::cursor; }
    /// Ignores payloads without "conversation_id" or "session_id", a shell
    /// execution without "command", and events Tidewick does not report.
    [[nodiscard]] std::optional<ParsedHook> parse(std::string_view event,
                                                  const Payload& payload) const override;
    /// A JSON object for every combination; "ask" when a held call went unanswered.
    [[nodiscard]] HookOutput output(const ParsedHook& parsed,
                                    const std::optional<Decision>& decision) const override;
    /// Allows file reads and sub-agents, hands commands and tools to Cursor's
    /// own prompt, and answers {} otherwise.
    [[nodiscard]] HookOutput failSafe(std::string_view event) const override;
    /// True for "sessionEnd" only.
    [[nodiscard]] bool isFireAndForget(std::string_view event) const override;
};

} // namespace tidewick
