#include "install/TOMLProbe.h"

#include "foundation/Text.h"
#include "foundation/UTF8.h"

#include <cstdint>

namespace tidewick::TOMLProbe {

namespace {

// Reads TOML strings and dotted keys from the start of `rest`, moving past what it read.
class Scanner {
public:
    explicit Scanner(std::string_view line) : rest_(line) {}

    void skipBlanks() {
        while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\t'))
            rest_.remove_prefix(1);
    }
    bool take(char c) {
        skipBlanks();
        if (rest_.empty() || rest_.front() != c)
            return false;
        rest_.remove_prefix(1);
        return true;
    }
    /// Nothing left but blanks and a comment.
    [[nodiscard]] bool atEnd() {
        skipBlanks();
        return rest_.empty() || rest_.front() == '#';
    }

    /// One key part: bare, "basic" or 'literal'.
    std::optional<std::string> keyPart() {
        skipBlanks();
        if (rest_.empty())
            return std::nullopt;
        if (rest_.front() == '"' || rest_.front() == '\'')
            return string();
        std::size_t length = 0;
        while (length < rest_.size() && isBare(rest_[length]))
            ++length;
        if (length == 0)
            return std::nullopt;
        std::string part(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return part;
    }
    /// A dotted key: parts joined by ".".
    std::optional<std::vector<std::string>> dottedKey() {
        std::vector<std::string> parts;
        do {
            std::optional<std::string> part = keyPart();
            if (!part)
                return std::nullopt;
            parts.push_back(std::move(*part));
        } while (take('.'));
        return parts;
    }
    /// A one-line basic or literal string.
    std::optional<std::string> string() {
        skipBlanks();
        if (rest_.empty() || (rest_.front() != '"' && rest_.front() != '\''))
            return std::nullopt;
        const char quote = rest_.front();
        rest_.remove_prefix(1);
        std::string out;
        while (!rest_.empty()) {
            const char c = rest_.front();
            rest_.remove_prefix(1);
            if (c == quote)
                return out;
            if (c == '\\' && quote == '"') {
                if (!escape(out))
                    return std::nullopt;
                continue;
            }
            out.push_back(c);
        }
        return std::nullopt;
    }

private:
    static bool isBare(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    }

    bool escape(std::string& out) {
        if (rest_.empty())
            return false;
        const char c = rest_.front();
        rest_.remove_prefix(1);
        switch (c) {
        case 'b': out.push_back('\b'); return true;
        case 't': out.push_back('\t'); return true;
        case 'n': out.push_back('\n'); return true;
        case 'f': out.push_back('\f'); return true;
        case 'r': out.push_back('\r'); return true;
        case '"': out.push_back('"'); return true;
        case '\\': out.push_back('\\'); return true;
        case 'u': return codePoint(out, 4);
        case 'U': return codePoint(out, 8);
        default: return false;
        }
    }
    bool codePoint(std::string& out, std::size_t digits) {
        if (rest_.size() < digits)
            return false;
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            const char d = rest_[i];
            const int digit = d >= '0' && d <= '9'   ? d - '0'
                              : d >= 'a' && d <= 'f' ? d - 'a' + 10
                              : d >= 'A' && d <= 'F' ? d - 'A' + 10
                                                     : -1;
            if (digit < 0)
                return false;
            value = value * 16 + static_cast<std::uint32_t>(digit);
        }
        rest_.remove_prefix(digits);
        if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
        UTF8::append(out, value);
        return true;
    }

    std::string_view rest_;
};

// Calls `line` for every line of `text`.
template <typename Visit> void eachLine(std::string_view text, Visit&& line) {
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t feed = text.find('\n', start);
        line(text.substr(start, feed == std::string_view::npos ? text.npos : feed - start));
        start = feed == std::string_view::npos ? text.size() + 1 : feed + 1;
    }
}

} // namespace

std::optional<bool> boolValue(std::string_view section, std::string_view key,
                              std::string_view text) {
    std::optional<bool> result;
    std::string_view current;
    size_t start = 0;
    while (start <= text.size()) {
        size_t feed = text.find('\n', start);
        std::string_view line =
            text.substr(start, feed == std::string_view::npos ? text.npos : feed - start);
        start = feed == std::string_view::npos ? text.size() + 1 : feed + 1;

        if (size_t hash = line.find('#'); hash != std::string_view::npos)
            line = line.substr(0, hash);
        line = Text::trimmedSpaces(line);
        if (line.size() >= 2 && line.front() == '[' && line.back() == ']' &&
            !Text::startsWith(line, "[[")) {
            current = Text::trimmedSpaces(line.substr(1, line.size() - 2));
            continue;
        }
        if (current != section)
            continue;
        size_t equals = line.find('=');
        if (equals == std::string_view::npos)
            continue;
        if (Text::trimmedSpaces(line.substr(0, equals)) != key)
            continue;
        std::string_view value = Text::trimmedSpaces(line.substr(equals + 1));
        if (value == "true")
            result = true;
        else if (value == "false")
            result = false;
    }
    return result;
}

std::map<std::string, std::string> stringsInTables(const std::vector<std::string>& prefix,
                                                   std::string_view key, std::string_view text) {
    std::map<std::string, std::string> found;
    std::optional<std::string> table;
    eachLine(text, [&](std::string_view line) {
        Scanner scan(line);
        if (scan.take('[')) {
            table.reset();
            auto name = scan.dottedKey();
            if (!name || !scan.take(']') || !scan.atEnd() || name->size() != prefix.size() + 1 ||
                !std::equal(prefix.begin(), prefix.end(), name->begin()))
                return;
            table = std::move(name->back());
            return;
        }
        if (!table)
            return;
        auto assigned = scan.dottedKey();
        if (!assigned || assigned->size() != 1 || assigned->front() != key || !scan.take('='))
            return;
        auto value = scan.string();
        if (value && scan.atEnd())
            found[*table] = std::move(*value);
    });
    return found;
}

} // namespace tidewick::TOMLProbe
