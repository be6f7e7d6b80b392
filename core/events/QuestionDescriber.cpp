#include "events/QuestionDescriber.h"

#include "foundation/Text.h"

#include <initializer_list>

namespace tidewick {

namespace {

// The string under the first of `keys` that holds one accepted by `accept`.
template <typename Accept>
std::optional<std::string>
firstString(const JSONValue& dict, std::initializer_list<std::string_view> keys, Accept accept) {
    for (std::string_view key : keys) {
        const JSONValue* value = dict.get(key);
        const std::string* text = value ? value->stringValue() : nullptr;
        if (text && accept(*text))
            return *text;
    }
    return std::nullopt;
}

bool nonEmpty(const std::string& text) {
    return !text.empty();
}

AgentQuestion permissionQuestion(const JSONValue& input) {
    auto reason =
        firstString(input, {"reason", "Reason", "justification", "description"}, nonEmpty);
    if (reason)
        return {*reason, {}};
    auto target = firstString(input, {"Target", "target", "Action", "action"}, nonEmpty);
    if (target)
        return {"Wants permission for " + *target, {}};
    return {"Wants more permission", {}};
}

// The first of several questions is the one shown; a single question sits in the input itself.
const JSONValue& questionSource(const JSONValue& input) {
    const JSONValue* questions = input.get("questions");
    const JSONValue::Array* list = questions ? questions->arrayValue() : nullptr;
    if (!list || list->empty())
        return input;
    for (const JSONValue& element : *list)
        if (!element.isObject())
            return input;
    return list->front();
}

std::vector<std::string> optionsOf(const JSONValue& source) {
    const JSONValue* options = source.get("options");
    const JSONValue::Array* list = options ? options->arrayValue() : nullptr;
    if (!list) {
        const JSONValue* choices = source.get("choices");
        list = choices ? choices->arrayValue() : nullptr;
    }
    std::vector<std::string> out;
    if (!list)
        return out;
    for (const JSONValue& element : *list) {
        if (const std::string* text = element.stringValue()) {
            out.push_back(*text);
            continue;
        }
        if (!element.isObject())
            continue;
        auto label = firstString(element, {"label", "title", "text", "value"},
                                 [](const std::string&) { return true; });
        if (label)
            out.push_back(std::move(*label));
    }
    return out;
}

} // namespace

std::string AgentQuestion::recordText() const {
    std::string out = text;
    for (const std::string& option : options) {
        out += '\n';
        out += Text::bullet;
        out += option;
    }
    return out;
}

AgentQuestion AgentQuestion::fromRecord(std::string_view record) {
    AgentQuestion question;
    std::string textLines;
    bool firstLine = true;
    size_t start = 0;
    for (;;) {
        size_t end = record.find('\n', start);
        std::string_view line = record.substr(
            start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (Text::startsWith(line, Text::bullet)) {
            question.options.emplace_back(line.substr(Text::bullet.size()));
        } else {
            if (!firstLine)
                textLines += '\n';
            textLines += line;
            firstLine = false;
        }
        if (end == std::string_view::npos)
            break;
        start = end + 1;
    }
    question.text = std::string(Text::trimmed(textLines));
    return question;
}

namespace QuestionDescriber {

const NameSet& questionNames() {
    static const NameSet names = {"askuserquestion", "request_user_input",
                                  "request_user_input_async", "askquestion", "ask_question"};
    return names;
}

const NameSet& permissionNames() {
    static const NameSet names = {"request_permissions", "ask_permission"};
    return names;
}

const NameSet& shellNames() {
    static const NameSet names = {"bash",         "shell",         "run_command", "local_shell",
                                  "exec_command", "shell_command", "terminal",    "powershell"};
    return names;
}

bool isQuestionTool(const std::optional<std::string>& name) {
    if (!name)
        return false;
    std::string lower = Text::lowercased(*name);
    return questionNames().contains(lower) || permissionNames().contains(lower);
}

bool isPermissionTool(const std::optional<std::string>& name) {
    return name && permissionNames().contains(Text::lowercased(*name));
}

std::optional<JSONValue> asDict(const JSONValue* input) {
    if (!input)
        return std::nullopt;
    if (input->isObject())
        return *input;
    const std::string* text = input->stringValue();
    if (!text)
        return std::nullopt;
    try {
        JSONValue parsed = JSONValue::parse(*text);
        if (parsed.isObject())
            return parsed;
    } catch (const JSONValue::ParseError&) {
        // Text that is not JSON is simply not a dictionary.
    }
    return std::nullopt;
}

UnwrappedCall unwrap(const std::optional<std::string>& tool, const JSONValue* input) {
    UnwrappedCall unchanged{tool, input ? std::optional<JSONValue>(*input) : std::nullopt};
    if (isQuestionTool(tool))
        return unchanged;
    auto dict = asDict(input);
    if (!dict)
        return unchanged;
    for (std::string_view key : wrapperKeys) {
        const JSONValue* named = dict->get(key);
        const std::string* inner = named ? named->stringValue() : nullptr;
        if (!inner || !isQuestionTool(*inner))
            continue;
        UnwrappedCall call{*inner, std::nullopt};
        for (std::string_view argumentsKey : {"arguments", "args", "input", "parameters"}) {
            if (const JSONValue* arguments = dict->get(argumentsKey)) {
                call.input = *arguments;
                break;
            }
        }
        return call;
    }
    return unchanged;
}

std::optional<AgentQuestion> question(const std::optional<std::string>& tool,
                                      const JSONValue* input) {
    UnwrappedCall call = unwrap(tool, input);
    if (!isQuestionTool(call.tool))
        return std::nullopt;
    JSONValue dict = asDict(call.input ? &*call.input : nullptr).value_or(JSONValue::Object{});
    if (isPermissionTool(call.tool))
        return permissionQuestion(dict);

    const JSONValue& source = questionSource(dict);
    std::optional<std::string> text;
    for (std::string_view key : {"question", "title", "prompt", "text", "header"}) {
        const JSONValue* value = source.get(key);
        const std::string* candidate = value ? value->stringValue() : nullptr;
        if (!candidate)
            continue;
        std::string_view trimmedText = Text::trimmed(*candidate);
        if (!trimmedText.empty()) {
            text = std::string(trimmedText);
            break;
        }
    }
    if (!text)
        return std::nullopt;
    return AgentQuestion{std::move(*text), optionsOf(source)};
}

} // namespace QuestionDescriber
} // namespace tidewick
