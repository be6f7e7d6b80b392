// One step of a transcript: something the user, the agent, a tool or the
// system said or did, in the agent-neutral form every reader produces.
#pragma once

#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "transcripts/TokenUse.h"
#include "transcripts/ToolCall.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tidewick {

class JSONWriter;

/// Who an entry comes from.
enum class TranscriptRole {
    /// A prompt the user typed.
    user,
    /// The agent's own words (or its thinking).
    agent,
    /// A tool call and its result.
    tool,
    /// Anything else: hook feedback, notices, interruptions, the marker of a skipped middle.
    system,
};

template <> struct RawValues<TranscriptRole> {
    static constexpr EnumTable<TranscriptRole, 4> table{{{
        {TranscriptRole::user, "user"},
        {TranscriptRole::agent, "agent"},
        {TranscriptRole::tool, "tool"},
        {TranscriptRole::system, "system"},
    }}};
};

struct TranscriptEntry {
    TranscriptRole role = TranscriptRole::system;
    /// When the agent recorded it, where it did.
    std::optional<Date> time;
    /// The message; empty for a tool call.
    std::string text;
    /// The agent's thinking rather than its answer.
    bool thinking = false;
    /// For role `tool`: the call and, once read, its result.
    std::optional<ToolCall> tool;
    /// Tokens the model response behind this entry used, where the agent records them.
    /// A response split over several entries counts once, on its first entry.
    std::optional<TokenUse> tokens;
    /// The marker of a long file's middle that was not read: how many bytes it holds.
    std::optional<std::int64_t> skippedBytes;
    /// Where the entry was read: the byte offset of its line, or the step's number in a
    /// database.
    std::int64_t position = 0;

    friend bool operator==(const TranscriptEntry&, const TranscriptEntry&) = default;
};

/// {"role", "time"?, "text", "thinking"?, "tool"?, "tokens"?, "skippedBytes"?, "position"}.
void writeJSON(JSONWriter& out, const TranscriptEntry& entry);

} // namespace tidewick
