#include "transcripts/ClaudeTranscriptReader.h"

#include "foundation/File.h"
#include "foundation/Text.h"
#include "transcripts/RecordAccess.h"
#include "transcripts/RecordedTime.h"
#include "transcripts/TranscriptBuilder.h"

#include <algorithm>
#include <map>
#include <memory>

namespace tidewick {

namespace {

using RecordAccess::at;
using RecordAccess::integerAt;
using RecordAccess::stringAt;

// The text between <tag> and </tag> in `text`; empty when there is none.
std::string_view between(std::string_view text, std::string_view tag) {
    const std::string open = "<" + std::string(tag) + ">", close = "</" + std::string(tag) + ">";
    const std::size_t start = text.find(open);
    if (start == std::string_view::npos)
        return {};
    const std::size_t from = start + open.size();
    const std::size_t end = text.find(close, from);
    return end == std::string_view::npos ? std::string_view{} : text.substr(from, end - from);
}

TokenUse tokensOf(const JSONValue& usage) {
    TokenUse tokens;
    tokens.cachedInput = integerAt(&usage, {"cache_read_input_tokens"});
    tokens.cacheWrite = integerAt(&usage, {"cache_creation_input_tokens"});
    tokens.input = integerAt(&usage, {"input_tokens"}) + tokens.cachedInput + tokens.cacheWrite;
    tokens.output = integerAt(&usage, {"output_tokens"});
    tokens.reasoning = integerAt(&usage, {"output_tokens_details", "thinking_tokens"});
    return tokens;
}

// Reads the lines of one thread (the main one or a sub-agent's) into one builder.
class ThreadReader {
public:
    explicit ThreadReader(TranscriptBuilder& builder) : builder_(builder) {}

    void read(const JSONValue& line, std::int64_t offset) {
        const std::string* type = stringAt(&line, {"type"});
        if (!type)
            return;
        const std::optional<Date> time = RecordedTime::fromJSON(line.get("timestamp"));
        Transcript& facts = builder_.transcript();
        TranscriptBuilder::note(facts.projectPath, stringAt(&line, {"cwd"}));
        TranscriptBuilder::note(facts.branch, stringAt(&line, {"gitBranch"}));
        TranscriptBuilder::note(facts.agentVersion, stringAt(&line, {"version"}));
        if (*type == "user")
            readUser(line, time, offset);
        else if (*type == "assistant")
            readAssistant(line, time, offset);
        else if (*type == "system")
            readSystem(line, time, offset);
        else if (*type == "attachment")
            readAttachment(line, time, offset);
        else
            builder_.noteTime(time);
    }

private:
    void add(TranscriptRole role, std::string text, std::optional<Date> time, std::int64_t offset,
             bool thinking = false) {
        TranscriptEntry entry;
        entry.role = role;
        entry.text = std::move(text);
        entry.time = time;
        entry.position = offset;
        entry.thinking = thinking;
        if (role == TranscriptRole::agent && !Text::trimmed(entry.text).empty())
            entry.tokens = std::exchange(unattached_, std::nullopt);
        builder_.add(std::move(entry));
    }

    // A prompt: what the user typed, or what Claude Code put in the user's place.
    void readPrompt(std::string_view text, bool isMeta, std::optional<Date> time,
                    std::int64_t offset) {
        const std::string_view trimmed = Text::trimmed(text);
        if (Text::startsWith(trimmed, "<task-notification>")) {
            std::string said = std::string(between(trimmed, "summary"));
            if (std::string_view result = between(trimmed, "result"); !result.empty())
                said += ": " + std::string(result);
            add(TranscriptRole::system, said.empty() ? std::string(trimmed) : said, time, offset);
        } else if (Text::startsWith(trimmed, "<command-name>")) {
            std::string command = std::string(between(trimmed, "command-name"));
            if (std::string_view args = between(trimmed, "command-args"); !args.empty())
                command += " " + std::string(args);
            add(TranscriptRole::user, command, time, offset);
        } else if (Text::startsWith(trimmed, "<local-command-stdout>")) {
            add(TranscriptRole::system, std::string(between(trimmed, "local-command-stdout")), time,
                offset);
        } else if (Text::startsWith(trimmed, "<system-reminder>") &&
                   trimmed.ends_with("</system-reminder>")) {
            builder_.noteTime(time); // context Claude Code gives the model, not an event
        } else if (isMeta || Text::startsWith(trimmed, "[Request interrupted")) {
            add(TranscriptRole::system, std::string(trimmed), time, offset);
        } else {
            add(TranscriptRole::user, std::string(text), time, offset);
            builder_.transcript().turn = TurnState::running;
        }
    }

