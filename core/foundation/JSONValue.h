// Order-preserving JSON document: parses, edits and prints JSON without
// disturbing key order, duplicate keys or the spelling of numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tidewick {

class JSONValue {
public:
    enum class Kind { Bool, Number, String, Array, Object, Null };
    using Array = std::vector<JSONValue>;
    using Pair = std::pair<std::string, JSONValue>;
    using Object = std::vector<Pair>;

    /// A syntax error. `what()` is the user-readable message, which ends in
    /// " at byte " and the zero-based offset (except "File is not UTF-8").
    class ParseError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
        /// The message, as shown to the user.
        [[nodiscard]] std::string message() const { return what(); }
    };

    /// Deepest nesting of arrays and objects the parser accepts; deeper input
    /// fails with a ParseError instead of exhausting the stack.
    static constexpr int maxDepth = 1000;

    /// null. Written out, not defaulted: clang 14 with libstdc++ 12 takes a defaulted one of
    /// this recursive type as unusable, and std::optional<JSONValue>::emplace() then fails.
    JSONValue() noexcept {}
    JSONValue(std::nullptr_t) {}
    /// A string value (never a number: use number() or integer()).
    JSONValue(std::string text) : storage_(std::move(text)) {}
    JSONValue(const char* text) : storage_(std::string(text)) {}
    JSONValue(std::string_view text) : storage_(std::string(text)) {}
    JSONValue(Array elements) : storage_(std::move(elements)) {}
    JSONValue(Object pairs) : storage_(std::move(pairs)) {}

    /// A boolean value.
    [[nodiscard]] static JSONValue boolean(bool value);
    /// A number holding `text` as written; the caller guarantees it is a valid number.
    [[nodiscard]] static JSONValue number(std::string text);
    /// A number from an integer's decimal text.
    [[nodiscard]] static JSONValue integer(std::int64_t value);
    /// A number from a double, written with the shortest text that reads back exactly.
    [[nodiscard]] static JSONValue real(double value);

    /// Parses one JSON value from UTF-8 bytes. Only white space may follow it.
    /// Throws ParseError with the message and byte offset of the first problem.
    [[nodiscard]] static JSONValue parse(std::string_view bytes);

    /// A copy in which every object's pairs are sorted by key (stable, so
    /// duplicates keep their order), at every depth. Used where a payload
    /// value is shown as text and must read the same every time.
    [[nodiscard]] static JSONValue from(const JSONValue& value);

    /// The JSON string literal of `text`: quote and backslash escaped, control
    /// characters as \b \f \n \r \t or \u00XX, everything else verbatim.
    [[nodiscard]] static std::string quote(std::string_view text);

    [[nodiscard]] Kind kind() const { return static_cast<Kind>(storage_.index()); }
    [[nodiscard]] bool isNull() const { return kind() == Kind::Null; }
    [[nodiscard]] bool isBool() const { return kind() == Kind::Bool; }
    [[nodiscard]] bool isNumber() const { return kind() == Kind::Number; }
    [[nodiscard]] bool isString() const { return kind() == Kind::String; }
    [[nodiscard]] bool isArray() const { return kind() == Kind::Array; }
    [[nodiscard]] bool isObject() const { return kind() == Kind::Object; }

    /// The string of a string value, else null.
    [[nodiscard]] const std::string* stringValue() const;
    /// The source text of a number value, else null.
    [[nodiscard]] const std::string* numberText() const;
    /// The value of a boolean, else nothing.
    [[nodiscard]] std::optional<bool> boolValue() const;
    /// The value of a whole number that fits 64 bits (5.0 and 1e3 count), else nothing.
    [[nodiscard]] std::optional<std::int64_t> intValue() const;
    /// The value of a number as a double, else nothing.
    [[nodiscard]] std::optional<double> doubleValue() const;
    /// The elements of an array, else null.
    [[nodiscard]] const Array* arrayValue() const;
    [[nodiscard]] Array* arrayValue();
    /// The ordered pairs of an object, else null.
    [[nodiscard]] const Object* objectPairs() const;
    [[nodiscard]] Object* objectPairs();

    /// The value of the first pair named `key`; null for a missing key or a non-object.
    [[nodiscard]] const JSONValue* get(std::string_view key) const;
    [[nodiscard]] JSONValue* get(std::string_view key);
    /// Replaces the value of the first pair named `key` in place, or appends a
    /// new pair. Does nothing on a non-object.
    void set(std::string_view key, JSONValue value);
    /// Removes the first pair named `key`, shifting later pairs up. Does
    /// nothing when there is none or on a non-object.
    void remove(std::string_view key);

    /// Serialises without any white space.
    [[nodiscard]] std::string compact() const;
    /// Serialises over several lines, two spaces per level, the closing
    /// bracket of this value at `indent` spaces. No trailing line feed.
    [[nodiscard]] std::string pretty(int indent = 0) const;

    friend bool operator==(const JSONValue&, const JSONValue&) = default;

private:
    struct NumberText {
        std::string text;
        friend bool operator==(const NumberText&, const NumberText&) = default;
    };
    // The alternatives follow the order of Kind.
    using Storage = std::variant<bool, NumberText, std::string, Array, Object, std::nullptr_t>;
    explicit JSONValue(Storage storage) : storage_(std::move(storage)) {}

    Storage storage_{nullptr};
};

static_assert(std::is_default_constructible_v<JSONValue>);

} // namespace tidewick
