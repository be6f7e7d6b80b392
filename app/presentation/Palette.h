// The colour of each status, wherever it shows (the status column, the
// detail, the frame's glow, the avatar): one 256-colour choice and one of the
// 8 basic colours for terminals with fewer, and none at all when the user
// asks for none (NO_COLOR, --no-color).
#pragma once

#include "events/SessionStatus.h"
#include "presentation/AvatarPose.h"

#include <array>
#include <optional>

namespace tidewick {

/// The status colours.
enum class Tint { needsYou, error, working, finished, idle, ended };

/// Every tint, in declaration order.
inline constexpr std::array<Tint, 6> allTints = {Tint::needsYou, Tint::error, Tint::working,
                                                 Tint::finished, Tint::idle,  Tint::ended};

/// The tint of a session status: both statuses that wait for the user are needsYou.
[[nodiscard]] Tint tintOf(SessionStatus status);
/// The tint of an avatar pose (sleeping is idle's).
[[nodiscard]] Tint tintOf(AvatarPose pose);

/// The looks of the tints at one colour depth.
class Palette {
public:
    /// How many colours the palette may use.
    enum class Depth {
        /// None: only bold, dim and reverse video tell statuses apart.
        none,
        /// The 8 basic colours.
        basic,
        /// The 256 colours of xterm and its kin.
        extended,
    };

    /// Whether the user asked for no colour.
    enum class ColourRequest { automatic, never };

    /// What the terminal and the user allow: none when the user asked for none (with
    /// `--no-color`, or NO_COLOR set to anything but an empty text, given as `noColor`) or
    /// the terminal has fewer than 8 colours; extended from 256 colours; basic otherwise.
    [[nodiscard]] static Depth depthFor(int terminalColours, ColourRequest request,
                                        const char* noColor);

    /// How one tint is drawn.
    struct Look {
        /// The foreground colour number for the depth (a curses COLOR_* for basic, an
        /// xterm index for extended); nothing: the terminal's own foreground.
        std::optional<short> colour;
        bool bold = false;
        bool dim = false;
    };

    /// The palette for `depth` (see depthFor).
    explicit Palette(Depth depth) : depth_(depth) {}

    /// How many colours it uses.
    [[nodiscard]] Depth depth() const { return depth_; }
    /// How `tint` is drawn at this depth.
    [[nodiscard]] Look look(Tint tint) const;

private:
    Depth depth_;
};

} // namespace tidewick