    void readUser(const JSONValue& line, std::optional<Date> time, std::int64_t offset) {
        const bool isMeta = at(&line, {"isMeta"}) && at(&line, {"isMeta"})->boolValue() == true;
        const JSONValue* content = at(&line, {"message", "content"});
        if (const std::string* text = content ? content->stringValue() : nullptr)
            return readPrompt(*text, isMeta, time, offset);
        const JSONValue::Array* blocks = content ? content->arrayValue() : nullptr;
        if (!blocks)
            return builder_.noteTime(time);
        for (const JSONValue& block : *blocks) {
            const std::string* type = stringAt(&block, {"type"});
            if (type && *type == "tool_result") {
                const std::string* id = stringAt(&block, {"tool_use_id"});
                const JSONValue* isError = block.get("is_error");
                const bool failed = isError && isError->boolValue() == true;
                builder_.addToolResult(id ? *id : "",
                                       RecordAccess::contentText(block.get("content")),
                                       failed ? TranscriptBuilder::Outcome::failed
                                              : TranscriptBuilder::Outcome::succeeded,
                                       time, offset);
                if (const std::string* kind = stringAt(&line, {"toolUseResult", "type"});
                    kind && *kind == "update" && id)
                    if (ToolCall* call = builder_.toolCall(*id))
                        for (FileTouched& file : call->files)
                            file.change = FileChange::edited;
            } else if (type && *type == "image") {
                add(isMeta ? TranscriptRole::system : TranscriptRole::user, "[image]", time,
                    offset);
            } else if (const std::string* text = stringAt(&block, {"text"})) {
                readPrompt(*text, isMeta, time, offset);
            }
        }
    }

    void readAssistant(const JSONValue& line, std::optional<Date> time, std::int64_t offset) {
        const JSONValue* message = line.get("message");
        TranscriptBuilder::note(builder_.transcript().model, stringAt(message, {"model"}));
        // Claude Code writes each block of a response on a line of its own, each repeating
        // the response's usage: it counts once.
        const std::string* id = stringAt(message, {"id"});
        if (!id || *id != lastMessage_) {
            lastMessage_ = id ? *id : "";
            const JSONValue* usage = at(message, {"usage"});
            unattached_ = usage ? std::optional<TokenUse>(tokensOf(*usage)) : std::nullopt;
        }
        const JSONValue::Array* blocks =
            message && message->get("content") ? message->get("content")->arrayValue() : nullptr;
        if (const std::string* text = stringAt(message, {"content"}))
            add(TranscriptRole::agent, *text, time, offset);
        for (const JSONValue& block : blocks ? *blocks : JSONValue::Array{}) {
            const std::string* type = stringAt(&block, {"type"});
            if (!type)
                continue;
            if (*type == "text") {
                const std::string* text = stringAt(&block, {"text"});
                add(TranscriptRole::agent, text ? *text : "", time, offset);
            } else if (*type == "thinking") {
                const std::string* thought = stringAt(&block, {"thinking"});
                add(TranscriptRole::agent, thought ? *thought : "", time, offset, true);
            } else if (*type == "tool_use") {
                const std::string* callId = stringAt(&block, {"id"});
                const std::string* name = stringAt(&block, {"name"});
                TranscriptEntry entry;
                entry.role = TranscriptRole::tool;
                entry.time = time;
                entry.position = offset;
                entry.tool = ToolCall::describe(callId ? *callId : "", name ? *name : "tool",
                                                block.get("input"));
                entry.tokens = std::exchange(unattached_, std::nullopt);
                builder_.add(std::move(entry));
            }
        }
        const std::string* stop = stringAt(message, {"stop_reason"});
        if (stop)
            builder_.transcript().turn =
                *stop == "tool_use" ? TurnState::running : TurnState::finished;
    }

    void readSystem(const JSONValue& line, std::optional<Date> time, std::int64_t offset) {
        const std::string* subtype = stringAt(&line, {"subtype"});
        const std::string* content = stringAt(&line, {"content"});
        if (subtype && *subtype == "stop_hook_summary")
            builder_.transcript().turn = TurnState::finished;
        if (subtype && *subtype == "compact_boundary")
            add(TranscriptRole::system, "Context compacted", time, offset);
        else if (content && (!subtype || *subtype != "stop_hook_summary"))
            add(TranscriptRole::system, *content, time, offset);
        else
            builder_.noteTime(time);
    }

