#include "transcripts/MessageLines.h"

#include "foundation/Text.h"
#include "transcripts/RecordAccess.h"
#include "transcripts/RecordedTime.h"

namespace tidewick {

namespace {

using RecordAccess::at;
using RecordAccess::stringAt;

// The first of `keys` present on `value`, or on its "message".
const JSONValue* field(const JSONValue& value, std::initializer_list<std::string_view> keys) {
    for (const JSONValue* where : {&value, value.get("message")})
        for (std::string_view key : keys)
            if (const JSONValue* found = where ? where->get(key) : nullptr)
                return found;
    return nullptr;
}

std::optional<TranscriptRole> roleNamed(const std::string* name) {
    if (!name)
        return std::nullopt;
    const std::string lower = Text::lowercased(*name);
    if (lower == "user" || lower == "human")
        return TranscriptRole::user;
    if (lower == "assistant" || lower == "agent" || lower == "model" || lower == "ai")
        return TranscriptRole::agent;
    if (lower == "tool" || lower == "tool_result" || lower == "function")
        return TranscriptRole::tool;
    if (lower == "system")
        return TranscriptRole::system;
    return std::nullopt;
}

std::string firstText(const JSONValue& value, std::initializer_list<std::string_view> keys) {
    for (std::string_view key : keys)
        if (const std::string* text = stringAt(&value, {key}))
            return *text;
    return {};
}

bool isTrue(const JSONValue* value) {
    return value && value->boolValue() == true;
}

} // namespace

std::string MessageLines::unwrapQuery(std::string_view text) {
    const std::string_view trimmed = Text::trimmed(text);
    constexpr std::string_view open = "<user_query>", close = "</user_query>";
    if (Text::startsWith(trimmed, open) && trimmed.ends_with(close))
        return std::string(Text::trimmed(
            trimmed.substr(open.size(), trimmed.size() - open.size() - close.size())));
    return std::string(text);
}

void MessageLines::read(const JSONValue& line, std::int64_t offset) {
    const std::optional<Date> time =
        RecordedTime::fromJSON(field(line, {"timestamp", "createdAt", "created_at", "time"}));
    builder_.noteTime(time);
    Transcript& facts = builder_.transcript();
    if (const JSONValue* model = field(line, {"model", "modelName"}))
        TranscriptBuilder::note(facts.model, model->stringValue());
    if (const JSONValue* cwd = field(line, {"cwd", "workspacePath"}))
        TranscriptBuilder::note(facts.projectPath, cwd->stringValue());

    const JSONValue* roleValue = field(line, {"role", "type"});
    const std::optional<TranscriptRole> role =
        roleNamed(roleValue ? roleValue->stringValue() : nullptr);
    if (!role)
        return;
    const JSONValue* content = field(line, {"content", "text"});
    if (*role == TranscriptRole::tool) {
        const JSONValue* id = field(line, {"tool_call_id", "toolCallId", "tool_use_id"});
        const std::string* callId = id ? id->stringValue() : nullptr;
        builder_.addToolResult(callId ? *callId : "", RecordAccess::contentText(content),
                               isTrue(field(line, {"is_error", "isError"}))
                                   ? TranscriptBuilder::Outcome::failed
                                   : TranscriptBuilder::Outcome::succeeded,
                               time, offset);
    } else if (const std::string* text = content ? content->stringValue() : nullptr) {
        TranscriptEntry entry;
        entry.role = *role;
        entry.text = *role == TranscriptRole::user ? unwrapQuery(*text) : *text;
        entry.time = time;
        entry.position = offset;
        builder_.add(std::move(entry));
    } else if (const JSONValue::Array* blocks = content ? content->arrayValue() : nullptr) {
        for (const JSONValue& block : *blocks)
            readBlock(block, *role, time, offset);
    }
    for (std::string_view key : {"tool_calls", "toolCalls"})
        if (const JSONValue* calls = field(line, {key}); calls && calls->arrayValue())
            for (const JSONValue& call : *calls->arrayValue())
                addCall(call, time, offset);
    if (*role == TranscriptRole::user)
        facts.turn = TurnState::running;
    else if (*role == TranscriptRole::agent)
        facts.turn = TurnState::finished;
}

void MessageLines::readBlock(const JSONValue& block, TranscriptRole role, std::optional<Date> time,
                             std::int64_t offset) {
    const std::string* type = stringAt(&block, {"type"});
    const std::string kind = type ? *type : "text";
    if (kind == "tool_use" || kind == "tool_call" || kind == "toolCall" || kind == "function_call")
        return addCall(block, time, offset);
    if (kind == "tool_result" || kind == "toolResult") {
        const std::string id =
            firstText(block, {"tool_use_id", "tool_call_id", "toolCallId", "id"});
        const JSONValue* output = block.get("content") ? block.get("content") : block.get("output");
        builder_.addToolResult(id, RecordAccess::contentText(output),
                               isTrue(block.get("is_error")) || isTrue(block.get("isError"))
                                   ? TranscriptBuilder::Outcome::failed
                                   : TranscriptBuilder::Outcome::succeeded,
                               time, offset);
        return;
    }
    TranscriptEntry entry;
    entry.role = role;
    entry.time = time;
    entry.position = offset;
    entry.thinking = kind == "thinking" || kind == "reasoning";
    entry.text = firstText(block, {"text", "thinking", "reasoning", "content"});
    if (!block.isObject() && block.stringValue())
        entry.text = *block.stringValue();
    if (role == TranscriptRole::user)
        entry.text = unwrapQuery(entry.text);
    builder_.add(std::move(entry));
}

void MessageLines::addCall(const JSONValue& call, std::optional<Date> time, std::int64_t offset) {
    const JSONValue* function = call.get("function");
    std::string name = firstText(call, {"name", "toolName", "tool"});
    if (name.empty() && function)
        name = firstText(*function, {"name"});
    const JSONValue* input = call.get("input");
    for (std::string_view key : {"args", "arguments", "parameters"})
        if (!input)
            input = call.get(key) ? call.get(key) : (function ? function->get(key) : nullptr);
    TranscriptEntry entry;
    entry.role = TranscriptRole::tool;
    entry.time = time;
    entry.position = offset;
    entry.tool = ToolCall::describe(firstText(call, {"id", "tool_call_id", "toolCallId"}),
                                    name.empty() ? "tool" : name, input);
    builder_.add(std::move(entry));
}

} // namespace tidewick
