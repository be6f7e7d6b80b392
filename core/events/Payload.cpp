#include "events/Payload.h"

namespace tidewick {

Payload::Payload(JSONValue object) : raw_(std::move(object)) {
    if (!raw_.isObject())
        raw_ = JSONValue(JSONValue::Object{});
}

std::optional<std::string> Payload::string(std::string_view key) const {
    const JSONValue* v = raw_.get(key);
    const std::string* s = v ? v->stringValue() : nullptr;
    if (!s || s->empty())
        return std::nullopt;
    return *s;
}

std::optional<bool> Payload::boolean(std::string_view key) const {
    const JSONValue* v = raw_.get(key);
    return v ? v->boolValue() : std::nullopt;
}

std::optional<std::int64_t> Payload::integer(std::string_view key) const {
    const JSONValue* v = raw_.get(key);
    return v ? v->intValue() : std::nullopt;
}

const JSONValue* Payload::dict(std::string_view key) const {
    const JSONValue* v = raw_.get(key);
    return v && v->isObject() ? v : nullptr;
}

const JSONValue::Array* Payload::array(std::string_view key) const {
    const JSONValue* v = raw_.get(key);
    return v ? v->arrayValue() : nullptr;
}

} // namespace tidewick
