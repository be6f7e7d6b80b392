#include "events/ToolDescriber.h"

#include "events/QuestionDescriber.h"
#include "foundation/File.h"
#include "foundation/Text.h"

#include <array>
#include <initializer_list>
#include <span>

namespace tidewick::ToolDescriber {

namespace {

using NameList = std::initializer_list<std::string_view>;

constexpr auto editTools = std::to_array<std::string_view>(
    {"edit", "multiedit", "strreplace", "str_replace_editor", "str_replace_based_edit_tool",
     "notebookedit", "replace_file_content", "multi_replace_file_content"});
constexpr auto writeTools =
    std::to_array<std::string_view>({"write", "write_to_file", "create_file"});
constexpr auto readTools =
    std::to_array<std::string_view>({"read", "view_file", "read_file", "readlints"});
constexpr auto searchTools = std::to_array<std::string_view>(
    {"grep", "glob", "ls", "search", "grep_search", "find_by_name"});
constexpr auto webTools = std::to_array<std::string_view>(
    {"webfetch", "web_fetch", "read_url_content", "websearch", "web_search"});
constexpr auto patchMarkers = std::to_array<std::string_view>(
    {"*** Update File: ", "*** Add File: ", "*** Delete File: ", "*** Move to: "});

bool contains(std::span<const std::string_view> names, std::string_view name) {
    for (std::string_view candidate : names)
        if (candidate == name)
            return true;
    return false;
}

// The string under the first of `keys` that holds one; empty strings count.
std::optional<std::string> firstString(const JSONValue& dict, NameList keys) {
    for (std::string_view key : keys) {
        const JSONValue* value = dict.get(key);
        if (const std::string* text = value ? value->stringValue() : nullptr)
            return *text;
    }
    return std::nullopt;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0)
            out += separator;
        out += parts[i];
    }
    return out;
}

std::optional<ToolDescription> shellDescription(const std::string& lowerName,
                                                const JSONValue& input) {
    bool looksLikeShell = input.get("command") && !input.get("file_path");
    if (!shellNames().contains(lowerName) && !looksLikeShell)
        return std::nullopt;
    auto command = commandText(input.get("command"));
    if (!command)
        command = commandText(input.get("cmd"));
    if (!command)
        command = commandText(input.get("CommandLine"));
    if (!command)
        return std::nullopt;
    std::string title = "Run " + truncate(Text::replacingAll(*command, "\n", " "), 60);
    return ToolDescription{std::move(title), command, true, command};
}

ToolDescription patchDescription(const JSONValue& input) {
    auto patch = firstString(input, {"input", "patch", "command"});
    std::vector<std::string> files = patchedFiles(patch.value_or(""));
    if (files.empty())
        return {"Apply patch", patch, false, std::nullopt};
    // Two names keep the title on one line; the detail lists every file.
    std::vector<std::string> names;
    for (size_t i = 0; i < files.size() && i < 2; ++i)
        names.push_back(File::lastComponent(files[i]));
    return {"Patch " + joined(names, ", "), joined(files, "\n"), false, std::nullopt};
}

// "<tool> <value shortened to limit>", or just the tool when there is no value.
ToolDescription queryDescription(const std::string& name, const std::optional<std::string>& value,
                                 size_t limit) {
    std::string title = name;
    if (value)
        title = std::string(Text::trimmed(name + " " + truncate(*value, limit)));
    return {std::move(title), value, false, std::nullopt};
}

} // namespace

bool isShellTool(const std::optional<std::string>& name) {
    return name && shellNames().contains(Text::lowercased(*name));
}

ToolDescription describe(const std::optional<std::string>& tool, const JSONValue* input) {
    const JSONValue dict = QuestionDescriber::asDict(input).value_or(JSONValue::Object{});
    const std::string name = tool.value_or("tool");
    const std::string lower = Text::lowercased(name);

    if (auto shell = shellDescription(lower, dict))
        return *shell;

    auto path = firstString(
        dict, {"file_path", "path", "notebook_path", "filePath", "AbsolutePath", "TargetFile"});
    std::string fileName = path ? File::lastComponent(*path) : "file";
    auto fileTitle = [&](std::string_view verb) {
        return ToolDescription{std::string(verb) + " " + fileName, path, false, std::nullopt};
    };
    if (contains(editTools, lower))
        return fileTitle("Edit");
    if (contains(writeTools, lower))
        return fileTitle("Write");
    if (contains(readTools, lower))
        return fileTitle("Read");
    if (lower == "apply_patch")
        return patchDescription(dict);
    if (contains(searchTools, lower))
        return queryDescription(name, firstString(dict, {"pattern", "query", "Pattern", "Query"}),
                                40);
    if (contains(webTools, lower))
        return queryDescription(name, firstString(dict, {"url", "query", "Url"}), 50);
    if (path)
        return {name + " " + fileName, path, false, std::nullopt};

    const JSONValue::Object* pairs = dict.objectPairs();
    std::optional<std::string> detail;
    if (pairs && !pairs->empty())
        detail = truncate(JSONValue::from(dict).compact(), 600);
    return {name, std::move(detail), false, std::nullopt};
}

std::optional<std::string> commandText(const JSONValue* value) {
    if (!value)
        return std::nullopt;
    if (const std::string* text = value->stringValue())
        return text->empty() ? std::nullopt : std::optional<std::string>(*text);
    const JSONValue::Array* elements = value->arrayValue();
    if (!elements)
        return std::nullopt;
    std::vector<std::string> words;
    for (const JSONValue& element : *elements)
        if (const std::string* word = element.stringValue())
            words.push_back(*word);
    // ["bash", "-lc", "<script>"]: the script is what the user wants to read.
    if (words.size() >= 3) {
        std::string shell = File::lastComponent(words[0]);
        bool runsScript = (shell == "bash" || shell == "sh" || shell == "zsh") &&
                          Text::startsWith(words[1], "-") &&
                          words[1].find('c') != std::string::npos;
        if (runsScript)
            words.erase(words.begin(), words.begin() + 2);
    }
    std::string result = joined(words, " ");
    return result.empty() ? std::nullopt : std::optional<std::string>(std::move(result));
}

std::string truncate(std::string_view text, std::size_t limit) {
    if (Text::prefix(text, limit).size() == text.size())
        return std::string(text);
    if (limit == 0)
        return {};
    return std::string(Text::prefix(text, limit - 1)) + std::string(Text::ellipsis);
}

std::vector<std::string> patchedFiles(std::string_view patch) {
    std::vector<std::string> files;
    size_t start = 0;
    while (start <= patch.size()) {
        size_t end = patch.find('\n', start);
        if (end == std::string_view::npos)
            end = patch.size();
        std::string_view line = patch.substr(start, end - start);
        for (std::string_view marker : patchMarkers) {
            if (Text::startsWith(line, marker)) {
                files.emplace_back(Text::trimmed(line.substr(marker.size())));
                break;
            }
        }
        start = end + 1;
    }
    return files;
}

} // namespace tidewick::ToolDescriber
