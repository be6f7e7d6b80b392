#include "transcripts/CodexTranscriptReader.h"

#include "foundation/File.h"
#include "foundation/Text.h"
#include "transcripts/RecordAccess.h"
#include "transcripts/RecordedTime.h"
#include "transcripts/TranscriptBuilder.h"

#include <algorithm>
#include <functional>

namespace tidewick {

namespace {

using RecordAccess::at;
using RecordAccess::integerAt;
using RecordAccess::stringAt;
using Outcome = TranscriptBuilder::Outcome;

TokenUse tokensOf(const JSONValue* usage) {
    TokenUse tokens;
    tokens.input = integerAt(usage, {"input_tokens"});
    tokens.cachedInput = integerAt(usage, {"cached_input_tokens"});
    tokens.cacheWrite = integerAt(usage, {"cache_write_input_tokens"});
    tokens.output = integerAt(usage, {"output_tokens"});
    tokens.reasoning = integerAt(usage, {"reasoning_output_tokens"});
    return tokens;
}

// The exit status in "Process exited with code N", if the output has that line.
std::optional<long> exitCodeLine(std::string_view output) {
    constexpr std::string_view marker = "Process exited with code ";
    const std::size_t at = output.find(marker);
    if (at == std::string_view::npos)
        return std::nullopt;
    return std::strtol(std::string(output.substr(at + marker.size(), 12)).c_str(), nullptr, 10);
}

// What a tool's output says and whether it failed. Older versions wrap it in
// {"output": ..., "metadata": {"exit_code": N}}; newer ones write a header before "Output:".
std::pair<std::string, Outcome> readOutput(const JSONValue* value) {
    std::string text = RecordAccess::contentText(value);
    if (const std::optional<JSONValue> wrapped = RecordAccess::objectOrEmbedded(value)) {
        const std::string* inner = stringAt(&*wrapped, {"output"});
        const JSONValue* code = at(&*wrapped, {"metadata", "exit_code"});
        if (inner) {
            const bool failed = code && code->intValue().value_or(0) != 0;
            return {*inner, failed ? Outcome::failed : Outcome::succeeded};
        }
    }
    const std::optional<long> code = exitCodeLine(text);
    const std::string_view firstLine = std::string_view(text).substr(0, text.find('\n'));
    const bool refused = firstLine.find(" failed") != std::string_view::npos ||
                         Text::startsWith(firstLine, "failed") ||
                         Text::startsWith(Text::lowercased(firstLine), "error");
    const Outcome outcome =
        (code && *code != 0) || (!code && refused) ? Outcome::failed : Outcome::succeeded;
    if (const std::size_t header = text.find("\nOutput:\n"); code && header != std::string::npos) {
        std::string output = text.substr(header + 9);
        if (Text::trimmed(output).empty())
            output = "Exited with code " + std::to_string(*code);
        return {output, outcome};
    }
    return {text, outcome};
}

std::string summaryText(const JSONValue* summary) {
    std::string joined;
    for (const JSONValue& part :
         summary && summary->arrayValue() ? *summary->arrayValue() : JSONValue::Array{})
        if (const std::string* text = stringAt(&part, {"text"}))
            joined += (joined.empty() ? "" : "\n\n") + *text;
    return joined;
}

class RolloutReader {
public:
    explicit RolloutReader(TranscriptBuilder& builder) : builder_(builder) {}

    void read(const JSONValue& line, std::int64_t offset) {
        const std::string* type = stringAt(&line, {"type"});
        const JSONValue* payload = line.get("payload");
        time_ = RecordedTime::fromJSON(line.get("timestamp"));
        offset_ = offset;
        builder_.noteTime(time_);
        if (!type || !payload)
            return;
        Transcript& facts = builder_.transcript();
        if (*type == "session_meta") {
            TranscriptBuilder::note(facts.projectPath, stringAt(payload, {"cwd"}));
            TranscriptBuilder::note(facts.agentVersion, stringAt(payload, {"cli_version"}));
            TranscriptBuilder::note(facts.branch, stringAt(payload, {"git", "branch"}));
            builder_.noteTime(RecordedTime::fromJSON(payload->get("timestamp")));
        } else if (*type == "turn_context") {
            TranscriptBuilder::note(facts.model, stringAt(payload, {"model"}));
            TranscriptBuilder::note(facts.projectPath, stringAt(payload, {"cwd"}));
        } else if (*type == "response_item") {
            readItem(*payload);
        } else if (*type == "event_msg") {
            readEvent(*payload);
        }
    }

private:
    void add(TranscriptRole role, std::string text, bool thinking = false) {
        TranscriptEntry entry;
        entry.role = role;
        entry.text = std::move(text);
        entry.thinking = thinking;
        entry.time = time_;
        entry.position = offset_;
        builder_.add(std::move(entry));
    }

    void addCall(const JSONValue& item, const std::string& name, const JSONValue* input) {
        const std::string* id = stringAt(&item, {"call_id"});
        TranscriptEntry entry;
        entry.role = TranscriptRole::tool;
        entry.time = time_;
        entry.position = offset_;
        entry.tool = ToolCall::describe(id ? *id : "", name, input);
        builder_.add(std::move(entry));
    }

