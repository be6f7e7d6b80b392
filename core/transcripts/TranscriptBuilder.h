// What every transcript reader shares: adding entries in order, pairing each
// tool call with its result, marking a skipped middle, and the counts.
#pragma once

#include "foundation/JSONValue.h"
#include "transcripts/HeadTailFile.h"
#include "transcripts/Transcript.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class TranscriptBuilder {
public:
    TranscriptBuilder(AgentKind agent, std::string sessionId, std::string source);

    /// The transcript being built, for the facts a reader sets itself.
    [[nodiscard]] Transcript& transcript() { return transcript_; }

    /// Widens the session's first and latest time to `time`.
    void noteTime(std::optional<Date> time);
    /// Sets `field` to `value` when there is one (a later value wins).
    static void note(std::optional<std::string>& field, const std::string* value);

    /// How a tool call's result says it went.
    enum class Outcome { succeeded, failed };

    /// Appends `entry`. A message with no text is dropped, since nothing would show; a tool
    /// call is remembered, to be paired with the result that names its id.
    void add(TranscriptEntry entry);
    /// Gives the call `id` its result (the first lines of `output` are kept) and outcome. A
    /// result whose call was not read becomes a tool entry of its own.
    void addToolResult(const std::string& id, std::string_view output, Outcome outcome,
                       std::optional<Date> time, std::int64_t position);
    /// Marks the call `id` failed (an agent that records the outcome apart from the output).
    void markFailed(const std::string& id);
    /// The call `id`, if it was read.
    [[nodiscard]] ToolCall* toolCall(const std::string& id);
    /// Gives `tokens` to the latest entry of the agent or a tool that has none yet.
    void attachTokens(const TokenUse& tokens);
    /// The agent's own running total, which then stands for the session's tokens.
    void setRecordedTotal(const TokenUse& tokens) { recordedTotal_ = tokens; }
    /// Marks the middle of `bytes` bytes that was not read, where it was.
    void addSkipped(std::int64_t bytes, std::int64_t position);
    void addSubagent(SubagentThread thread) { transcript_.subagents.push_back(std::move(thread)); }

    /// Reads every line of `file` that is JSON and hands it to `onLine(const JSONValue&,
    /// std::int64_t offset)`; lines that are not are counted as unreadable (a last line still
    /// being written is not), and the skipped middle gets its marker.
    template <typename OnLine> void readJSONLines(const HeadTailFile& file, OnLine&& onLine) {
        transcript_.position = file.size();
        file.forEachLine(
            [&](std::string_view line, std::int64_t offset, HeadTailFile::LineEnd end) {
                if (const std::optional<JSONValue> value = parseLine(line, end))
                    onLine(*value, offset);
            },
            [&](std::int64_t bytes, std::int64_t offset) { addSkipped(bytes, offset); });
    }

    /// The transcript with its counts and tokens filled in.
    [[nodiscard]] Transcript finish();

    /// The first ToolCall::resultLineLimit lines of `output` (at most ToolCall::textLimit
    /// characters) and how many lines were left out.
    [[nodiscard]] static std::pair<std::string, std::size_t> firstLines(std::string_view output);

private:
    [[nodiscard]] std::optional<JSONValue> parseLine(std::string_view line,
                                                     HeadTailFile::LineEnd end);
    Transcript transcript_;
    /// Index in the entries of each tool call read, by id.
    std::map<std::string, std::size_t> calls_;
    std::optional<TokenUse> recordedTotal_;
};

} // namespace tidewick
