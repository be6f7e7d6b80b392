// Where the `tidewick` commands read and write, and whether they may colour
// their output.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

namespace tidewick {

/// The colours the commands use.
enum class Colour { none, red, green, yellow, dim, bold };

/// Whether output is coloured.
enum class ColourMode { off, on };

/// The standard streams of one run of `tidewick`, plus the colour decision.
class Terminal {
public:
    /// `echoAnswers`: input does not come from a terminal, so answers read
    /// are not echoed by it and a line feed must end the question instead.
    Terminal(std::istream& in, std::ostream& out, std::ostream& err, ColourMode colour,
             bool echoAnswers = false)
        : in_(in), out_(out), err_(err), colour_(colour), echoAnswers_(echoAnswers) {}

    /// The process's own streams, coloured only when standard output is a
    /// terminal and NO_COLOR is not set.
    [[nodiscard]] static Terminal standard();

    /// Colour is used when `stdoutIsTerminal` and NO_COLOR is absent.
    [[nodiscard]] static ColourMode colourFor(bool stdoutIsTerminal, const char* noColor);

    [[nodiscard]] std::istream& in() { return in_; }
    [[nodiscard]] std::ostream& out() { return out_; }
    [[nodiscard]] std::ostream& err() { return err_; }
    [[nodiscard]] ColourMode colourMode() const { return colour_; }

    /// `text` wrapped in the escape sequences of `colour` when colour is on.
    [[nodiscard]] std::string paint(Colour colour, std::string_view text) const;

    /// Writes `question` and reads one line; true only for "y" or "yes" (any
    /// case). End of input counts as no.
    [[nodiscard]] bool confirm(std::string_view question);

private:
    std::istream& in_;
    std::ostream& out_;
    std::ostream& err_;
    ColourMode colour_;
    bool echoAnswers_;
};

} // namespace tidewick
