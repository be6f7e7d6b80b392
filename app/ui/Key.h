// One key press as the terminal UI understands it, independent of curses.
#pragma once

namespace tidewick {

struct Key {
    enum class Kind {
        character,
        up,
        down,
        pageUp,
        pageDown,
        home,
        end,
        enter,
        escape,
        backspace,
        tab,
        other
    };

    Kind kind = Kind::other;
    /// The typed character, for Kind::character.
    char32_t character = 0;

    [[nodiscard]] static Key of(char32_t character) { return {Kind::character, character}; }
    [[nodiscard]] static Key special(Kind kind) { return {kind, 0}; }
};

} // namespace tidewick
