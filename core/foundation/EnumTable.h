// Enumerations with string raw values: each one lists its cases and names once,
// in a table that rawValue, fromRaw and the JSON coding all read.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace tidewick {

/// The name of every case of `Enum`, listed in declaration order. The order is checked
/// when the table is built, at compile time, so a name can never belong to another case.
template <typename Enum, std::size_t N> class EnumTable {
public:
    using Entry = std::pair<Enum, std::string_view>;

    consteval EnumTable(std::array<Entry, N> entries) : entries_(entries) {
        for (std::size_t i = 0; i < N; ++i)
            if (entries_[i].first != static_cast<Enum>(i))
                throw "EnumTable: list every case once, in declaration order";
    }

    /// The name of `value`.
    [[nodiscard]] constexpr std::string_view name(Enum value) const {
        return entries_[static_cast<std::size_t>(value)].second;
    }

    /// The case named exactly `name`; nothing for any other text.
    [[nodiscard]] constexpr std::optional<Enum> value(std::string_view name) const {
        for (const Entry& entry : entries_)
            if (entry.second == name)
                return entry.first;
        return std::nullopt;
    }

private:
    std::array<Entry, N> entries_;
};

/// Specialised beside each enumeration that has string raw values, with one member
/// `static constexpr EnumTable<Enum, N> table`.
template <typename Enum> struct RawValues;

template <typename Enum>
concept HasRawValues = requires {
    RawValues<Enum>::table.name(Enum{});
};

/// The raw value of `value`.
template <HasRawValues Enum> [[nodiscard]] constexpr std::string_view rawValue(Enum value) {
    return RawValues<Enum>::table.name(value);
}

/// The case whose raw value is exactly `raw`; nothing for any other text.
template <HasRawValues Enum>
[[nodiscard]] constexpr std::optional<Enum> fromRaw(std::string_view raw) {
    return RawValues<Enum>::table.value(raw);
}

} // namespace tidewick
