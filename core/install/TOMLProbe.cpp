#include "install/TOMLProbe.h"

#include "foundation/Text.h"

namespace tidewick::TOMLProbe {

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

} // namespace tidewick::TOMLProbe
