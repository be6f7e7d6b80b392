// Writes JSON text straight into a string, compact or indented, without
// building a document first: the one serialiser behind JSONValue and every
// record Tidewick writes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class JSONValue;

/// Appends one JSON value to a string, token by token. The caller nests the calls
/// correctly (a key before each member of an object, every begin matched by its end);
/// the writer adds the commas, and in the pretty style the line feeds and indentation.
/// Nothing here fails: texts are written as they are, so a caller that needs valid
/// UTF-8 checks its texts itself.
class JSONWriter {
public:
    enum class Style {
        /// No white space at all: JSONValue::compact.
        compact,
        /// Two spaces per level, ": " after keys, "[]" and "{}" when empty: JSONValue::pretty.
        pretty,
    };

    /// A writer appending to `out`. In the pretty style, the value's own closing bracket
    /// goes at `indent` spaces.
    explicit JSONWriter(std::string& out, Style style = Style::compact, int indent = 0)
        : out_(out), style_(style), indent_(indent) {}

    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }
    /// The key of the next member of the current object.
    void key(std::string_view name);

    /// A string, escaped as JSONValue::quote does.
    void string(std::string_view text);
    /// A number written as `text`, which the caller guarantees is a valid number.
    void number(std::string_view text);
    void integer(std::int64_t value);
    /// The shortest text that reads back as exactly `value` (finite).
    void real(double value);
    void boolean(bool value);
    void null();
    /// The whole of `value`.
    void value(const JSONValue& value);

    /// `name` and `value` as writeJSON(JSONWriter&, const T&) writes it (see JSONCoding.h).
    template <typename T> void member(std::string_view name, const T& value) {
        key(name);
        writeJSON(*this, value);
    }
    /// Nothing at all when `value` is absent: optional members are left out, never null.
    template <typename T> void member(std::string_view name, const std::optional<T>& value) {
        if (value)
            member(name, *value);
    }

    /// Appends the JSON string literal of `text` to `out`: quotation mark and backslash
    /// escaped, control characters as \b \f \n \r \t or \u00XX, everything else as it is.
    static void appendQuoted(std::string& out, std::string_view text);

private:
    void open(char bracket);
    void close(char bracket);
    /// Before any value or key: the comma after a previous element, and in the pretty
    /// style the line break and indentation.
    void separate() {
        if (style_ == Style::pretty)
            breakLine();
        else if (needComma_)
            out_.push_back(',');
    }
    void breakLine();

    std::string& out_;
    Style style_;
    int indent_;
    int depth_ = 0;
    /// A value was just completed in the current container; the next one needs a comma.
    bool needComma_ = false;
    /// A key was just written: its value follows on the same line.
    bool afterKey_ = false;
};

} // namespace tidewick
