// One convention for writing Tidewick's records as JSON and reading them back:
// each type has one writeJSON and one readJSON, found by overloading, built
// from the ones here for texts, numbers, dates, identifiers, enumerations,
// optionals, lists and objects.
#pragma once

#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "foundation/JSONReader.h"
#include "foundation/JSONValue.h"
#include "foundation/JSONWriter.h"
#include "foundation/UUID.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewick {

// Writing. A record's writeJSON writes its fields with JSONWriter::member, which
// leaves out absent optional fields.

void writeJSON(JSONWriter& out, std::string_view text);
void writeJSON(JSONWriter& out, const std::string& text);
void writeJSON(JSONWriter& out, const char* text);
void writeJSON(JSONWriter& out, bool value);
void writeJSON(JSONWriter& out, std::int32_t value);
void writeJSON(JSONWriter& out, std::int64_t value);
void writeJSON(JSONWriter& out, double value);
/// Seconds since 1970 to the millisecond, in plain notation without trailing zeros
/// (1763700000.5). Finer digits would mean nothing to the user.
void writeJSON(JSONWriter& out, Date date);
/// The 36-character lower-case form.
void writeJSON(JSONWriter& out, const UUID& id);
void writeJSON(JSONWriter& out, const JSONValue& value);

/// The raw value, as a string.
template <HasRawValues Enum> void writeJSON(JSONWriter& out, Enum value) {
    out.string(rawValue(value));
}

template <typename T> void writeJSON(JSONWriter& out, const std::vector<T>& elements) {
    out.beginArray();
    for (const T& element : elements)
        writeJSON(out, element);
    out.endArray();
}

/// null when absent (as a member, JSONWriter::member leaves it out instead).
template <typename T> void writeJSON(JSONWriter& out, const std::optional<T>& value) {
    if (value)
        writeJSON(out, *value);
    else
        out.null();
}

/// An object keyed by the raw values, in the order of the enumeration.
template <HasRawValues Enum, typename T>
void writeJSON(JSONWriter& out, const std::map<Enum, T>& entries) {
    out.beginObject();
    for (const auto& [key, value] : entries)
        out.member(rawValue(key), value);
    out.endObject();
}

/// An object with one member per entry, in key order.
template <typename T> void writeJSON(JSONWriter& out, const std::map<std::string, T>& entries) {
    out.beginObject();
    for (const auto& [key, value] : entries)
        out.member(key, value);
    out.endObject();
}

// Reading. Every readJSON consumes exactly one value, whatever it holds, and returns
// false when that value is not of the expected type or out of range (an integer that
// does not fit, a date the clock cannot hold, an unknown raw value); `out` is then
// unspecified. Malformed JSON throws JSONValue::ParseError instead.

[[nodiscard]] bool readJSON(JSONReader& in, std::string& out);
[[nodiscard]] bool readJSON(JSONReader& in, bool& out);
/// A whole number that fits (5.0 and 1e3 count, 1.5 does not).
[[nodiscard]] bool readJSON(JSONReader& in, std::int32_t& out);
[[nodiscard]] bool readJSON(JSONReader& in, std::int64_t& out);
/// Any number that fits a double.
[[nodiscard]] bool readJSON(JSONReader& in, double& out);
/// Seconds since 1970 (any fraction, rounded to the millisecond as dates are written) within
/// the clock's range, about the years 1678 to 2262.
[[nodiscard]] bool readJSON(JSONReader& in, Date& out);
/// The 36-character form, either case.
[[nodiscard]] bool readJSON(JSONReader& in, UUID& out);
/// Any value.
[[nodiscard]] bool readJSON(JSONReader& in, JSONValue& out);

/// A string holding one of the raw values.
template <HasRawValues Enum> [[nodiscard]] bool readJSON(JSONReader& in, Enum& out) {
    if (in.peek() != JSONValue::Kind::String) {
        in.skipValue();
        return false;
    }
    const std::optional<Enum> value = fromRaw<Enum>(in.readStringView());
    if (value)
        out = *value;
    return value.has_value();
}

/// An array whose every element reads as a T.
template <typename T> [[nodiscard]] bool readJSON(JSONReader& in, std::vector<T>& out) {
    if (in.peek() != JSONValue::Kind::Array) {
        in.skipValue();
        return false;
    }
    out.clear();
    bool valid = true;
    in.beginArray();
    while (in.nextElement()) {
        if (!valid) {
            in.skipValue();
            continue;
        }
        valid = readJSON(in, out.emplace_back());
    }
    return valid;
}

/// null is absent; anything else must read as a T.
template <typename T> [[nodiscard]] bool readJSON(JSONReader& in, std::optional<T>& out) {
    if (in.peek() == JSONValue::Kind::Null) {
        in.readNull();
        out.reset();
        return true;
    }
    return readJSON(in, out.emplace());
}

namespace detail {

// Reads an object into `out`, the key of each member given by `keyOf(name)`; members
// whose name gives no key are read and passed over; of repeated keys the last one counts.
template <typename Map, typename KeyOf>
[[nodiscard]] bool readMap(JSONReader& in, Map& out, KeyOf keyOf) {
    if (in.peek() != JSONValue::Kind::Object) {
        in.skipValue();
        return false;
    }
    out.clear();
    bool valid = true;
    in.beginObject();
    while (std::optional<std::string_view> name = in.nextKey()) {
        const auto key = keyOf(*name);
        typename Map::mapped_type value{};
        valid = readJSON(in, value) && valid;
        if (key)
            out[*key] = std::move(value);
    }
    return valid;
}

} // namespace detail

