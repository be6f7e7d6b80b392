#include "sessions/ShortIds.h"

#include "foundation/Text.h"

#include <algorithm>

namespace tidewick {

namespace {

std::size_t commonPrefix(std::string_view a, std::string_view b) {
    const auto [end, unused] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    return static_cast<std::size_t>(end - a.begin());
}

} // namespace

ShortIds::ShortIds(std::vector<std::string_view> ids) : sorted_(std::move(ids)) {
    std::sort(sorted_.begin(), sorted_.end());
    sorted_.erase(std::unique(sorted_.begin(), sorted_.end()), sorted_.end());
}

std::string ShortIds::of(std::string_view id) const {
    const std::string_view shortest = Text::prefix(id, minimumLength);
    const auto found = std::lower_bound(sorted_.begin(), sorted_.end(), id);
    if (found == sorted_.end() || *found != id)
        return std::string(shortest);
    // In sorted order the identifiers sharing most of `id` stand right beside it.
    std::size_t shared = 0;
    if (found != sorted_.begin())
        shared = commonPrefix(id, *(found - 1));
    if (found + 1 != sorted_.end())
        shared = std::max(shared, commonPrefix(id, *(found + 1)));
    std::size_t length = std::max(shortest.size(), std::min(shared + 1, id.size()));
    // Never end inside a character of a non-ASCII identifier.
    while (length < id.size() && (static_cast<unsigned char>(id[length]) & 0xC0) == 0x80)
        ++length;
    return std::string(id.substr(0, length));
}

} // namespace tidewick
