#include "foundation/JSONValue.h"

#include "foundation/JSONCoding.h"

#include <algorithm>
#include <charconv>

namespace tidewick {

JSONValue JSONValue::boolean(bool value) {
    return JSONValue(Storage(std::in_place_index<0>, value));
}

JSONValue JSONValue::number(std::string text) {
    return JSONValue(Storage(std::in_place_index<1>, NumberText{std::move(text)}));
}

JSONValue JSONValue::integer(std::int64_t value) {
    return number(std::to_string(value));
}

JSONValue JSONValue::real(double value) {
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return number(std::string(buffer, result.ptr));
}

JSONValue JSONValue::parse(std::string_view bytes) {
    JSONValue value;
    (void)parseJSON(bytes, value); // every JSON text reads as a JSONValue
    return value;
}

JSONValue JSONValue::from(const JSONValue& value) {
    if (const Array* elements = value.arrayValue()) {
        Array sorted;
        sorted.reserve(elements->size());
        for (const JSONValue& element : *elements)
            sorted.push_back(from(element));
        return JSONValue(std::move(sorted));
    }
    if (const Object* pairs = value.objectPairs()) {
        Object sorted;
        sorted.reserve(pairs->size());
        for (const Pair& pair : *pairs)
            sorted.emplace_back(pair.first, from(pair.second));
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const Pair& a, const Pair& b) { return a.first < b.first; });
        return JSONValue(std::move(sorted));
    }
    return value;
}

const std::string* JSONValue::stringValue() const {
    return std::get_if<std::string>(&storage_);
}

const std::string* JSONValue::numberText() const {
    const NumberText* n = std::get_if<NumberText>(&storage_);
    return n ? &n->text : nullptr;
}

std::optional<bool> JSONValue::boolValue() const {
    if (const bool* b = std::get_if<bool>(&storage_))
        return *b;
    return std::nullopt;
}

std::optional<std::int64_t> JSONValue::intValue() const {
    const std::string* text = numberText();
    return text ? JSONReader::integerValue(*text) : std::nullopt;
}

std::optional<double> JSONValue::doubleValue() const {
    const std::string* text = numberText();
    return text ? JSONReader::doubleValue(*text) : std::nullopt;
}

const JSONValue::Array* JSONValue::arrayValue() const {
    return std::get_if<Array>(&storage_);
}
JSONValue::Array* JSONValue::arrayValue() {
    return std::get_if<Array>(&storage_);
}
const JSONValue::Object* JSONValue::objectPairs() const {
    return std::get_if<Object>(&storage_);
}
JSONValue::Object* JSONValue::objectPairs() {
    return std::get_if<Object>(&storage_);
}

const JSONValue* JSONValue::get(std::string_view key) const {
    const Object* pairs = objectPairs();
    if (!pairs)
        return nullptr;
    for (const Pair& pair : *pairs)
        if (pair.first == key)
            return &pair.second;
    return nullptr;
}

JSONValue* JSONValue::get(std::string_view key) {
    return const_cast<JSONValue*>(std::as_const(*this).get(key));
}

void JSONValue::set(std::string_view key, JSONValue value) {
    Object* pairs = objectPairs();
    if (!pairs)
        return;
    for (Pair& pair : *pairs) {
        if (pair.first == key) {
            pair.second = std::move(value);
            return;
        }
    }
    pairs->emplace_back(std::string(key), std::move(value));
}

void JSONValue::remove(std::string_view key) {
    Object* pairs = objectPairs();
    if (!pairs)
        return;
    auto it = std::find_if(pairs->begin(), pairs->end(),
                           [&](const Pair& pair) { return pair.first == key; });
    if (it != pairs->end())
        pairs->erase(it);
}

std::string JSONValue::quote(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    JSONWriter::appendQuoted(out, text);
    return out;
}

std::string JSONValue::compact() const {
    std::string out;
    JSONWriter(out).value(*this);
    return out;
}

std::string JSONValue::pretty(int indent) const {
    std::string out;
    JSONWriter(out, JSONWriter::Style::pretty, indent).value(*this);
    return out;
}

} // namespace tidewick
