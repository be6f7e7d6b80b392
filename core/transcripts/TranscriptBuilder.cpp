#include "transcripts/TranscriptBuilder.h"

#include "foundation/Text.h"
#include "transcripts/TranscriptText.h"

namespace tidewick {

TranscriptBuilder::TranscriptBuilder(AgentKind agent, std::string sessionId, std::string source) {
    transcript_.agent = agent;
    transcript_.sessionId = std::move(sessionId);
    transcript_.source = std::move(source);
}

void TranscriptBuilder::noteTime(std::optional<Date> time) {
    if (!time)
        return;
    if (!transcript_.startedAt || *time < *transcript_.startedAt)
        transcript_.startedAt = time;
    if (!transcript_.lastActivityAt || *time > *transcript_.lastActivityAt)
        transcript_.lastActivityAt = time;
}

void TranscriptBuilder::note(std::optional<std::string>& field, const std::string* value) {
    if (value && !value->empty())
        field = *value;
}

void TranscriptBuilder::add(TranscriptEntry entry) {
    noteTime(entry.time);
    if (entry.tool) {
        if (!entry.tool->id.empty())
            calls_[entry.tool->id] = transcript_.entries.size();
    } else if (Text::trimmed(entry.text).empty()) {
        return;
    }
    transcript_.entries.push_back(std::move(entry));
}

ToolCall* TranscriptBuilder::toolCall(const std::string& id) {
    if (id.empty())
        return nullptr; // a call or result without an identifier pairs with nothing
    const auto found = calls_.find(id);
    return found == calls_.end() ? nullptr : &*transcript_.entries[found->second].tool;
}

void TranscriptBuilder::addToolResult(const std::string& id, std::string_view output,
                                      Outcome outcome, std::optional<Date> time,
                                      std::int64_t position) {
    noteTime(time);
    ToolCall* call = toolCall(id);
    if (!call) {
        // The call lay in a skipped middle: the result still tells what happened.
        TranscriptEntry entry;
        entry.role = TranscriptRole::tool;
        entry.time = time;
        entry.position = position;
        entry.tool.emplace();
        entry.tool->id = id;
        entry.tool->summary = "Tool call";
        add(std::move(entry));
        call = &*transcript_.entries.back().tool;
    }
    auto [lines, cut] = firstLines(output);
    call->result = std::move(lines);
    call->resultLinesCut = cut;
    call->failed = call->failed || outcome == Outcome::failed;
}

void TranscriptBuilder::markFailed(const std::string& id) {
    if (ToolCall* call = toolCall(id))
        call->failed = true;
}

void TranscriptBuilder::attachTokens(const TokenUse& tokens) {
    for (auto entry = transcript_.entries.rbegin(); entry != transcript_.entries.rend(); ++entry) {
        if (entry->role != TranscriptRole::agent && entry->role != TranscriptRole::tool)
            continue;
        if (!entry->tokens)
            entry->tokens = tokens;
        return;
    }
}

void TranscriptBuilder::addSkipped(std::int64_t bytes, std::int64_t position) {
    TranscriptEntry marker;
    marker.role = TranscriptRole::system;
    marker.text = TranscriptText::skipped(bytes);
    marker.skippedBytes = bytes;
    marker.position = position;
    transcript_.entries.push_back(std::move(marker));
    transcript_.skippedBytes += bytes;
}

std::optional<JSONValue> TranscriptBuilder::parseLine(std::string_view line,
                                                      HeadTailFile::LineEnd end) {
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    if (Text::trimmedSpaces(line).empty())
        return std::nullopt;
    try {
        return JSONValue::parse(line);
    } catch (const JSONValue::ParseError&) {
        if (end == HeadTailFile::LineEnd::complete)
            ++transcript_.unreadableLines;
        return std::nullopt;
    }
}

Transcript TranscriptBuilder::finish() {
    TokenUse sum;
    for (const TranscriptEntry& entry : transcript_.entries) {
        if (entry.role == TranscriptRole::user)
            ++transcript_.userMessages;
        if (entry.tool) {
            ++transcript_.toolCalls;
            transcript_.failedToolCalls += entry.tool->failed ? 1 : 0;
        }
        if (entry.tokens)
            sum += *entry.tokens;
    }
    for (const SubagentThread& thread : transcript_.subagents)
        sum += thread.tokens;
    transcript_.tokens = recordedTotal_.value_or(sum);
    return std::move(transcript_);
}

std::pair<std::string, std::size_t> TranscriptBuilder::firstLines(std::string_view output) {
    std::size_t end = 0;
    std::size_t lines = 0;
    while (end < output.size() && lines < ToolCall::resultLineLimit) {
        const std::size_t next = output.find('\n', end);
        end = next == std::string_view::npos ? output.size() : next + 1;
        ++lines;
    }
    std::string_view kept = output.substr(0, end);
    std::size_t cut = 0;
    for (std::size_t at = end; at < output.size(); ++cut) {
        const std::size_t next = output.find('\n', at);
        at = next == std::string_view::npos ? output.size() : next + 1;
    }
    while (!kept.empty() && (kept.back() == '\n' || kept.back() == '\r'))
        kept.remove_suffix(1);
    return {Text::cut(kept, ToolCall::textLimit, Text::ellipsis), cut};
}

} // namespace tidewick
