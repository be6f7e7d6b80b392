#include "transcripts/CursorTranscriptReader.h"

#include "foundation/File.h"
#include "foundation/Text.h"
#include "transcripts/MessageLines.h"
#include "transcripts/TranscriptBuilder.h"

#include <algorithm>

namespace tidewick {

namespace {

// Reads the plain-text form line by line.
class PlainTextReader {
public:
    explicit PlainTextReader(TranscriptBuilder& builder) : builder_(builder) {}

    void read(std::string_view line, std::int64_t offset) {
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        const std::string_view trimmed = Text::trimmed(line);
        const std::string lower = Text::lowercased(trimmed);
        if (lower == "user:" || lower == "human:")
            return start(TranscriptRole::user, offset);
        if (lower == "assistant:" || lower == "a:" || lower == "agent:")
            return start(TranscriptRole::agent, offset);
        if (Text::startsWith(trimmed, "[Tool call]")) {
            flush();
            callName_ = Text::trimmed(trimmed.substr(11));
            callInput_ = JSONValue::Object{};
            callOffset_ = offset;
            state_ = State::call;
            return;
        }
        if (Text::startsWith(trimmed, "[Tool result]")) {
            flush();
            state_ = State::result;
            text_.clear();
            return;
        }
        if (Text::startsWith(trimmed, "[Thinking]")) {
            flush();
            state_ = State::thinking;
            text_ = Text::trimmed(trimmed.substr(10));
            offset_ = offset;
            return;
        }
        if (state_ == State::call) {
            // "  command: ls" lines describe the call's input.
            const std::size_t colon = trimmed.find(':');
            if (colon != std::string_view::npos && colon > 0) {
                callInput_.set(std::string(trimmed.substr(0, colon)),
                               std::string(Text::trimmed(trimmed.substr(colon + 1))));
                return;
            }
            if (trimmed.empty())
                return;
            flush();
            state_ = State::message;
            offset_ = offset;
        }
        if (state_ == State::none)
            return;
        if (!text_.empty() || !trimmed.empty())
            text_ += (text_.empty() ? "" : "\n") + std::string(line);
    }

    void flush() {
        if (state_ == State::call) {
            const std::string id = "call-" + std::to_string(++calls_);
            TranscriptEntry entry;
            entry.role = TranscriptRole::tool;
            entry.position = callOffset_;
            entry.tool =
                ToolCall::describe(id, callName_.empty() ? "tool" : callName_, &callInput_);
            builder_.add(std::move(entry));
            lastCall_ = id;
            text_.clear();
            state_ = role_ == TranscriptRole::agent ? State::message : State::none;
            return;
        }
        if (state_ == State::result) {
            if (!lastCall_.empty())
                builder_.addToolResult(lastCall_, Text::trimmed(text_),
                                       TranscriptBuilder::Outcome::succeeded, std::nullopt,
                                       offset_);
        } else if (state_ == State::message || state_ == State::thinking) {
            TranscriptEntry entry;
            entry.role = role_;
            entry.thinking = state_ == State::thinking;
            entry.text = role_ == TranscriptRole::user ? MessageLines::unwrapQuery(text_)
                                                       : std::string(Text::trimmed(text_));
            entry.position = offset_;
            builder_.add(std::move(entry));
        }
        text_.clear();
        state_ = State::message;
    }

private:
    enum class State { none, message, thinking, call, result };

    void start(TranscriptRole role, std::int64_t offset) {
        flush();
        role_ = role;
        state_ = State::message;
        offset_ = offset;
        builder_.transcript().turn =
            role == TranscriptRole::user ? TurnState::running : TurnState::finished;
    }

    TranscriptBuilder& builder_;
    TranscriptRole role_ = TranscriptRole::system;
    State state_ = State::none;
    std::string text_;
    std::int64_t offset_ = 0;
    std::string callName_;
    JSONValue callInput_ = JSONValue::Object{};
    std::int64_t callOffset_ = 0;
    std::string lastCall_;
    int calls_ = 0;
};

bool looksLikeJSONLines(const HeadTailFile& file) {
    bool json = false, decided = false;
    file.forEachLine(
        [&](std::string_view line, std::int64_t, HeadTailFile::LineEnd) {
            const std::string_view trimmed = Text::trimmedSpaces(line);
            if (decided || trimmed.empty())
                return;
            decided = true;
            json = trimmed.front() == '{';
        },
        [](std::int64_t, std::int64_t) {});
    return json;
}

} // namespace

Transcript CursorTranscriptReader::read(const std::string& path, const std::string& sessionId,
                                        HeadTailFile::Limits limits) {
    TranscriptBuilder builder(AgentKind::cursor, sessionId, path);
    const HeadTailFile file(path, limits);
    if (looksLikeJSONLines(file)) {
        MessageLines reader(builder);
        builder.readJSONLines(
            file, [&](const JSONValue& line, std::int64_t offset) { reader.read(line, offset); });
        return builder.finish();
    }
    builder.transcript().position = file.size();
    PlainTextReader reader(builder);
    file.forEachLine([&](std::string_view line, std::int64_t offset,
                         HeadTailFile::LineEnd) { reader.read(line, offset); },
                     [&](std::int64_t bytes, std::int64_t offset) {
                         reader.flush();
                         builder.addSkipped(bytes, offset);
                     });
    reader.flush();
    return builder.finish();
}

std::optional<std::string> CursorTranscriptReader::find(const std::string& projectsFolder,
                                                        const std::string& chatId) {
    if (chatId.empty() || chatId.find('/') != std::string::npos)
        return std::nullopt;
    std::vector<std::string> projects;
    try {
        projects = File::listFolder(projectsFolder);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    std::sort(projects.begin(), projects.end());
    for (const char* extension : {".jsonl", ".txt"})
        for (const std::string& project : projects) {
            const std::string path =
                File::join(File::join(File::join(projectsFolder, project), "agent-transcripts"),
                           chatId + extension);
            if (File::exists(path))
                return path;
        }
    return std::nullopt;
}

} // namespace tidewick