    void readAttachment(const JSONValue& line, std::optional<Date> time, std::int64_t offset) {
        const JSONValue* attachment = line.get("attachment");
        const std::string* type = stringAt(attachment, {"type"});
        if (type && *type == "hook_blocking_error") {
            const std::string* hook = stringAt(attachment, {"hookEvent"});
            const std::string* said = stringAt(attachment, {"blockingError", "blockingError"});
            add(TranscriptRole::system,
                (hook ? *hook : std::string("A")) + " hook answered: " + (said ? *said : ""), time,
                offset);
        } else if (type && *type == "model" && !builder_.transcript().model) {
            TranscriptBuilder::note(builder_.transcript().model,
                                    stringAt(attachment, {"identity", "modelId"}));
        }
        builder_.noteTime(time);
    }

    TranscriptBuilder& builder_;
    std::string lastMessage_;
    /// The usage of the current response until an entry of it takes it.
    std::optional<TokenUse> unattached_;
};

// Reads one file into `builder`; sub-agent lines of the main file go to `sidechain`.
template <typename Sidechain>
void readFile(const HeadTailFile& file, TranscriptBuilder& builder, Sidechain&& sidechain) {
    ThreadReader reader(builder);
    builder.readJSONLines(file, [&](const JSONValue& line, std::int64_t offset) {
        const JSONValue* side = line.get("isSidechain");
        if (side && side->boolValue() == true && sidechain(line, offset))
            return;
        reader.read(line, offset);
    });
}

SubagentThread threadFrom(std::string id, Transcript read) {
    SubagentThread thread;
    thread.id = std::move(id);
    thread.entries = std::move(read.entries);
    thread.tokens = read.tokens;
    return thread;
}

std::optional<SubagentThread> readSubagentFile(const std::string& folder, const std::string& name,
                                               const std::string& sessionId,
                                               HeadTailFile::Limits limits) {
    const std::string stem = name.substr(0, name.size() - std::string_view(".jsonl").size());
    try {
        const std::string path = File::join(folder, name);
        TranscriptBuilder builder(AgentKind::claude, sessionId, path);
        readFile(HeadTailFile(path, limits), builder, [](const JSONValue&, std::int64_t) {
            return false; // in its own file, every line is the sub-agent's
        });
        SubagentThread thread =
            threadFrom(stem.substr(std::string_view("agent-").size()), builder.finish());
        const std::string metaPath = File::join(folder, stem + ".meta.json");
        if (File::exists(metaPath)) {
            const JSONValue meta = JSONValue::parse(File::read(metaPath));
            const std::string* description = stringAt(&meta, {"description"});
            TranscriptBuilder::note(thread.description,
                                    description ? description : stringAt(&meta, {"agentType"}));
            TranscriptBuilder::note(thread.toolCallId, stringAt(&meta, {"toolUseId"}));
        }
        return thread;
    } catch (const std::exception&) {
        return std::nullopt; // a sub-agent's file that cannot be read leaves the rest readable
    }
}

} // namespace

std::string ClaudeTranscriptReader::subagentFolder(const std::string& path) {
    std::string stem = path;
    if (stem.size() > 6 && stem.ends_with(".jsonl"))
        stem.resize(stem.size() - 6);
    return File::join(stem, "subagents");
}

Transcript ClaudeTranscriptReader::read(const std::string& path, const std::string& sessionId,
                                        HeadTailFile::Limits limits) {
    TranscriptBuilder builder(AgentKind::claude, sessionId, path);
    // Sub-agents that older versions wrote into the main file, by agent id.
    std::map<std::string, std::unique_ptr<TranscriptBuilder>> sidechains;
    std::map<std::string, std::unique_ptr<ThreadReader>> sidechainReaders;
    readFile(HeadTailFile(path, limits), builder, [&](const JSONValue& line, std::int64_t offset) {
        const std::string* agentId = stringAt(&line, {"agentId"});
        const std::string id = agentId ? *agentId : "sidechain";
        auto& thread = sidechains[id];
        if (!thread) {
            thread = std::make_unique<TranscriptBuilder>(AgentKind::claude, sessionId, path);
            sidechainReaders[id] = std::make_unique<ThreadReader>(*thread);
        }
        sidechainReaders[id]->read(line, offset);
        return true;
    });
    for (auto& [id, thread] : sidechains)
        builder.addSubagent(threadFrom(id, thread->finish()));

    const std::string folder = subagentFolder(path);
    std::vector<std::string> names;
    if (File::exists(folder)) {
        try {
            names = File::listFolder(folder);
        } catch (const std::exception&) {
        }
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        if (Text::startsWith(name, "agent-") && name.ends_with(".jsonl"))
            if (auto thread = readSubagentFile(folder, name, sessionId, limits))
                builder.addSubagent(std::move(*thread));
    return builder.finish();
}

} // namespace tidewick
