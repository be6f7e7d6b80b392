// Helpers shared by the session records' JSON encoders and decoders: dates as
// seconds since 1970, and typed reads that tell "absent" from "mistyped".
#pragma once

#include "foundation/Clock.h"
#include "foundation/JSONValue.h"
#include "foundation/UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick::JSONCoding {

/// A date as a JSON number of seconds since 1970, to the millisecond. Finer digits would
/// mean nothing to the user, and they make the number's text too long to be kept without
/// an allocation of its own, which dominates the cost of reading a large file.
[[nodiscard]] JSONValue date(Date value);

/// The outcome of reading one field: either the value, absent, or invalid.
/// Decoders fail the whole record on `invalid`; optional fields accept `absent`.
template <typename T> struct Field {
    enum class State { value, absent, invalid };
    State state = State::absent;
    std::optional<T> value;

    [[nodiscard]] bool isInvalid() const { return state == State::invalid; }
    [[nodiscard]] static Field invalid() { return {State::invalid, std::nullopt}; }
    [[nodiscard]] static Field absent() { return {State::absent, std::nullopt}; }
    [[nodiscard]] static Field of(T v) { return {State::value, std::move(v)}; }
};

// Each reader treats a missing key and an explicit null as absent, and any
// other type than the expected one as invalid. Readers of strings move the text
// out of `object`: decoding a large file then costs no second copy of every text.
[[nodiscard]] Field<std::string> string(JSONValue& object, std::string_view key);
[[nodiscard]] Field<double> number(JSONValue& object, std::string_view key);
[[nodiscard]] Field<std::int64_t> integer(JSONValue& object, std::string_view key);
[[nodiscard]] Field<bool> boolean(JSONValue& object, std::string_view key);
[[nodiscard]] Field<Date> date(JSONValue& object, std::string_view key);
[[nodiscard]] Field<UUID> uuid(JSONValue& object, std::string_view key);
[[nodiscard]] Field<std::vector<std::string>> strings(JSONValue& object, std::string_view key);

/// Every element of `elements` decoded by T::fromJSON(JSONValue&&), which may move out of
/// them; nothing when any element fails to decode.
template <typename T>
[[nodiscard]] std::optional<std::vector<T>> decodeEach(JSONValue::Array& elements) {
    std::vector<T> decoded;
    decoded.reserve(elements.size());
    for (JSONValue& element : elements) {
        std::optional<T> one = T::fromJSON(std::move(element));
        if (!one)
            return std::nullopt;
        decoded.push_back(std::move(*one));
    }
    return decoded;
}

/// Appends `key` with `value` to `object` when `value` is present; absent fields are omitted.
void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::string>& value);
void setOptional(JSONValue::Object& object, std::string_view key, const std::optional<Date>& value);
void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::int64_t>& value);

} // namespace tidewick::JSONCoding
