#include "foundation/JSONReader.h"

#include "foundation/Hex.h"
#include "foundation/UTF8.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>

namespace tidewick {

namespace {

constexpr std::uint64_t ones = 0x0101010101010101ULL;
constexpr std::uint64_t lows = 0x7F7F7F7F7F7F7F7FULL;

// The high bit of each byte of `word` that equals `byte`, and no other bit. The sums
// stay within each byte, so a match never marks its neighbour: the tail of the text is
// read as the last eight bytes, whose matches before the current position are masked
// off and must not spill into the bytes after it.
std::uint64_t matchBytes(std::uint64_t word, unsigned char byte) {
    const std::uint64_t x = word ^ (ones * byte);
    return ~(((x & lows) + lows) | x | lows);
}

bool isNumberByte(char c) {
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

// Whether a run of number bytes reads as a double: an optional sign, digits
// with at most one full stop (at least one digit), then an optional exponent.
bool isDoubleText(std::string_view s) {
    std::size_t i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        ++i;
    std::size_t digits = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9')
        ++i, ++digits;
    if (i < s.size() && s[i] == '.') {
        ++i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9')
            ++i, ++digits;
    }
    if (digits == 0)
        return false;
    if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
        ++i;
        if (i < s.size() && (s[i] == '+' || s[i] == '-'))
            ++i;
        std::size_t expDigits = 0;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9')
            ++i, ++expDigits;
        if (expDigits == 0)
            return false;
    }
    return i == s.size();
}

template <typename T> std::vector<T> takeFrom(std::vector<T>& stack, std::size_t base) {
    const auto first = stack.begin() + static_cast<std::ptrdiff_t>(base);
    std::vector<T> out(std::make_move_iterator(first), std::make_move_iterator(stack.end()));
    stack.erase(first, stack.end());
    return out;
}

} // namespace

void JSONReader::fail(std::string_view message, std::size_t offset) const {
    std::string text(message);
    text += " at byte ";
    text += std::to_string(offset);
    throw JSONValue::ParseError(text);
}

void JSONReader::skipWhiteSpaceRun() {
    while (pos_ < text_.size()) {
        const char c = text_[pos_];
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            return;
        ++pos_;
    }
}

JSONValue::Kind JSONReader::peek() {
    skipWhiteSpace();
    if (pos_ >= text_.size())
        fail("Unexpected end of JSON", pos_);
    switch (text_[pos_]) {
    case '"':
        return JSONValue::Kind::String;
    case '[':
        return JSONValue::Kind::Array;
    case '{':
        return JSONValue::Kind::Object;
    case 't':
    case 'f':
        return JSONValue::Kind::Bool;
    case 'n':
        return JSONValue::Kind::Null;
    default:
        return JSONValue::Kind::Number;
    }
}

void JSONReader::enter(char bracket) {
    skipWhiteSpace();
    if (pos_ >= text_.size() || text_[pos_] != bracket)
        fail(bracket == '[' ? "Expected an array" : "Expected an object", pos_);
    if (depth_ >= JSONValue::maxDepth)
        fail("Nesting deeper than " + std::to_string(JSONValue::maxDepth) + " levels", pos_);
    ++depth_;
    ++pos_;
    atStart_ = true;
}

void JSONReader::beginArray() {
    enter('[');
}

void JSONReader::beginObject() {
    enter('{');
}

bool JSONReader::another(char closing, std::string_view expected, std::string_view unterminated) {
    if (atStart_) {
        atStart_ = false;
        skipWhiteSpace();
        if (pos_ < text_.size() && text_[pos_] == closing) {
            ++pos_;
            --depth_;
            return false;
        }
        return true;
    }
    skipWhiteSpace();
    if (pos_ >= text_.size())
        fail(unterminated, pos_);
    const char c = text_[pos_];
    if (c == ',') {
        ++pos_;
        return true;
    }
    if (c == closing) {
        ++pos_;
        --depth_;
        return false;
    }
    fail(expected, pos_);
}

bool JSONReader::nextElement() {
    return another(']', "Expected , or ]", "Unterminated array");
}

std::optional<std::string_view> JSONReader::nextKey() {
    if (!another('}', "Expected , or }", "Unterminated object"))
        return std::nullopt;
    skipWhiteSpace();
    if (pos_ >= text_.size() || text_[pos_] != '"')
        fail("Expected a string key", pos_);
    const std::string_view key = scanString(keyBuffer_);
    skipWhiteSpace();
    if (pos_ >= text_.size() || text_[pos_] != ':')
        fail("Expected :", pos_);
    ++pos_;
    return key;
}

std::size_t JSONReader::findSpecial(std::size_t from) const {
    // Bytes load little-endian: the lowest hit is the first special byte.
    static_assert(std::endian::native == std::endian::little);
    const std::size_t size = text_.size();
    const char* data = text_.data();
    for (; from + 8 <= size; from += 8) {
        std::uint64_t word;
        std::memcpy(&word, data + from, sizeof word);
        if (const std::uint64_t hits = matchBytes(word, '"') | matchBytes(word, '\\'))
            return from + static_cast<std::size_t>(std::countr_zero(hits) / 8);
    }
    if (from == size)
        return size;
    if (size < 8) {
        while (from < size && data[from] != '"' && data[from] != '\\')
            ++from;
        return from;
    }
    // The last few bytes: the last eight again, those before `from` masked off.
    std::uint64_t word;
    std::memcpy(&word, data + size - 8, sizeof word);
    const std::uint64_t fresh = ~0ULL << (8 * (8 - (size - from)));
    if (const std::uint64_t hits = (matchBytes(word, '"') | matchBytes(word, '\\')) & fresh)
        return size - 8 + static_cast<std::size_t>(std::countr_zero(hits) / 8);
    return size;
}

std::string_view JSONReader::scanString(std::string& out) {
    ++pos_; // the opening quotation mark
    std::size_t end = findSpecial(pos_);
    // Most strings hold no escape: they are a piece of the text as it is.
    if (end < text_.size() && text_[end] == '"') {
        const std::string_view plain = text_.substr(pos_, end - pos_);
        pos_ = end + 1;
        return plain;
    }
    out.clear();
    // Unescaped, a string is never longer than its text: room for that up front costs one
    // allocation and never more memory than the text itself.
    out.reserve(stringEnd(end) - pos_);
    for (;;) {
        out.append(text_.data() + pos_, end - pos_);
        pos_ = end;
        if (pos_ >= text_.size())
            fail("Unterminated string", pos_);
        if (text_[pos_] == '"') {
            ++pos_;
            return out;
        }
        readEscape(&out);
        end = findSpecial(pos_);
    }
}

std::size_t JSONReader::stringEnd(std::size_t from) const {
    while (from < text_.size()) {
        from = findSpecial(from);
        if (from >= text_.size() || text_[from] == '"')
            return from;
        from += 2; // the backslash and the byte after it, which cannot end the string
    }
    return text_.size();
}

int JSONReader::readHex4(std::size_t at) const {
    if (at + 4 > text_.size())
        return -1;
    int value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const int digit = Hex::digitValue(text_[at + i]);
        if (digit < 0)
            return -1;
        value = value * 16 + digit;
    }
    return value;
}

