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

/// A date as a JSON number of seconds since 1970 with fraction.
[[nodiscard]] inline JSONValue date(Date value) {
    return JSONValue::real(secondsSince1970(value));
}

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
// other type than the expected one as invalid.
[[nodiscard]] Field<std::string> string(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<double> number(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<std::int64_t> integer(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<bool> boolean(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<Date> date(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<UUID> uuid(const JSONValue& object, std::string_view key);
[[nodiscard]] Field<std::vector<std::string>> strings(const JSONValue& object,
                                                      std::string_view key);

/// Appends `key` with `value` to `object` when `value` is present; absent fields are omitted.
void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::string>& value);
void setOptional(JSONValue::Object& object, std::string_view key, const std::optional<Date>& value);
void setOptional(JSONValue::Object& object, std::string_view key,
                 const std::optional<std::int64_t>& value);

} // namespace tidewick::JSONCoding
