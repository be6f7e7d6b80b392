// Reads JSON text value by value without building a document: the one parser
// behind JSONValue::parse and every record Tidewick reads.
#pragma once

#include "foundation/JSONValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

/// A pull parser over JSON text with the grammar, nesting limit and messages of
/// JSONValue::parse. The caller asks for the next value's kind, then reads it: a
/// scalar whole, a container by begin/next calls. Every syntax error throws
/// JSONValue::ParseError with the message and byte offset JSONValue::parse gives. The
/// text must outlive the reader; it is not checked for UTF-8 here (JSONValue::parse
/// and the decoding helpers of JSONCoding.h do that first).
class JSONReader {
public:
    explicit JSONReader(std::string_view text) : text_(text) {}

    /// The kind of the next value, judged by its first byte after white space (a letter
    /// t or f is a Bool and any other unknown byte a Number until it is read). Throws
    /// "Unexpected end of JSON" at the end of the text.
    [[nodiscard]] JSONValue::Kind peek();

    /// Enters the array that comes next (throws when something else does, or when
    /// it nests deeper than JSONValue::maxDepth).
    void beginArray();
    /// True when another element follows (read it next); false when the array ended.
    [[nodiscard]] bool nextElement();
    /// Enters the object that comes next.
    void beginObject();
    /// The key of the next member (read its value next), or nothing when the object
    /// ended. The view lasts until the next key is read.
    [[nodiscard]] std::optional<std::string_view> nextKey();

    /// The string that comes next, unescaped.
    [[nodiscard]] std::string readString();
    /// The same, as a view that lasts until the next string is read.
    [[nodiscard]] std::string_view readStringView();
    /// The text of the number that comes next, exactly as written.
    [[nodiscard]] std::string_view readNumber();
    [[nodiscard]] bool readBool();
    void readNull();
    /// The value that comes next, whole.
    [[nodiscard]] JSONValue readValue();
    /// Passes over the value that comes next, checking its syntax all the same.
    void skipValue();

    /// What readValue() allocates for a value: the document's own memory and the room its
    /// stacks need, counted in bytes as the system allocator hands them out.
    struct Footprint {
        std::size_t bytes = 0;
        /// Elements and pairs waiting on the stacks at most, while it is read.
        std::size_t elements = 0;
        std::size_t pairs = 0;
    };
    /// Passes over the value that comes next like skipValue() and says what readValue()
    /// would allocate for it, once a reader is sized for it by reserveFor().
    [[nodiscard]] Footprint measureValue();
    /// Gives the stacks the room the value measured as `footprint` needs, so that reading
    /// it allocates no more than `footprint.bytes` in all.
    void reserveFor(const Footprint& footprint);
    /// Requires that only white space is left.
    void finish();

    /// Bytes read so far.
    [[nodiscard]] std::size_t offset() const { return pos_; }
    /// The whole text being read.
    [[nodiscard]] std::string_view text() const { return text_; }

    /// The value of a number's text when it is a whole number that fits 64 bits, written
    /// as an integer or otherwise (5.0 and 1e3 count); nothing for any other text.
    [[nodiscard]] static std::optional<std::int64_t> integerValue(std::string_view text);
    /// The value of a number's text as a double; nothing when it does not fit one.
    [[nodiscard]] static std::optional<double> doubleValue(std::string_view text);

private:
    [[noreturn]] void fail(std::string_view message, std::size_t offset) const;
    /// Compact text has no white space between tokens: that case costs one comparison.
    void skipWhiteSpace() {
        if (pos_ < text_.size() && static_cast<unsigned char>(text_[pos_]) > ' ')
            return;
        skipWhiteSpaceRun();
    }
    void skipWhiteSpaceRun();
    void enter(char bracket);
    /// After an element or member: the comma, or the closing bracket (false).
    [[nodiscard]] bool another(char closing, std::string_view expected,
                               std::string_view unterminated);
    void readLiteral(std::string_view word);
    /// Index of the next quotation mark or backslash at or after `from`, or the end.
    [[nodiscard]] std::size_t findSpecial(std::size_t from) const;
    /// Unescapes the string at pos_ into `out`, or returns a view of the text itself
    /// when it holds no escape (then `out` is untouched).
    [[nodiscard]] std::string_view scanString(std::string& out);
    /// Reads the escape at pos_ into `out`; only checks it when `out` is null.
    void readEscape(std::string* out);
    /// Passes over the string at pos_, checking its escapes, without copying anything.
    void skipString();
    /// Index of the quotation mark that closes the string whose text starts at `from`.
    [[nodiscard]] std::size_t stringEnd(std::size_t from) const;
    void measure(Footprint& footprint, std::size_t& openElements, std::size_t& openPairs);
    [[nodiscard]] int readHex4(std::size_t at) const;

    std::string_view text_;
    std::size_t pos_ = 0;
    int depth_ = 0;
    /// A container was just entered: the next call finds its first element or its end.
    bool atStart_ = false;
    std::string keyBuffer_;
    std::string stringBuffer_;
    // Elements and pairs of readValue collect here, shared by every level, and move into
    // a vector of exactly the right size when their container closes: one allocation
    // per container instead of one per doubling.
    JSONValue::Array elementStack_;
    JSONValue::Object pairStack_;
};

} // namespace tidewick