namespace {

// The byte a one-letter escape stands for; any other escaped byte stands for itself,
// unknown letters included.
char escapedByte(char letter) {
    switch (letter) {
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return letter;
    }
}

} // namespace

void JSONReader::readEscape(std::string* out) {
    const std::size_t escapeStart = pos_;
    ++pos_; // the backslash
    if (pos_ >= text_.size())
        fail("Unterminated string", pos_);
    const char c = text_[pos_++];
    if (c != 'u') {
        if (out)
            out->push_back(escapedByte(c));
        return;
    }
    const int code = readHex4(pos_);
    if (code < 0)
        fail("Invalid \\u escape", escapeStart);
    pos_ += 4;
    auto cp = static_cast<std::uint32_t>(code);
    if (cp >= 0xD800 && cp <= 0xDBFF) {
        cp = 0xFFFD;
        // A high surrogate pairs only with an immediately following low one.
        if (text_.substr(pos_, 2) == "\\u") {
            const int low = readHex4(pos_ + 2);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                pos_ += 6;
                cp = 0x10000 + ((static_cast<std::uint32_t>(code) - 0xD800) << 10) +
                     (static_cast<std::uint32_t>(low) - 0xDC00);
            }
        }
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
        cp = 0xFFFD;
    }
    if (out)
        UTF8::append(*out, cp);
}

