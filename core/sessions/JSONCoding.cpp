#include "sessions/JSONCoding.h"

#include <cmath>

namespace tidewick::JSONCoding {

JSONValue date(Date value) {
    return JSONValue::real(std::round(secondsSince1970(value) * 1000) / 1000);
}

namespace {

JSONValue* present(JSONValue& object, std::string_view key) {
    JSONValue* value = object.get(key);
    return value && !value->isNull() ? value : nullptr;
}

// The string of a string value, movable: the value itself is not const (we
// hold it by a non-const reference), only the accessor is.
std::string* mutableString(JSONValue& value) {
    return const_cast<std::string*>(value.stringValue());
}

} // namespace

Field<std::string> string(JSONValue& object, std::string_view key) {
    JSONValue* value = present(object, key);
    if (!value)
        return Field<std::string>::absent();
    std::string* text = mutableString(*value);
    return text ? Field<std::string>::of(std::move(*text)) : Field<std::string>::invalid();
}

Field<double> number(JSONValue& object, std::string_view key) {
    JSONValue* value = present(object, key);
    if (!value)
        return Field<double>::absent();
    std::optional<double> number = value->doubleValue();
    // A date or count that is not finite cannot have come from Tidewick.
    if (!number || !std::isfinite(*number))
        return Field<double>::invalid();
    return Field<double>::of(*number);
}

Field<std::int64_t> integer(JSONValue& object, std::string_view key) {
    JSONValue* value = present(object, key);
    if (!value)
        return Field<std::int64_t>::absent();
    std::optional<std::int64_t> number = value->intValue();
    return number ? Field<std::int64_t>::of(*number) : Field<std::int64_t>::invalid();
}

Field<bool> boolean(JSONValue& object, std::string_view key) {
    JSONValue* value = present(object, key);
    if (!value)
        return Field<bool>::absent();
    std::optional<bool> flag = value->boolValue();
    return flag ? Field<bool>::of(*flag) : Field<bool>::invalid();
}

Field<Date> date(JSONValue& object, std::string_view key) {
    Field<double> seconds = number(object, key);
    if (seconds.state != Field<double>::State::value)
        return {static_cast<Field<Date>::State>(seconds.state), std::nullopt};
    // Beyond a few thousand years the conversion to nanoseconds would overflow.
    if (std::fabs(*seconds.value) > 1e11)
        return Field<Date>::invalid();
    return Field<Date>::of(dateFromSeconds(*seconds.value));
}

Field<UUID> uuid(JSONValue& object, std::string_view key) {
    Field<std::string> text = string(object, key);
    if (text.state != Field<std::string>::State::value)
        return {static_cast<Field<UUID>::State>(text.state), std::nullopt};
    std::optional<UUID> id = UUID::parse(*text.value);
    return id ? Field<UUID>::of(*id) : Field<UUID>::invalid();
}

Field<std::vector<std::string>> strings(JSONValue& object, std::string_view key) {
    using Result = Field<std::vector<std::string>>;
    JSONValue* value = present(object, key);
    if (!value)
        return Result::absent();
    JSONValue::Array* elements = value->arrayValue();
    if (!elements)
        return Result::invalid();
    std::vector<std::string> texts;
    texts.reserve(elements->size());
    for (JSONValue& element : *elements) {
        std::string* text = mutableString(element);
        if (!text)
            return Result::invalid();
        texts.push_back(std::move(*text));
    }
    return Result::of(std::move(texts));
}

void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::string>& value) {
    if (value)
        object.emplace_back(std::string(key), JSONValue(*value));
}

void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<Date>& value) {
    if (value)
        object.emplace_back(std::string(key), date(*value));
}

void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::int64_t>& value) {
    if (value)
        object.emplace_back(std::string(key), JSONValue::integer(*value));
}

} // namespace tidewick::JSONCoding
