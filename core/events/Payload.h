// A read-only view of the agent's JSON object with typed lookups.
#pragma once

#include "foundation/JSONValue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class Payload {
public:
    /// An empty payload.
    Payload() : raw_(JSONValue::Object{}) {}
    /// Wraps a parsed object; any other value counts as an empty object.
    explicit Payload(JSONValue object);

    [[nodiscard]] const JSONValue& raw() const { return raw_; }
    /// The value under `key`, whatever its type; null when missing.
    [[nodiscard]] const JSONValue* value(std::string_view key) const { return raw_.get(key); }

    /// The string under `key`; nothing when missing, not a string, or empty.
    [[nodiscard]] std::optional<std::string> string(std::string_view key) const;
    /// The boolean under `key`; nothing when missing or not a boolean.
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    /// The integer value of the number under `key`; nothing otherwise.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const;
    /// The object under `key`; null when missing or not an object.
    [[nodiscard]] const JSONValue* dict(std::string_view key) const;
    /// The elements of the array under `key`; null when missing or not an array.
    [[nodiscard]] const JSONValue::Array* array(std::string_view key) const;

private:
    JSONValue raw_;
};

} // namespace tidewick
