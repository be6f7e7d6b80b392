// Every sentence the user reads about transcripts and handoffs, in one place.
#pragma once

#include "events/AgentKind.h"
#include "transcripts/TranscriptEntry.h"

#include <string>
#include <string_view>

namespace tidewick::TranscriptText {

/// "Tidewick couldn't find Codex's record of session 1a2b3c4d."
[[nodiscard]] std::string notFound(AgentKind agent, std::string_view sessionId);
/// "Tidewick couldn't read Codex's record of session 1a2b3c4d: " and the reason.
[[nodiscard]] std::string unreadable(AgentKind agent, std::string_view sessionId,
                                     std::string_view reason);
/// "Handoff written to " and the path.
[[nodiscard]] std::string handoffWritten(std::string_view path);
/// A handoff that would have carried the shared secret: nothing was written.
inline constexpr std::string_view handoffRefused =
    "Tidewick didn't write the handoff: it would have contained Tidewick's secret.";
/// "You", "Agent", "Tool", "System": who an entry comes from, as listings show it.
[[nodiscard]] std::string_view roleLabel(TranscriptRole role);
/// "✓" finished, "✗" failed, "…" no result yet: a tool call's outcome in one character.
[[nodiscard]] std::string_view outcomeMark(const ToolCall& call);
/// "1 prompt", "3 prompts": a count with its noun (an English plural in "s").
[[nodiscard]] std::string counted(long long count, std::string_view noun);
/// The marker of a long record's middle that was not read.
[[nodiscard]] std::string skipped(long long bytes);

} // namespace tidewick::TranscriptText
