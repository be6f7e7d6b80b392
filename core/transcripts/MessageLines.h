// Reads JSON lines shaped like chat messages ({"role", "content"} in one of
// their common forms), for the records whose exact form no real sample shows:
// Cursor's agent transcripts and Antigravity's JSON Lines mirror. What is
// recognised is kept; anything else is passed over.
#pragma once

#include "foundation/JSONValue.h"
#include "transcripts/TranscriptBuilder.h"

#include <cstdint>

namespace tidewick {

class MessageLines {
public:
    explicit MessageLines(TranscriptBuilder& builder) : builder_(builder) {}

    /// Reads one line. The role is "role" or "type" (user, assistant, tool, system), at the
    /// top or under "message"; the content is "content" there or under "message" (a string
    /// or blocks: text, thinking, tool_use / tool_call, tool_result); calls may also come in
    /// "tool_calls" / "toolCalls", and a "tool" line answers the call its "tool_call_id" or
    /// "toolCallId" names. The time is "timestamp", "createdAt", "created_at" or "time".
    void read(const JSONValue& line, std::int64_t offset);

    /// `text` without a <user_query> wrapper, which Cursor puts around typed prompts.
    [[nodiscard]] static std::string unwrapQuery(std::string_view text);

private:
    void readBlock(const JSONValue& block, TranscriptRole role, std::optional<Date> time,
                   std::int64_t offset);
    void addCall(const JSONValue& call, std::optional<Date> time, std::int64_t offset);

    TranscriptBuilder& builder_;
};

} // namespace tidewick