    void readItem(const JSONValue& item) {
        const std::string* kind = stringAt(&item, {"type"});
        const std::string* name = stringAt(&item, {"name"});
        if (!kind)
            return;
        if (*kind == "message") {
            const std::string* role = stringAt(&item, {"role"});
            if (role && *role == "assistant")
                add(TranscriptRole::agent, RecordAccess::contentText(item.get("content")));
        } else if (*kind == "reasoning") {
            // Summaries are {"type": "summary_text", "text": ...}: any block with a text counts.
            std::string thought = summaryText(item.get("summary"));
            if (thought.empty())
                thought = RecordAccess::contentText(item.get("content"));
            add(TranscriptRole::agent, thought, true);
        } else if (*kind == "function_call") {
            addCall(item, name ? *name : "tool", item.get("arguments"));
        } else if (*kind == "custom_tool_call") {
            addCall(item, name ? *name : "tool", item.get("input"));
        } else if (*kind == "local_shell_call") {
            const JSONValue input(JSONValue::Object{
                {"command", at(&item, {"action", "command"}) ? *at(&item, {"action", "command"})
                                                             : JSONValue()}});
            addCall(item, "local_shell", &input);
        } else if (*kind == "function_call_output" || *kind == "custom_tool_call_output") {
            const std::string* id = stringAt(&item, {"call_id"});
            auto [text, outcome] = readOutput(item.get("output"));
            builder_.addToolResult(id ? *id : "", text, outcome, time_, offset_);
        }
    }

    void readEvent(const JSONValue& event) {
        const std::string* kind = stringAt(&event, {"type"});
        if (!kind)
            return;
        Transcript& facts = builder_.transcript();
        if (*kind == "user_message") {
            const std::string* message = stringAt(&event, {"message"});
            add(TranscriptRole::user, message ? *message : "");
            facts.turn = TurnState::running;
        } else if (*kind == "item_completed") {
            readCompleted(*event.get("item"));
        } else if (*kind == "token_count") {
            if (const JSONValue* last = at(&event, {"info", "last_token_usage"}))
                builder_.attachTokens(tokensOf(last));
            if (const JSONValue* total = at(&event, {"info", "total_token_usage"}))
                builder_.setRecordedTotal(tokensOf(total));
        } else if (*kind == "task_started") {
            facts.turn = TurnState::running;
        } else if (*kind == "task_complete") {
            facts.turn = TurnState::finished;
        } else if (*kind == "turn_aborted") {
            add(TranscriptRole::system, "The turn was interrupted.");
            facts.turn = TurnState::finished;
        } else if (*kind == "exec_command_end" || *kind == "patch_apply_end") {
            const std::string* id = stringAt(&event, {"call_id"});
            const JSONValue* success = event.get("success");
            if (id && (integerAt(&event, {"exit_code"}) != 0 ||
                       (success && success->boolValue() == false)))
                builder_.markFailed(*id);
        } else if (*kind == "error") {
            const std::string* message = stringAt(&event, {"message"});
            add(TranscriptRole::system, "Error: " + (message ? *message : std::string()));
        }
    }

    void readCompleted(const JSONValue& item) {
        const std::string* kind = stringAt(&item, {"type"});
        if (!kind)
            return;
        if (*kind == "UserMessage") {
            add(TranscriptRole::user, RecordAccess::contentText(item.get("content")));
            builder_.transcript().turn = TurnState::running;
        } else if (*kind == "HookPrompt") {
            add(TranscriptRole::system,
                "Hook: " + RecordAccess::contentText(item.get("fragments")));
        } else if (*kind == "CommandExecution") {
            const std::string* id = stringAt(&item, {"id"});
            const std::string* status = stringAt(&item, {"status"});
            const bool failed = integerAt(&item, {"exit_code"}) != 0 ||
                                (status && (*status == "failed" || *status == "declined"));
            if (id && failed)
                builder_.markFailed(*id);
        }
    }

    TranscriptBuilder& builder_;
    std::optional<Date> time_;
    std::int64_t offset_ = 0;
};

// Folder names of `path` sorted newest first; none when it cannot be listed.
std::vector<std::string> newestFirst(const std::string& path) {
    std::vector<std::string> names;
    try {
        names = File::listFolder(path);
    } catch (const std::exception&) {
    }
    std::sort(names.begin(), names.end(), std::greater<>());
    return names;
}

} // namespace

Transcript CodexTranscriptReader::read(const std::string& path, const std::string& sessionId,
                                       HeadTailFile::Limits limits) {
    TranscriptBuilder builder(AgentKind::codex, sessionId, path);
    RolloutReader reader(builder);
    builder.readJSONLines(
        HeadTailFile(path, limits),
        [&](const JSONValue& line, std::int64_t offset) { reader.read(line, offset); });
    return builder.finish();
}

std::optional<std::string> CodexTranscriptReader::find(const std::string& sessionsFolder,
                                                       const std::string& sessionId) {
    if (sessionId.empty())
        return std::nullopt;
    const std::string suffix = "-" + sessionId + ".jsonl";
    for (const std::string& year : newestFirst(sessionsFolder))
        for (const std::string& month : newestFirst(File::join(sessionsFolder, year)))
            for (const std::string& day :
                 newestFirst(File::join(File::join(sessionsFolder, year), month))) {
                const std::string folder =
                    File::join(File::join(File::join(sessionsFolder, year), month), day);
                for (const std::string& name : newestFirst(folder))
                    if (Text::startsWith(name, "rollout-") && name.ends_with(suffix))
                        return File::join(folder, name);
            }
    return std::nullopt;
}

} // namespace tidewick
