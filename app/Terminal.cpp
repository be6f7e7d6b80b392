#include "Terminal.h"

#include "foundation/Text.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace tidewick {

Terminal Terminal::standard() {
    return Terminal(std::cin, std::cout, std::cerr,
                    colourFor(::isatty(STDOUT_FILENO) == 1, std::getenv("NO_COLOR")),
                    ::isatty(STDIN_FILENO) != 1);
}

ColourMode Terminal::colourFor(bool stdoutIsTerminal, const char* noColor) {
    // NO_COLOR switches colour off whatever its value.
    return stdoutIsTerminal && noColor == nullptr ? ColourMode::on : ColourMode::off;
}

std::string Terminal::paint(Colour colour, std::string_view text) const {
    if (colour_ == ColourMode::off || colour == Colour::none)
        return std::string(text);
    const char* code = "";
    switch (colour) {
    case Colour::red:
        code = "\x1b[31m";
        break;
    case Colour::green:
        code = "\x1b[32m";
        break;
    case Colour::yellow:
        code = "\x1b[33m";
        break;
    case Colour::dim:
        code = "\x1b[2m";
        break;
    case Colour::bold:
        code = "\x1b[1m";
        break;
    case Colour::none:
        break;
    }
    return code + std::string(text) + "\x1b[0m";
}

bool Terminal::confirm(std::string_view question) {
    out_ << question << ' ' << std::flush;
    std::string answer;
    const bool got = static_cast<bool>(std::getline(in_, answer));
    if (!got || echoAnswers_)
        out_ << '\n';
    if (!got)
        return false;
    std::string word = Text::lowercased(Text::trimmed(answer));
    return word == "y" || word == "yes";
}

} // namespace tidewick
