#include "foundation/JSONValue.h"

#include "foundation/UTF8.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <iterator>

namespace tidewick {

namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighs = 0x8080808080808080ULL;

// The high bit of each byte of `word` that equals `byte` (the classic SWAR
// zero-byte test). Bits above the first match may be false alarms, so only the
// lowest set bit is meaningful.
inline std::uint64_t matchBytes(std::uint64_t word, unsigned char byte) {
    std::uint64_t x = word ^ (kOnes * byte);
    return (x - kOnes) & ~x & kHighs;
}

inline std::uint64_t loadWord(const char* p) {
    std::uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

void appendUTF8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool isNumberByte(char c) {
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

// Whether a run of number bytes reads as a double: an optional sign, digits
// with at most one full stop (at least one digit), then an optional exponent.
bool isDoubleText(std::string_view s) {
    size_t i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        ++i;
    size_t digits = 0;
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
        size_t expDigits = 0;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9')
            ++i, ++expDigits;
        if (expDigits == 0)
            return false;
    }
    return i == s.size();
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

// Recursive descent over the bytes; depth is bounded by JSONValue::maxDepth.
class JSONParser {
public:
    explicit JSONParser(std::string_view text) : text_(text) {}

    JSONValue parseDocument() {
        JSONValue value = parseValue(0);
        skipWhiteSpace();
        if (pos_ < text_.size())
            fail("Unexpected content after the JSON value", pos_);
        return value;
    }

private:
    [[noreturn]] void fail(std::string_view message, size_t offset) const {
        std::string text(message);
        text += " at byte ";
        text += std::to_string(offset);
        throw JSONValue::ParseError(text);
    }

    void skipWhiteSpace() {
        while (pos_ < text_.size()) {
            char c = text_[pos_];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
                return;
            ++pos_;
        }
    }

    JSONValue parseValue(int depth) {
        skipWhiteSpace();
        if (pos_ >= text_.size())
            fail("Unexpected end of JSON", pos_);
        switch (text_[pos_]) {
        case '"':
            return JSONValue(parseString());
        case '[':
            return parseArray(depth + 1);
        case '{':
            return parseObject(depth + 1);
        case 't':
            return parseLiteral("true", JSONValue::boolean(true));
        case 'f':
            return parseLiteral("false", JSONValue::boolean(false));
        case 'n':
            return parseLiteral("null", JSONValue());
        default:
            return parseNumber();
        }
    }

    JSONValue parseLiteral(std::string_view word, JSONValue value) {
        if (text_.substr(pos_, word.size()) != word)
            fail("Invalid literal", pos_);
        pos_ += word.size();
        return value;
    }

    JSONValue parseNumber() {
        size_t start = pos_;
        while (pos_ < text_.size() && isNumberByte(text_[pos_]))
            ++pos_;
        std::string_view run = text_.substr(start, pos_ - start);
        if (!isDoubleText(run))
            fail("Invalid number", pos_);
        return JSONValue::number(std::string(run));
    }

    void checkDepth(int depth) const {
        if (depth > JSONValue::maxDepth)
            fail("Nesting deeper than " + std::to_string(JSONValue::maxDepth) + " levels", pos_);
    }

    // Elements and pairs collect on scratch stacks shared by every level and
    // move into a vector of exactly the right size when their container
    // closes: one allocation per container instead of one per doubling.
    JSONValue parseArray(int depth) {
        checkDepth(depth);
        ++pos_;
        skipWhiteSpace();
        if (pos_ < text_.size() && text_[pos_] == ']') {
            ++pos_;
            return JSONValue(JSONValue::Array{});
        }
        const size_t base = elementStack_.size();
        for (;;) {
            elementStack_.push_back(parseValue(depth));
            skipWhiteSpace();
            if (pos_ >= text_.size())
                fail("Unterminated array", pos_);
            char c = text_[pos_];
            if (c == ',') {
                ++pos_;
                continue;
            }
            if (c == ']') {
                ++pos_;
                return JSONValue(takeFrom(elementStack_, base));
            }
            fail("Expected , or ]", pos_);
        }
    }

    JSONValue parseObject(int depth) {
        checkDepth(depth);
        ++pos_;
        skipWhiteSpace();
        if (pos_ < text_.size() && text_[pos_] == '}') {
            ++pos_;
            return JSONValue(JSONValue::Object{});
        }
        const size_t base = pairStack_.size();
        for (;;) {
            skipWhiteSpace();
            if (pos_ >= text_.size() || text_[pos_] != '"')
                fail("Expected a string key", pos_);
            std::string key = parseString();
            skipWhiteSpace();
            if (pos_ >= text_.size() || text_[pos_] != ':')
                fail("Expected :", pos_);
            ++pos_;
            JSONValue value = parseValue(depth);
            pairStack_.emplace_back(std::move(key), std::move(value));
            skipWhiteSpace();
            if (pos_ >= text_.size())
                fail("Unterminated object", pos_);
            char c = text_[pos_];
            if (c == ',') {
                ++pos_;
                continue;
            }
            if (c == '}') {
                ++pos_;
                return JSONValue(takeFrom(pairStack_, base));
            }
            fail("Expected , or }", pos_);
        }
    }

    template <typename T> static std::vector<T> takeFrom(std::vector<T>& stack, size_t base) {
        std::vector<T> out(
            std::make_move_iterator(stack.begin() + static_cast<std::ptrdiff_t>(base)),
            std::make_move_iterator(stack.end()));
        stack.resize(base);
        return out;
    }

    // Reads four hexadecimal digits after "\u" at `escapeStart`; -1 when they are not there.
    int readHex4(size_t at) const {
        if (at + 4 > text_.size())
            return -1;
        int value = 0;
        for (size_t i = 0; i < 4; ++i) {
            int d = hexDigit(text_[at + i]);
            if (d < 0)
                return -1;
            value = value * 16 + d;
        }
        return value;
    }

    // Index of the next quote or backslash at or after `from`, or the end.
    size_t findSpecial(size_t from) const {
        const size_t size = text_.size();
        const char* data = text_.data();
        while (from + 8 <= size) {
            std::uint64_t w = loadWord(data + from);
            std::uint64_t hits = matchBytes(w, '"') | matchBytes(w, '\\');
            if (hits != 0) {
                // Bytes load little-endian: the lowest hit is the first special byte.
                static_assert(std::endian::native == std::endian::little);
                return from + static_cast<size_t>(std::countr_zero(hits) / 8);
            }
            from += 8;
        }
        while (from < size && data[from] != '"' && data[from] != '\\')
            ++from;
        return from;
    }

    std::string parseString() {
        ++pos_; // opening quote
        size_t end = findSpecial(pos_);
        // Most strings hold no escape: build them in one allocation.
        if (end < text_.size() && text_[end] == '"') {
            std::string out(text_.data() + pos_, end - pos_);
            pos_ = end + 1;
            return out;
        }
        std::string out;
        for (;;) {
            out.append(text_.data() + pos_, end - pos_);
            pos_ = end;
            if (pos_ >= text_.size())
                fail("Unterminated string", pos_);
            if (text_[pos_] == '"') {
                ++pos_;
                return out;
            }
            parseEscape(out);
            end = findSpecial(pos_);
        }
    }

    void parseEscape(std::string& out) {
        size_t escapeStart = pos_;
        ++pos_; // backslash
        if (pos_ >= text_.size())
            fail("Unterminated string", pos_);
        char c = text_[pos_++];
        switch (c) {
        case 'b':
            out.push_back('\b');
            return;
        case 'f':
            out.push_back('\f');
            return;
        case 'n':
            out.push_back('\n');
            return;
        case 'r':
            out.push_back('\r');
            return;
        case 't':
            out.push_back('\t');
            return;
        case 'u':
            break;
        default:
            // Any other escaped byte stands for itself, unknown letters included.
            out.push_back(c);
            return;
        }
        int code = readHex4(pos_);
        if (code < 0)
            fail("Invalid \\u escape", escapeStart);
        pos_ += 4;
        std::uint32_t cp = static_cast<std::uint32_t>(code);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            // A high surrogate pairs only with an immediately following low one.
            if (text_.substr(pos_, 2) == "\\u") {
                int low = readHex4(pos_ + 2);
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    pos_ += 6;
                    appendUTF8(out, 0x10000 + ((cp - 0xD800) << 10) +
                                        (static_cast<std::uint32_t>(low) - 0xDC00));
                    return;
                }
            }
            appendUTF8(out, 0xFFFD);
            return;
        }
        if (cp >= 0xDC00 && cp <= 0xDFFF)
            cp = 0xFFFD;
        appendUTF8(out, cp);
    }

    std::string_view text_;
    size_t pos_ = 0;
    JSONValue::Array elementStack_;
    JSONValue::Object pairStack_;
};

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
    if (!UTF8::isValid(bytes))
        throw ParseError("File is not UTF-8");
    return JSONParser(bytes).parseDocument();
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
    if (!text)
        return std::nullopt;
    std::string_view digits = *text;
    if (!digits.empty() && digits.front() == '+')
        digits.remove_prefix(1);
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc() && end == digits.data() + digits.size())
        return value;
    // 5.0 or 1e3 still name a whole number.
    std::optional<double> d = doubleValue();
    if (d && *d == static_cast<double>(static_cast<std::int64_t>(*d)) && *d >= -9.2e18 &&
        *d <= 9.2e18)
        return static_cast<std::int64_t>(*d);
    return std::nullopt;
}

