#include "foundation/UTF8.h"

#include <cstdint>
#include <cstring>

namespace tidewick::UTF8 {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

// The length of the valid sequence starting at `p`, or 0 when it is not one.
std::size_t sequenceLength(const unsigned char* p, const unsigned char* end) {
    const unsigned char c = *p;
    if (c < 0x80)
        return 1;
    std::size_t extra;
    std::uint32_t min;
    std::uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
        extra = 1, min = 0x80, cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        extra = 2, min = 0x800, cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        extra = 3, min = 0x10000, cp = c & 0x07;
    } else {
        return 0;
    }
    if (static_cast<std::size_t>(end - p) <= extra)
        return 0;
    for (std::size_t i = 1; i <= extra; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0;
    return extra + 1;
}

} // namespace

bool isValid(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        // Runs of ASCII, the bulk of most texts, are checked eight bytes at a time.
        std::uint64_t word;
        while (end - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080ULL) == 0))
            p += 8;
        if (p == end)
            break;
        std::size_t length = sequenceLength(p, end);
        if (length == 0)
            return false;
        p += length;
    }
    return true;
}

std::string repaired(std::string_view text) {
    if (isValid(text))
        return std::string(text);
    std::string out;
    out.reserve(text.size() + 8);
    const auto* begin = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = begin + text.size();
    for (const auto* p = begin; p < end;) {
        std::size_t length = sequenceLength(p, end);
        if (length == 0) {
            out += replacement;
            ++p;
        } else {
            out.append(reinterpret_cast<const char*>(p), length);
            p += length;
        }
    }
    return out;
}

std::optional<std::string> repairedOptional(const std::optional<std::string>& text) {
    if (!text)
        return std::nullopt;
    return repaired(std::string_view(*text));
}

void removeLast(std::string& text) {
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text.back());
        text.pop_back();
        if ((byte & 0xC0) != 0x80)
            break;
    }
}

void append(std::string& out, std::uint32_t codePoint) {
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
        return;
    }
    if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
    }
    out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
}

} // namespace tidewick::UTF8
