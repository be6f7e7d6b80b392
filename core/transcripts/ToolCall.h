// One tool call of a transcript with its result, whichever agent made it.
#pragma once

#include "foundation/EnumTable.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class JSONValue;
class JSONWriter;

/// What a tool call did to a file.
enum class FileChange { created, edited };

template <> struct RawValues<FileChange> {
    static constexpr EnumTable<FileChange, 2> table{{{
        {FileChange::created, "created"},
        {FileChange::edited, "edited"},
    }}};
};

/// A file a tool call created or edited.
struct FileTouched {
    std::string path;
    FileChange change = FileChange::edited;

    friend bool operator==(const FileTouched&, const FileTouched&) = default;
};

struct ToolCall {
    /// How many lines of a result are kept; the rest is counted in `resultLinesCut`.
    static constexpr std::size_t resultLineLimit = 12;
    /// How many characters of a result, and of the full input in `input`, are kept.
    static constexpr std::size_t textLimit = 2000;

    /// The agent's identifier of the call, which its result names too.
    std::string id;
    /// The tool's name as the agent calls it ("Bash", "exec_command").
    std::string name;
    /// The call on one line ("Run npm test", "Edit main.cpp").
    std::string summary;
    /// The full command, path or input, cut to textLimit characters.
    std::optional<std::string> input;
    /// The shell command, for a call that runs one.
    std::optional<std::string> command;
    /// Files the call created or edited.
    std::vector<FileTouched> files;
    /// The first resultLineLimit lines of the result; absent while no result was read.
    std::optional<std::string> result;
    /// Lines of the result left out of `result`.
    std::size_t resultLinesCut = 0;
    /// The result says the call failed (an error, a refusal, a non-zero exit status).
    bool failed = false;

    /// A call of `name` with `input` (an object, or the raw text some tools take), described
    /// as the rest of Tidewick describes tool calls; no result yet. Never fails.
    [[nodiscard]] static ToolCall describe(std::string id, std::string name,
                                           const JSONValue* input);

    /// Whether the result was read.
    [[nodiscard]] bool finished() const { return result.has_value(); }

    friend bool operator==(const ToolCall&, const ToolCall&) = default;
};

/// {"path", "change"}.
void writeJSON(JSONWriter& out, const FileTouched& file);
/// {"id", "name", "summary", "input"?, "command"?, "files", "result"?, "resultLinesCut",
/// "failed", "finished"}.
void writeJSON(JSONWriter& out, const ToolCall& call);

} // namespace tidewick