std::optional<double> JSONValue::doubleValue() const {
    const std::string* text = numberText();
    if (!text)
        return std::nullopt;
    std::string_view s = *text;
    if (!s.empty() && s.front() == '+')
        s.remove_prefix(1);
    double value = 0;
    auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (end != s.data() + s.size())
        return std::nullopt;
    if (error == std::errc::result_out_of_range)
        return std::nullopt;
    return value;
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

namespace {

void appendQuoted(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    size_t runStart = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.append(text.data() + runStart, i - runStart);
        runStart = i + 1;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += "\\u00";
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 0xF]);
        }
    }
    out.append(text.data() + runStart, text.size() - runStart);
    out.push_back('"');
}

} // namespace

std::string JSONValue::quote(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    appendQuoted(out, text);
    return out;
}

void JSONValue::writeCompact(std::string& out) const {
    switch (kind()) {
    case Kind::Bool:
        out += std::get<bool>(storage_) ? "true" : "false";
        return;
    case Kind::Number:
        out += std::get<NumberText>(storage_).text;
        return;
    case Kind::String:
        appendQuoted(out, std::get<std::string>(storage_));
        return;
    case Kind::Null:
        out += "null";
        return;
    case Kind::Array: {
        out.push_back('[');
        bool first = true;
        for (const JSONValue& element : std::get<Array>(storage_)) {
            if (!first)
                out.push_back(',');
            first = false;
            element.writeCompact(out);
        }
        out.push_back(']');
        return;
    }
    case Kind::Object: {
        out.push_back('{');
        bool first = true;
        for (const Pair& pair : std::get<Object>(storage_)) {
            if (!first)
                out.push_back(',');
            first = false;
            appendQuoted(out, pair.first);
            out.push_back(':');
            pair.second.writeCompact(out);
        }
        out.push_back('}');
        return;
    }
    }
}

void JSONValue::writePretty(std::string& out, int indent) const {
    const Array* elements = arrayValue();
    const Object* pairs = objectPairs();
    if ((elements && elements->empty()) || (pairs && pairs->empty()) || (!elements && !pairs)) {
        writeCompact(out);
        return;
    }
    const std::string inner(static_cast<size_t>(indent + 2), ' ');
    out += elements ? "[\n" : "{\n";
    bool first = true;
    if (elements) {
        for (const JSONValue& element : *elements) {
            if (!first)
                out += ",\n";
            first = false;
            out += inner;
            element.writePretty(out, indent + 2);
        }
    } else {
        for (const Pair& pair : *pairs) {
            if (!first)
                out += ",\n";
            first = false;
            out += inner;
            appendQuoted(out, pair.first);
            out += ": ";
            pair.second.writePretty(out, indent + 2);
        }
    }
    out.push_back('\n');
    out.append(static_cast<size_t>(indent), ' ');
    out.push_back(elements ? ']' : '}');
}

std::string JSONValue::compact() const {
    std::string out;
    writeCompact(out);
    return out;
}

std::string JSONValue::pretty(int indent) const {
    std::string out;
    writePretty(out, indent);
    return out;
}

} // namespace tidewick
