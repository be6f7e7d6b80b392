#include "foundation/JSONWriter.h"

#include "foundation/Hex.h"
#include "foundation/JSONValue.h"

#include <bit>
#include <charconv>
#include <cstring>

namespace tidewick {

namespace {

constexpr std::uint64_t ones = 0x0101010101010101ULL;
constexpr std::uint64_t highs = 0x8080808080808080ULL;

// The high bit of each byte of `word` that must be escaped: below 0x20, a quotation mark
// or a backslash (the classic SWAR byte tests; bytes of 0x80 and above never match). Bits
// above the first match may be false alarms, so only the lowest set bit is meaningful.
std::uint64_t escapeBytes(std::uint64_t word) {
    const std::uint64_t quote = word ^ (ones * '"');
    const std::uint64_t backslash = word ^ (ones * '\\');
    return ((word - ones * 0x20) | (quote - ones) | (backslash - ones)) & ~word & highs;
}

// Index of the first byte at or after `from` that must be escaped, or `size`: eight bytes
// at a time, the last few by loading the last eight again (those before `from` are clean).
std::size_t firstEscape(const char* data, std::size_t size, std::size_t from) {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t word;
    for (; from + 8 <= size; from += 8) {
        std::memcpy(&word, data + from, sizeof word);
        if (const std::uint64_t hits = escapeBytes(word))
            return from + static_cast<std::size_t>(std::countr_zero(hits) / 8);
    }
    if (from == size)
        return size;
    if (size < 8) {
        while (from < size && static_cast<unsigned char>(data[from]) >= 0x20 && data[from] != '"' &&
               data[from] != '\\')
            ++from;
        return from;
    }
    std::memcpy(&word, data + size - 8, sizeof word);
    const std::uint64_t fresh = ~0ULL << (8 * (8 - (size - from)));
    if (const std::uint64_t hits = escapeBytes(word) & fresh)
        return size - 8 + static_cast<std::size_t>(std::countr_zero(hits) / 8);
    return size;
}

void appendEscaped(std::string& out, unsigned char c) {
    switch (c) {
    case '"':
        out += "\\\"";
        return;
    case '\\':
        out += "\\\\";
        return;
    case '\b':
        out += "\\b";
        return;
    case '\f':
        out += "\\f";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        out += "\\u00";
        Hex::append(out, {&c, 1});
    }
}

} // namespace

void JSONWriter::appendQuoted(std::string& out, std::string_view text) {
    out.push_back('"');
    for (std::size_t start = 0;;) {
        const std::size_t special = firstEscape(text.data(), text.size(), start);
        out.append(text.data() + start, special - start);
        if (special == text.size())
            break;
        appendEscaped(out, static_cast<unsigned char>(text[special]));
        start = special + 1;
    }
    out.push_back('"');
}

void JSONWriter::breakLine() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (depth_ == 0)
        return;
    out_ += needComma_ ? ",\n" : "\n";
    out_.append(static_cast<std::size_t>(indent_ + 2 * depth_), ' ');
}

void JSONWriter::open(char bracket) {
    separate();
    out_.push_back(bracket);
    ++depth_;
    needComma_ = false;
}

void JSONWriter::close(char bracket) {
    --depth_;
    // In the pretty style a container that holds anything closes on a line of its own.
    if (style_ == Style::pretty && needComma_) {
        out_.push_back('\n');
        out_.append(static_cast<std::size_t>(indent_ + 2 * depth_), ' ');
    }
    out_.push_back(bracket);
    needComma_ = true;
}

void JSONWriter::key(std::string_view name) {
    separate();
    appendQuoted(out_, name);
    if (style_ == Style::pretty) {
        out_ += ": ";
        afterKey_ = true;
    } else {
        out_.push_back(':');
    }
    needComma_ = false;
}

void JSONWriter::string(std::string_view text) {
    separate();
    appendQuoted(out_, text);
    needComma_ = true;
}

void JSONWriter::number(std::string_view text) {
    separate();
    out_ += text;
    needComma_ = true;
}

void JSONWriter::integer(std::int64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    number(std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

void JSONWriter::real(double value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    number(std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

void JSONWriter::boolean(bool value) {
    number(value ? "true" : "false");
}

void JSONWriter::null() {
    number("null");
}

void JSONWriter::value(const JSONValue& value) {
    switch (value.kind()) {
    case JSONValue::Kind::Bool:
        boolean(*value.boolValue());
        return;
    case JSONValue::Kind::Number:
        number(*value.numberText());
        return;
    case JSONValue::Kind::String:
        string(*value.stringValue());
        return;
    case JSONValue::Kind::Null:
        null();
        return;
    case JSONValue::Kind::Array:
        beginArray();
        for (const JSONValue& element : *value.arrayValue())
            this->value(element);
        endArray();
        return;
    case JSONValue::Kind::Object:
        beginObject();
        for (const JSONValue::Pair& pair : *value.objectPairs()) {
            key(pair.first);
            this->value(pair.second);
        }
        endObject();
        return;
    }
}

} // namespace tidewick
