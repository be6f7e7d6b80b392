#include "sessions/ShellWords.h"

namespace tidewick::ShellWords {

std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of(separators, start);
        if (end == std::string_view::npos)
            end = text.size();
        if (end > start)
            pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

} // namespace tidewick::ShellWords
