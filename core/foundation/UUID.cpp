#include "foundation/UUID.h"

#include "foundation/Hex.h"

#include <random>
#include <span>
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

namespace {
// The 36-character form is four dashes between five groups of these many bytes.
constexpr std::array<std::size_t, 5> groupBytes = {4, 2, 2, 2, 6};
} // namespace

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36)
        return std::nullopt;
    UUID id;
    std::size_t byte = 0;
    std::size_t at = 0;
    for (std::size_t group = 0; group < groupBytes.size(); ++group) {
        if (group > 0 && text[at++] != '-')
            return std::nullopt;
        const std::size_t count = groupBytes[group];
        if (!Hex::decode(text.substr(at, 2 * count), std::span(id.bytes_).subspan(byte, count)))
            return std::nullopt;
        at += 2 * count;
        byte += count;
    }
    return id;
}

std::array<char, 36> UUID::characters() const {
    std::array<char, 36> out{};
    std::size_t byte = 0;
    std::size_t at = 0;
    for (std::size_t group = 0; group < groupBytes.size(); ++group) {
        if (group > 0)
            out[at++] = '-';
        const std::size_t count = groupBytes[group];
        Hex::write(out.data() + at, std::span(bytes_).subspan(byte, count));
        at += 2 * count;
        byte += count;
    }
    return out;
}

std::string UUID::string() const {
    const std::array<char, 36> text = characters();
    return std::string(text.data(), text.size());
}

} // namespace tidewick
