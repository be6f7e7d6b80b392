#include "transcripts/ToolCall.h"

#include "events/ToolDescriber.h"
#include "foundation/JSONCoding.h"
#include "foundation/Text.h"
#include "transcripts/RecordAccess.h"

namespace tidewick {

namespace {

// The files a patch adds or changes, in the "*** Add File: " format.
std::vector<FileTouched> patchedFiles(std::string_view patch) {
    std::vector<FileTouched> files;
    for (std::string_view path : ToolDescriber::patchedFiles(patch)) {
        const bool added = patch.find("*** Add File: " + std::string(path)) != std::string::npos;
        const bool deleted =
            patch.find("*** Delete File: " + std::string(path)) != std::string::npos;
        if (!deleted)
            files.push_back({std::string(path), added ? FileChange::created : FileChange::edited});
    }
    return files;
}

} // namespace

ToolCall ToolCall::describe(std::string id, std::string name, const JSONValue* input) {
    // A tool that takes plain text (a patch) gets it as its "input".
    std::optional<JSONValue> arguments = RecordAccess::objectOrEmbedded(input);
    if (!arguments && input && input->isString())
        arguments = JSONValue(JSONValue::Object{{"input", *input}});
    const JSONValue* described = arguments ? &*arguments : nullptr;
    const ToolDescription description = ToolDescriber::describe(name, described);

    ToolCall call;
    call.id = std::move(id);
    call.summary = description.title;
    // A sub-agent's task says more than the tool's name.
    if (const std::string* task = RecordAccess::stringAt(described, {"description"});
        task && (name == "Agent" || name == "Task"))
        call.summary = name + ": " + Text::cut(*task, 60, Text::ellipsis);
    call.name = std::move(name);
    if (description.detail)
        call.input = Text::cut(*description.detail, textLimit, Text::ellipsis);
    call.command = description.command;
    // Which files it changed, by the tool's kind: agents name their editing tools alike.
    const std::string lower = Text::lowercased(call.name);
    const std::string path = description.detail.value_or("");
    const bool isPath = !description.isShell && !path.empty() &&
                        path.find('\n') == std::string::npos && path.find('/') != std::string::npos;
    if (Text::startsWith(call.summary, "Patch ") || lower.find("patch") != std::string::npos) {
        for (std::string_view key : {"input", "patch"})
            if (const std::string* patch = RecordAccess::stringAt(described, {key});
                patch && call.files.empty())
                call.files = patchedFiles(*patch);
    } else if (isPath && (lower.find("write") != std::string::npos ||
                          lower.find("create") != std::string::npos)) {
        call.files.push_back({path, FileChange::created});
    } else if (isPath && (lower.find("edit") != std::string::npos ||
                          lower.find("replace") != std::string::npos)) {
        call.files.push_back({path, FileChange::edited});
    }
    return call;
}

void writeJSON(JSONWriter& out, const FileTouched& file) {
    out.beginObject();
    out.member("path", file.path);
    out.member("change", file.change);
    out.endObject();
}

void writeJSON(JSONWriter& out, const ToolCall& call) {
    out.beginObject();
    out.member("id", call.id);
    out.member("name", call.name);
    out.member("summary", call.summary);
    out.member("input", call.input);
    out.member("command", call.command);
    out.member("files", call.files);
    out.member("result", call.result);
    out.member("resultLinesCut", static_cast<std::int64_t>(call.resultLinesCut));
    out.member("failed", call.failed);
    out.member("finished", call.finished());
    out.endObject();
}

} // namespace tidewick
