#include "DisplayText.h"

#include "foundation/Text.h"

#include <utf8proc.h>

namespace tidewick::DisplayText {

namespace {

struct Cluster {
    std::string_view text;
    int columns = 0;
    /// A line break, tab or other control character (the first code point tells).
    bool control = false;
    bool lineBreak = false;
};

/// Splits `text` into user-perceived characters with their widths. Invalid bytes become
/// clusters of their own, one column wide, so that every byte is accounted for.
template <typename Visit> void forEachCluster(std::string_view text, Visit&& visit) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto size = static_cast<utf8proc_ssize_t>(text.size());
    utf8proc_ssize_t position = 0;
    utf8proc_int32_t state = 0;
    utf8proc_int32_t previous = -1;
    Cluster current;
    std::size_t clusterStart = 0;
    auto flush = [&](std::size_t end) {
        if (end > clusterStart) {
            current.text = text.substr(clusterStart, end - clusterStart);
            visit(current);
        }
        current = Cluster{};
        clusterStart = end;
    };
    while (position < size) {
        utf8proc_int32_t codePoint = 0;
        utf8proc_ssize_t length = utf8proc_iterate(bytes + position, size - position, &codePoint);
        if (length <= 0) {
            flush(static_cast<std::size_t>(position));
            current.columns = 1;
            flush(static_cast<std::size_t>(position + 1));
            previous = -1;
            state = 0;
            position += 1;
            continue;
        }
        const bool startsCluster =
            previous < 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state);
        if (startsCluster) {
            flush(static_cast<std::size_t>(position));
            const auto category = utf8proc_category(codePoint);
            current.control = category == UTF8PROC_CATEGORY_CC;
            current.lineBreak = codePoint == '\n' || codePoint == '\r';
            current.columns = current.control ? 0 : utf8proc_charwidth(codePoint);
        }
        previous = codePoint;
        position += length;
    }
    flush(text.size());
}

constexpr int ellipsisColumns = 1;

} // namespace

int width(std::string_view text) {
    int total = 0;
    forEachCluster(text, [&](const Cluster& cluster) { total += cluster.columns; });
    return total;
}

std::string fit(std::string_view text, int columns) {
    if (columns <= 0)
        return {};
    if (width(text) <= columns)
        return std::string(text);
    std::string result;
    int used = 0;
    bool full = false;
    forEachCluster(text, [&](const Cluster& cluster) {
        if (full)
            return;
        if (used + cluster.columns > columns - ellipsisColumns) {
            full = true;
            return;
        }
        result.append(cluster.text);
        used += cluster.columns;
    });
    result.append(Text::ellipsis);
    return result;
}

std::string pad(std::string_view text, int columns) {
    std::string result = fit(text, columns);
    const int missing = columns - width(result);
    if (missing > 0)
        result.append(static_cast<std::size_t>(missing), ' ');
    return result;
}

std::string singleLine(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    forEachCluster(text, [&](const Cluster& cluster) {
        if (cluster.lineBreak || cluster.text == "\t")
            result.push_back(' ');
        else if (!cluster.control)
            result.append(cluster.text);
    });
    return result;
}

std::vector<std::string> wrap(std::string_view text, int columns, std::size_t maxLines) {
    std::vector<std::string> lines;
    if (columns <= 0 || maxLines == 0)
        return lines;
    std::string line;
    int lineColumns = 0;
    // Where the line could be broken: after its last space.
    std::size_t breakAt = std::string::npos;
    int breakColumns = 0;
    bool truncated = false;

    auto push = [&](std::string finished) {
        if (lines.size() == maxLines) {
            truncated = true;
            return;
        }
        // Trailing spaces only widen the line.
        while (!finished.empty() && finished.back() == ' ')
            finished.pop_back();
        lines.push_back(std::move(finished));
    };

    forEachCluster(text, [&](const Cluster& cluster) {
        if (truncated)
            return;
        if (cluster.lineBreak) {
            if (cluster.text == "\r")
                return;
            push(std::move(line));
            line.clear();
            lineColumns = 0;
            breakAt = std::string::npos;
            return;
        }
        if (cluster.control && cluster.text != "\t")
            return;
        const std::string_view piece = cluster.text == "\t" ? std::string_view(" ") : cluster.text;
        const int pieceColumns = cluster.text == "\t" ? 1 : cluster.columns;
        if (lineColumns + pieceColumns > columns) {
            if (breakAt != std::string::npos && piece != " ") {
                std::string rest = line.substr(breakAt);
                line.erase(breakAt);
                push(std::move(line));
                line = std::move(rest);
                lineColumns -= breakColumns;
            } else {
                push(std::move(line));
                line.clear();
                lineColumns = 0;
            }
            breakAt = std::string::npos;
            if (piece == " ")
                return; // a space at the break is swallowed by it
        }
        line.append(piece);
        lineColumns += pieceColumns;
        if (piece == " ") {
            breakAt = line.size();
            breakColumns = lineColumns;
        }
    });
    if (!truncated && !line.empty())
        push(std::move(line));
    if (truncated && !lines.empty()) {
        std::string& last = lines.back();
        if (width(last) < columns)
            last.append(Text::ellipsis);
        else
            last = fit(last, columns - 1);
    }
    return lines;
}

} // namespace tidewick::DisplayText