void JSONReader::skipString() {
    ++pos_; // the opening quotation mark
    for (;;) {
        pos_ = findSpecial(pos_);
        if (pos_ >= text_.size())
            fail("Unterminated string", pos_);
        if (text_[pos_] == '"') {
            ++pos_;
            return;
        }
        readEscape(nullptr);
    }
}

std::string_view JSONReader::readStringView() {
    skipWhiteSpace();
    if (pos_ >= text_.size() || text_[pos_] != '"')
        fail("Expected a string", pos_);
    return scanString(stringBuffer_);
}

std::string JSONReader::readString() {
    skipWhiteSpace();
    if (pos_ >= text_.size() || text_[pos_] != '"')
        fail("Expected a string", pos_);
    std::string unescaped;
    const std::string_view text = scanString(unescaped);
    if (text.data() == unescaped.data())
        return unescaped;
    return std::string(text);
}

std::string_view JSONReader::readNumber() {
    skipWhiteSpace();
    const std::size_t start = pos_;
    while (pos_ < text_.size() && isNumberByte(text_[pos_]))
        ++pos_;
    const std::string_view run = text_.substr(start, pos_ - start);
    if (!isDoubleText(run))
        fail("Invalid number", pos_);
    return run;
}

void JSONReader::readLiteral(std::string_view word) {
    skipWhiteSpace();
    if (text_.substr(pos_, word.size()) != word)
        fail("Invalid literal", pos_);
    pos_ += word.size();
}

bool JSONReader::readBool() {
    skipWhiteSpace();
    if (pos_ < text_.size() && text_[pos_] == 't') {
        readLiteral("true");
        return true;
    }
    readLiteral("false");
    return false;
}

void JSONReader::readNull() {
    readLiteral("null");
}

JSONValue JSONReader::readValue() {
    switch (peek()) {
    case JSONValue::Kind::String:
        return JSONValue(readString());
    case JSONValue::Kind::Number:
        return JSONValue::number(std::string(readNumber()));
    case JSONValue::Kind::Bool:
        return JSONValue::boolean(readBool());
    case JSONValue::Kind::Null:
        readNull();
        return JSONValue();
    case JSONValue::Kind::Array: {
        beginArray();
        const std::size_t base = elementStack_.size();
        while (nextElement())
            elementStack_.push_back(readValue());
        return JSONValue(takeFrom(elementStack_, base));
    }
    case JSONValue::Kind::Object: {
        beginObject();
        const std::size_t base = pairStack_.size();
        while (std::optional<std::string_view> key = nextKey()) {
            // The key's view lasts only until the next key: keep it before the value.
            std::string name(*key);
            JSONValue value = readValue();
            pairStack_.emplace_back(std::move(name), std::move(value));
        }
        return JSONValue(takeFrom(pairStack_, base));
    }
    }
    return JSONValue();
}

void JSONReader::skipValue() {
    switch (peek()) {
    case JSONValue::Kind::String:
        skipString();
        return;
    case JSONValue::Kind::Number:
        (void)readNumber();
        return;
    case JSONValue::Kind::Bool:
        (void)readBool();
        return;
    case JSONValue::Kind::Null:
        readNull();
        return;
    case JSONValue::Kind::Array:
        beginArray();
        while (nextElement())
            skipValue();
        return;
    case JSONValue::Kind::Object:
        beginObject();
        while (nextKey())
            skipValue();
        return;
    }
}

