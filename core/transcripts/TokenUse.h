// Tokens one model response used, counted the same way for every agent, so
// that usage figures can add them up without knowing where they came from.
#pragma once

#include <cstdint>

namespace tidewick {

class JSONWriter;

/// Token counts. `input` counts every input token, read from a cache or not (Claude Code
/// records cache reads and writes apart from its input tokens; they are added in here);
/// `cachedInput` and `cacheWrite` say how many of those came from or went to the cache.
/// `output` counts every output token, `reasoning` of them spent on thinking.
struct TokenUse {
    std::int64_t input = 0;
    std::int64_t cachedInput = 0;
    std::int64_t cacheWrite = 0;
    std::int64_t output = 0;
    std::int64_t reasoning = 0;

    /// input + output.
    [[nodiscard]] std::int64_t total() const { return input + output; }
    /// Whether every count is zero.
    [[nodiscard]] bool isEmpty() const {
        return input == 0 && cachedInput == 0 && cacheWrite == 0 && output == 0 && reasoning == 0;
    }
    TokenUse& operator+=(const TokenUse& other);

    friend bool operator==(const TokenUse&, const TokenUse&) = default;
};

/// {"input", "cachedInput", "cacheWrite", "output", "reasoning", "total"}.
void writeJSON(JSONWriter& out, const TokenUse& tokens);

} // namespace tidewick