/// An object whose values all read as T; keys that are not raw values (an agent a later
/// version knows, say) are passed over, and of repeated keys the last one counts.
template <HasRawValues Enum, typename T>
[[nodiscard]] bool readJSON(JSONReader& in, std::map<Enum, T>& out) {
    return detail::readMap(in, out, [](std::string_view name) { return fromRaw<Enum>(name); });
}

/// An object whose values all read as T; of repeated keys the last one counts.
template <typename T>
[[nodiscard]] bool readJSON(JSONReader& in, std::map<std::string, T>& out) {
    return detail::readMap(in, out,
                           [](std::string_view name) { return std::optional<std::string>(name); });
}

// Objects. A record's readJSON lists its members for readObject:
//
//     return readObject(in, JSONMember::required("id", out.id),
//                       JSONMember::optional("detail", out.detail));

/// How readObject treats one named member.
enum class JSONPresence {
    /// Must be there and read; the object fails otherwise (null fails as any other type).
    required,
    /// May be missing, or null for a std::optional; when there, must read.
    optional,
    /// Missing or unreadable leaves the target as it was; the object reads all the same.
    lenient,
};

/// One named member for readObject: the name, where its value goes and whether it must
/// be there. Made by JSONMember; `target` must outlive the readObject call.
template <typename T> struct JSONField {
    std::string_view name;
    T* target;
    JSONPresence presence;
};

/// Every member that no named field takes, handed to `read(key, reader)`, which must
/// consume the value and returns false to fail the object. `key` lasts only until the
/// value is read.
template <typename Read> struct JSONOtherMembers { Read read; };

/// The members readObject takes, by presence (see JSONPresence).
struct JSONMember {
    /// `name` read into `target` by readJSON; the object fails without it.
    template <typename T>
    [[nodiscard]] static JSONField<T> required(std::string_view name, T& target) {
        return {name, &target, JSONPresence::required};
    }
    /// `name` read into `target` when it is there.
    template <typename T>
    [[nodiscard]] static JSONField<T> optional(std::string_view name, T& target) {
        return {name, &target, JSONPresence::optional};
    }
    /// `name` read into `target` when it is there and reads; `target` is untouched otherwise.
    template <typename T>
    [[nodiscard]] static JSONField<T> lenient(std::string_view name, T& target) {
        return {name, &target, JSONPresence::lenient};
    }
    /// Every other member, handed to `read`.
    template <typename Read> [[nodiscard]] static JSONOtherMembers<Read> others(Read read) {
        return {std::move(read)};
    }
};

namespace detail {

// Member names are a few bytes long: a loop beats a call to memcmp.
inline bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i])
            return false;
    return true;
}

template <typename T>
bool takeMember(JSONReader& in, std::string_view key, const JSONField<T>& field, bool& seen,
                bool& valid) {
    if (!sameName(key, field.name))
        return false;
    if (seen) {
        // A repeated key: the first one counts, as JSONValue::get finds it.
        in.skipValue();
        return true;
    }
    seen = true;
    if (field.presence != JSONPresence::lenient) {
        valid = readJSON(in, *field.target) && valid;
        return true;
    }
    T value{};
    if (readJSON(in, value))
        *field.target = std::move(value);
    return true;
}

template <typename Read>
bool takeMember(JSONReader& in, std::string_view key, const JSONOtherMembers<Read>& others,
                bool& /*seen*/, bool& valid) {
    valid = others.read(key, in) && valid;
    return true;
}

template <typename T> bool isSatisfied(const JSONField<T>& field, bool seen) {
    return seen || field.presence != JSONPresence::required;
}

template <typename Read> bool isSatisfied(const JSONOtherMembers<Read>&, bool) {
    return true;
}

} // namespace detail

/// Reads an object into `members`: each member goes to the first field of its name (a
/// JSONOtherMembers last takes the rest), unknown members are passed over, and of a
/// repeated name only the first member counts. False when the value is not an object,
/// a required member is missing, or a required or optional member does not read.
template <typename... Members>
[[nodiscard]] bool readObject(JSONReader& in, const Members&... members) {
    if (in.peek() != JSONValue::Kind::Object) {
        in.skipValue();
        return false;
    }
    std::array<bool, sizeof...(Members)> seen{};
    bool valid = true;
    in.beginObject();
    while (std::optional<std::string_view> key = in.nextKey()) {
        std::size_t index = 0;
        const bool taken = (detail::takeMember(in, *key, members, seen[index++], valid) || ...);
        if (!taken)
            in.skipValue();
    }
    std::size_t index = 0;
    return valid && (detail::isSatisfied(members, seen[index++]) && ...);
}

// Whole texts.

/// The JSON text of `value`.
template <typename T>
[[nodiscard]] std::string encodeJSON(const T& value,
                                     JSONWriter::Style style = JSONWriter::Style::compact) {
    std::string out;
    JSONWriter writer(out, style);
    writeJSON(writer, value);
    return out;
}

/// Throws JSONValue::ParseError("File is not UTF-8") unless `text` is valid UTF-8.
void requireUTF8(std::string_view text);

/// Reads the one JSON value of `text` into `out`: false when it does not read as a T.
/// Throws JSONValue::ParseError, with the message JSONValue::parse gives, when `text` is
/// not UTF-8 or not JSON.
template <typename T> [[nodiscard]] bool parseJSON(std::string_view text, T& out) {
    requireUTF8(text);
    JSONReader in(text);
    const bool decoded = readJSON(in, out);
    in.finish();
    return decoded;
}

/// The T in `text`; nothing when it is not JSON or does not read as a T.
template <typename T> [[nodiscard]] std::optional<T> decodeJSON(std::string_view text) {
    std::optional<T> value(std::in_place);
    try {
        if (parseJSON(text, *value))
            return value;
    } catch (const JSONValue::ParseError&) {
    }
    return std::nullopt;
}

} // namespace tidewick
