#include "foundation/UUID.h"

#include <cstring>
#include <random>
#include <sys/random.h>

namespace tidewick {

UUID UUID::random() {
    UUID id;
    if (getrandom(id.bytes_.data(), id.bytes_.size(), 0) != static_cast<ssize_t>(id.bytes_.size())) {
        // Identifiers need to be unique, not secret: a seeded generator will do.
        static thread_local std::mt19937_64 generator{std::random_device{}()};
        for (auto& b : id.bytes_)
            b = static_cast<std::uint8_t>(generator());
    }
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0F) | 0x40);
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3F) | 0x80);
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    UUID id;
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-')
                return std::nullopt;
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
            return -1;
        };
        int high = nibble(text[i]);
        int low = nibble(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        id.bytes_[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return id;
}

std::string UUID::string() const {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(36);
    for (size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            out.push_back('-');
        out.push_back(hex[bytes_[i] >> 4]);
        out.push_back(hex[bytes_[i] & 0xF]);
    }
    return out;
}

} // namespace tidewick
