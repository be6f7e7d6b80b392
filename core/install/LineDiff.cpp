#include "install/LineDiff.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace tidewick::LineDiff {

namespace {

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    if (text.empty())
        return lines;
    size_t start = 0;
    for (;;) {
        size_t feed = text.find('\n', start);
        if (feed == std::string_view::npos) {
            lines.push_back(text.substr(start));
            return lines;
        }
        lines.push_back(text.substr(start, feed - start));
        start = feed + 1;
    }
}

DiffLine line(DiffLine::Kind kind, std::string_view text) {
    return DiffLine{kind, std::string(text)};
}

} // namespace

std::vector<DiffLine> diff(std::string_view before, std::string_view after) {
    const std::vector<std::string_view> old = splitLines(before);
    const std::vector<std::string_view> now = splitLines(after);
    const size_t n = old.size();
    const size_t m = now.size();
    std::vector<DiffLine> out;
    out.reserve(n + m);

    if (n != 0 && m > maxCells / n) {
        for (std::string_view text : old)
            out.push_back(line(DiffLine::Kind::removed, text));
        for (std::string_view text : now)
            out.push_back(line(DiffLine::Kind::added, text));
        return out;
    }

    // The walk emits a shared head as-is, so the table only has to cover the rest.
    size_t head = 0;
    while (head < n && head < m && old[head] == now[head]) {
        out.push_back(line(DiffLine::Kind::same, old[head]));
        ++head;
    }

    // Compare small integers instead of strings inside the quadratic loop.
    std::unordered_map<std::string_view, std::uint32_t> ids;
    auto idOf = [&ids](std::string_view text) {
        return ids.try_emplace(text, static_cast<std::uint32_t>(ids.size())).first->second;
    };
    std::vector<std::uint32_t> a;
    std::vector<std::uint32_t> b;
    a.reserve(n - head);
    b.reserve(m - head);
    for (size_t i = head; i < n; ++i)
        a.push_back(idOf(old[i]));
    for (size_t j = head; j < m; ++j)
        b.push_back(idOf(now[j]));

    // Under the guard min(n, m) is at most 2000, so every length fits 16 bits.
    const size_t rows = a.size();
    const size_t cols = b.size();
    const size_t width = cols + 1;
    std::vector<std::uint16_t> table((rows + 1) * width, 0);
    auto at = [&](size_t i, size_t j) -> std::uint16_t& { return table[i * width + j]; };
    for (size_t i = rows; i-- > 0;) {
        for (size_t j = cols; j-- > 0;) {
            if (a[i] == b[j])
                at(i, j) = static_cast<std::uint16_t>(at(i + 1, j + 1) + 1);
            else
                at(i, j) = std::max(at(i + 1, j), at(i, j + 1));
        }
    }

    size_t i = 0;
    size_t j = 0;
    while (i < rows && j < cols) {
        if (a[i] == b[j]) {
            out.push_back(line(DiffLine::Kind::same, old[head + i]));
            ++i;
            ++j;
        } else if (at(i + 1, j) < at(i, j + 1)) {
            out.push_back(line(DiffLine::Kind::added, now[head + j]));
            ++j;
        } else {
            // On a tie the old line goes first, so a change reads old-then-new.
            out.push_back(line(DiffLine::Kind::removed, old[head + i]));
            ++i;
        }
    }
    for (; i < rows; ++i)
        out.push_back(line(DiffLine::Kind::removed, old[head + i]));
    for (; j < cols; ++j)
        out.push_back(line(DiffLine::Kind::added, now[head + j]));
    return out;
}

std::vector<DiffLine> condensed(const std::vector<DiffLine>& lines, int context) {
    const size_t count = lines.size();
    const size_t reach = static_cast<size_t>(std::max(context, 0));
    std::vector<bool> marked(count, false);
    for (size_t k = 0; k < count; ++k) {
        if (lines[k].kind == DiffLine::Kind::same)
            continue;
        size_t from = k > reach ? k - reach : 0;
        size_t to = std::min(k + reach, count - 1);
        for (size_t p = from; p <= to; ++p)
            marked[p] = true;
    }
    std::vector<DiffLine> out;
    for (size_t k = 0; k < count; ++k)
        if (marked[k])
            out.push_back(lines[k]);
    return out;
}

} // namespace tidewick::LineDiff
