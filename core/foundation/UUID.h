// Random identifiers for held requests and timeline items.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class UUID {
public:
    /// The nil identifier (all zero).
    UUID() = default;
    /// A fresh random (version 4) identifier.
    [[nodiscard]] static UUID random();
    /// Parses the 36-character form, either case; nothing when it is not one.
    [[nodiscard]] static std::optional<UUID> parse(std::string_view text);
    /// The 36-character lower-case form, such as 0f8fad5b-d9cb-469f-a165-70867728950e.
    [[nodiscard]] std::string string() const;
    /// The same characters without allocating: a file of many identifiers writes them by the
    /// hundred thousand.
    [[nodiscard]] std::array<char, 36> characters() const;

    friend bool operator==(const UUID&, const UUID&) = default;
    friend auto operator<=>(const UUID&, const UUID&) = default;

    [[nodiscard]] const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace tidewick

template <> struct std::hash<tidewick::UUID> {
    size_t operator()(const tidewick::UUID& id) const noexcept {
        size_t h = 1469598103934665603ULL;
        for (auto b : id.bytes())
            h = (h ^ b) * 1099511628211ULL;
        return h;
    }
};
