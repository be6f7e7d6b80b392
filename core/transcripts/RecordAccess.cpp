#include "transcripts/RecordAccess.h"

namespace tidewick::RecordAccess {

const JSONValue* at(const JSONValue* value, std::initializer_list<std::string_view> path) {
    for (std::string_view key : path) {
        if (!value)
            return nullptr;
        value = value->get(key);
    }
    return value;
}

const std::string* stringAt(const JSONValue* value, std::initializer_list<std::string_view> path) {
    const JSONValue* found = at(value, path);
    return found ? found->stringValue() : nullptr;
}

std::int64_t integerAt(const JSONValue* value, std::initializer_list<std::string_view> path) {
    const JSONValue* found = at(value, path);
    return found ? found->intValue().value_or(0) : 0;
}

std::string contentText(const JSONValue* content) {
    if (!content)
        return {};
    if (const std::string* text = content->stringValue())
        return *text;
    const JSONValue::Array* blocks = content->arrayValue();
    if (!blocks)
        return {};
    std::string joined;
    for (const JSONValue& block : *blocks) {
        const std::string* text = block.stringValue();
        if (!text) {
            const std::string* type = stringAt(&block, {"type"});
            const bool isText = !type || *type == "text" || *type == "input_text" ||
                                *type == "output_text" || *type == "Text";
            text = isText ? stringAt(&block, {"text"}) : nullptr;
        }
        if (!text || text->empty())
            continue;
        if (!joined.empty())
            joined += "\n\n";
        joined += *text;
    }
    return joined;
}

std::optional<JSONValue> objectOrEmbedded(const JSONValue* value) {
    if (!value)
        return std::nullopt;
    if (value->isObject())
        return *value;
    const std::string* text = value->stringValue();
    if (!text || text->empty() || text->front() != '{')
        return std::nullopt;
    try {
        JSONValue parsed = JSONValue::parse(*text);
        if (parsed.isObject())
            return parsed;
    } catch (const JSONValue::ParseError&) {
    }
    return std::nullopt;
}

} // namespace tidewick::RecordAccess
