#include "foundation/Text.h"

#include <utf8proc.h>

namespace tidewick::Text {

namespace {

// Walks `text` cluster by cluster. ASCII next to ASCII always breaks (but for
// CR LF), which keeps long plain texts off the slower Unicode tables.
class ClusterCursor {
public:
    explicit ClusterCursor(std::string_view text) : text_(text) {}

    // Advances past one cluster; false at the end.
    bool next() {
        if (pos_ >= text_.size())
            return false;
        std::int32_t state = 0;
        std::int32_t previous = decode();
        while (pos_ < text_.size()) {
            auto byte = static_cast<unsigned char>(text_[pos_]);
            if (previous >= 0 && previous < 0x80 && byte < 0x80) {
                if (previous == '\r' && byte == '\n') {
                    ++pos_;
                    previous = '\n';
                    continue;
                }
                return true;
            }
            size_t save = pos_;
            std::int32_t current = decode();
            if (previous < 0 || current < 0 ||
                utf8proc_grapheme_break_stateful(previous, current, &state)) {
                pos_ = save;
                return true;
            }
            previous = current;
        }
        return true;
    }

    [[nodiscard]] size_t position() const { return pos_; }

private:
    // Decodes one code point at pos_; an invalid byte is consumed alone and yields -1.
    std::int32_t decode() {
        auto byte = static_cast<unsigned char>(text_[pos_]);
        if (byte < 0x80) {
            ++pos_;
            return byte;
        }
        utf8proc_int32_t cp = -1;
        auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text_.data() + pos_),
                                       static_cast<utf8proc_ssize_t>(text_.size() - pos_), &cp);
        if (length <= 0) {
            ++pos_;
            return -1;
        }
        pos_ += static_cast<size_t>(length);
        return cp;
    }

    std::string_view text_;
    size_t pos_ = 0;
};

bool isSpaceCodePoint(std::int32_t cp) {
    if (cp == ' ' || (cp >= 0x09 && cp <= 0x0D) || cp == 0x85 || cp == 0xA0)
        return true;
    if (cp < 0x80)
        return false;
    auto category = utf8proc_category(cp);
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

} // namespace

std::size_t characterCount(std::string_view text) {
    ClusterCursor cursor(text);
    std::size_t count = 0;
    while (cursor.next())
        ++count;
    return count;
}

std::string_view prefix(std::string_view text, std::size_t count) {
    // Every cluster holds at least one byte, so a short text needs no walk.
    if (text.size() <= count)
        return text;
    ClusterCursor cursor(text);
    for (std::size_t i = 0; i < count && cursor.next();)
        ++i;
    return text.substr(0, cursor.position());
}

std::string cut(std::string_view text, std::size_t limit, std::string_view marker) {
    std::string_view head = prefix(text, limit);
    if (head.size() == text.size())
        return std::string(text);
    std::string out(head);
    out += marker;
    return out;
}

std::string lowercased(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t pos = 0;
    while (pos < text.size()) {
        auto byte = static_cast<unsigned char>(text[pos]);
        if (byte < 0x80) {
            out.push_back(static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte));
            ++pos;
            continue;
        }
        utf8proc_int32_t cp = -1;
        auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + pos),
                                       static_cast<utf8proc_ssize_t>(text.size() - pos), &cp);
        if (length <= 0) {
            out.push_back(static_cast<char>(byte));
            ++pos;
            continue;
        }
        utf8proc_uint8_t buffer[4];
        auto written = utf8proc_encode_char(utf8proc_tolower(cp), buffer);
        out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(written));
        pos += static_cast<size_t>(length);
    }
    return out;
}

std::string_view trimmed(std::string_view text) {
    auto codePointAt = [&](size_t pos, utf8proc_int32_t& cp) {
        return utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + pos),
                                static_cast<utf8proc_ssize_t>(text.size() - pos), &cp);
    };
    size_t start = 0;
    while (start < text.size()) {
        utf8proc_int32_t cp = -1;
        auto length = codePointAt(start, cp);
        if (length <= 0 || !isSpaceCodePoint(cp))
            break;
        start += static_cast<size_t>(length);
    }
    size_t end = text.size();
    while (end > start) {
        // Step back to the first byte of the last code point.
        size_t lead = end - 1;
        while (lead > start && (static_cast<unsigned char>(text[lead]) & 0xC0) == 0x80)
            --lead;
        utf8proc_int32_t cp = -1;
        auto length = codePointAt(lead, cp);
        if (length <= 0 || lead + static_cast<size_t>(length) != end || !isSpaceCodePoint(cp))
            break;
        end = lead;
    }
    return text.substr(start, end - start);
}

std::string_view trimmedSpaces(std::string_view text) {
    size_t start = text.find_first_not_of(" \t");
    if (start == std::string_view::npos)
        return {};
    size_t end = text.find_last_not_of(" \t");
    return text.substr(start, end - start + 1);
}

std::string replacingAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    if (from.empty())
        return std::string(text);
    size_t pos = 0;
    for (;;) {
        size_t hit = text.find(from, pos);
        if (hit == std::string_view::npos)
            break;
        out.append(text.substr(pos, hit - pos));
        out.append(to);
        pos = hit + from.size();
    }
    out.append(text.substr(pos));
    return out;
}

} // namespace tidewick::Text
