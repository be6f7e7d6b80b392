// One key press as the terminal UI understands it, independent of curses.
#pragma once

#include <cstddef>
#include <optional>

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

/// How far a movement key moves a selection among `count` rows: the arrows one, the page
/// keys ten, Home and End all the way; nothing for any other key.
[[nodiscard]] inline std::optional<long> movement(const Key& key, std::size_t count) {
    switch (key.kind) {
    case Key::Kind::up:
        return -1;
    case Key::Kind::down:
        return 1;
    case Key::Kind::pageUp:
        return -10;
    case Key::Kind::pageDown:
        return 10;
    case Key::Kind::home:
        return -static_cast<long>(count);
    case Key::Kind::end:
        return static_cast<long>(count);
    default:
        return std::nullopt;
    }
}

} // namespace tidewick
