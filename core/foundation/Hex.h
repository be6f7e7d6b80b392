// Hexadecimal digits: the one place that turns bytes into lower-case hex and back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tidewick::Hex {

/// Appends two lower-case digits for each byte of `bytes` to `out`.
void append(std::string& out, std::span<const std::uint8_t> bytes);

/// Writes two lower-case digits for each byte of `bytes` to `out`, which has room for them.
void write(char* out, std::span<const std::uint8_t> bytes);

namespace detail {
// Digit values by byte, -1 for non-digits: a table, because random digits make the
// branches of a comparison chain mispredict half the time.
inline constexpr std::array<std::int8_t, 256> digitValues = [] {
    std::array<std::int8_t, 256> values{};
    for (int c = 0; c < 256; ++c)
        values[static_cast<std::size_t>(c)] =
            static_cast<std::int8_t>(c >= '0' && c <= '9'   ? c - '0'
                                     : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                     : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                            : -1);
    return values;
}();
} // namespace detail

/// The value of one hexadecimal digit of either case; -1 for any other byte.
[[nodiscard]] constexpr int digitValue(char c) {
    return detail::digitValues[static_cast<unsigned char>(c)];
}

/// Decodes `text`, two digits of either case per byte, into `out`. False when `text` is
/// not exactly twice as long as `out` or holds anything but digits (`out` is then
/// partly written).
[[nodiscard]] bool decode(std::string_view text, std::span<std::uint8_t> out);

} // namespace tidewick::Hex
