// What every fuzz target shares: the input split into lines, and a check that
// stops the run with a message when a property does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tidewick::fuzz {

/// Stops the run (libFuzzer then keeps the input) when `holds` is false.
inline void check(bool holds, const char* property) {
    if (holds)
        return;
    std::fprintf(stderr, "property does not hold: %s\n", property);
    std::abort();
}

/// The input as text.
inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// The part of `input` up to its first line feed, which is taken off `input`; all of it
/// when there is none.
inline std::string_view takeLine(std::string_view& input) {
    const std::size_t feed = input.find('\n');
    const std::string_view line = input.substr(0, feed);
    input.remove_prefix(feed == std::string_view::npos ? input.size() : feed + 1);
    return line;
}

} // namespace tidewick::fuzz