namespace {

// What the system allocator takes for a block of `bytes`: a header and 16-byte steps.
std::size_t blockBytes(std::size_t bytes) {
    return bytes == 0 ? 0 : std::max<std::size_t>(32, (bytes + 8 + 15) / 16 * 16);
}

// A string's own allocation: short ones live inside the string object.
std::size_t stringBytes(std::size_t length) {
    return length < sizeof(std::string) / 2 ? 0 : blockBytes(length + 1);
}

} // namespace

JSONReader::Footprint JSONReader::measureValue() {
    Footprint footprint;
    std::size_t openElements = 0;
    std::size_t openPairs = 0;
    measure(footprint, openElements, openPairs);
    footprint.bytes += blockBytes(footprint.elements * sizeof(JSONValue)) +
                       blockBytes(footprint.pairs * sizeof(JSONValue::Pair));
    return footprint;
}

void JSONReader::reserveFor(const Footprint& footprint) {
    elementStack_.reserve(footprint.elements);
    pairStack_.reserve(footprint.pairs);
}

// Follows readValue step by step: each string, number and container's own block, and the
// elements and pairs that wait on the shared stacks until their container closes.
void JSONReader::measure(Footprint& footprint, std::size_t& openElements,
                         std::size_t& openPairs) {
    switch (peek()) {
    case JSONValue::Kind::String: {
        const std::size_t start = pos_;
        skipString();
        // An unescaped string keeps the room of its whole text.
        footprint.bytes += stringBytes(pos_ - start - 2);
        return;
    }
    case JSONValue::Kind::Number:
        footprint.bytes += stringBytes(readNumber().size());
        return;
    case JSONValue::Kind::Bool:
        (void)readBool();
        return;
    case JSONValue::Kind::Null:
        readNull();
        return;
    case JSONValue::Kind::Array: {
        beginArray();
        std::size_t count = 0;
        while (nextElement()) {
            measure(footprint, openElements, openPairs);
            footprint.elements = std::max(footprint.elements, ++openElements);
            ++count;
        }
        openElements -= count;
        footprint.bytes += blockBytes(count * sizeof(JSONValue));
        return;
    }
    case JSONValue::Kind::Object: {
        beginObject();
        std::size_t count = 0;
        while (std::optional<std::string_view> key = nextKey()) {
            // The reader's key buffer too, when an escaped key needed it.
            footprint.bytes += stringBytes(key->size()) + stringBytes(keyBuffer_.capacity());
            keyBuffer_ = std::string();
            measure(footprint, openElements, openPairs);
            footprint.pairs = std::max(footprint.pairs, ++openPairs);
            ++count;
        }
        openPairs -= count;
        footprint.bytes += blockBytes(count * sizeof(JSONValue::Pair));
        return;
    }
    }
}

void JSONReader::finish() {
    skipWhiteSpace();
    if (pos_ < text_.size())
        fail("Unexpected content after the JSON value", pos_);
}

std::optional<std::int64_t> JSONReader::integerValue(std::string_view text) {
    std::string_view digits = text;
    if (!digits.empty() && digits.front() == '+')
        digits.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc() && end == digits.data() + digits.size())
        return value;
    // 5.0 or 1e3 still name a whole number. The range is checked before the conversion,
    // which is undefined for a double that does not fit.
    const std::optional<double> real = doubleValue(text);
    if (!real || !(*real >= -9.2e18 && *real <= 9.2e18) || std::trunc(*real) != *real)
        return std::nullopt;
    return static_cast<std::int64_t>(*real);
}

std::optional<double> JSONReader::doubleValue(std::string_view text) {
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size() || error == std::errc::result_out_of_range)
        return std::nullopt;
    return value;
}

} // namespace tidewick
