#include "foundation/Hex.h"

namespace tidewick::Hex {

namespace {
constexpr char digits[] = "0123456789abcdef";
} // namespace

void write(char* out, std::span<const std::uint8_t> bytes) {
    for (std::uint8_t byte : bytes) {
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 0xF];
    }
}

void append(std::string& out, std::span<const std::uint8_t> bytes) {
    const std::size_t start = out.size();
    out.resize(start + 2 * bytes.size());
    write(out.data() + start, bytes);
}

bool decode(std::string_view text, std::span<std::uint8_t> out) {
    if (text.size() != 2 * out.size())
        return false;
    // Every digit is decoded before any is judged: no branch per digit.
    int invalid = 0;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const int high = digitValue(text[2 * i]);
        const int low = digitValue(text[2 * i + 1]);
        invalid |= high | low;
        out[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return invalid >= 0;
}

} // namespace tidewick::Hex
