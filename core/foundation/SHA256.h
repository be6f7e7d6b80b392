// The SHA-256 digest, for comparing Tidewick's hook entries with the hashes an
// agent stored when the user approved them.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace tidewick::SHA256 {

using Digest = std::array<std::uint8_t, 32>;

/// The SHA-256 digest of `bytes`. Never fails.
[[nodiscard]] Digest of(std::string_view bytes);

} // namespace tidewick::SHA256
