// Session identifiers shortened the way people type them: the shortest start
// of each that no other known identifier shares, never under eight characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

/// Agents that hand out time-ordered identifiers (Codex) give many sessions the same
/// first characters, so a fixed length would show prefixes that match several sessions.
class ShortIds {
public:
    /// Fewest characters shown for any identifier.
    static constexpr std::size_t minimumLength = 8;

    /// Shortened among `ids` (duplicates allowed; the views must outlive this object).
    explicit ShortIds(std::vector<std::string_view> ids);

    /// The shortest prefix of `id`, at least minimumLength characters, that no other known
    /// identifier starts with; the whole identifier when another one starts with all of
    /// it. An identifier that is not known gets its first minimumLength characters.
    [[nodiscard]] std::string of(std::string_view id) const;

private:
    std::vector<std::string_view> sorted_;
};

} // namespace tidewick
