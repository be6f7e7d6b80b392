// Lays the terminal UI out as lines of styled text for a given size: the
// session list, the selected session's held requests, last message and
// timeline, and the status line. Pure, so that every size can be tested;
// the curses renderer only copies the result to the screen.
#pragma once

#include "ScreenController.h"
#include "presentation/Avatar.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// How a piece of text looks; the renderer maps each to colours and attributes.
enum class Style {
    plain,
    dim,
    bold,
    heading,
    frame,
    /// The frame while a new held request asks for attention.
    glow,
    chip,
    risk,
    waiting,
    expired,
    success,
    warning,
    key,
    working,
    needsPermission,
    waitingReply,
    finished,
    idle,
    error,
    ended,
    /// The one-line banner announcing a request held out of view.
    banner,
};

/// The style of a status label.
[[nodiscard]] Style styleFor(SessionStatus status);
/// The style of the avatar in `pose`: its status's, dim while sleeping.
[[nodiscard]] Style styleFor(AvatarPose pose);

struct Segment {
    std::string text;
    Style style = Style::plain;
    /// Drawn in reverse video (the selected row).
    bool reverse = false;
};

using FrameLine = std::vector<Segment>;

/// One full screen: exactly `height` lines, each exactly `width` columns wide.
struct Frame {
    int width = 0;
    int height = 0;
    std::vector<FrameLine> lines;
    /// Where the cursor stands (row, column) while a line is being typed.
    std::optional<std::pair<int, int>> cursor;

    /// The plain text of line `row` (for tests and captures).
    [[nodiscard]] std::string text(int row) const;
    /// Every line's text joined with line feeds.
    [[nodiscard]] std::string text() const;
};

struct LayoutOptions {
    /// Show the number of held requests in the top frame.
    bool alertChip = true;
    /// The avatar of the header; null: none (the avatarEnabled setting is off). Must outlive
    /// the layout calls.
    const AvatarDefinition* avatar = nullptr;
    /// Since when someone has been at the interface (its start, or the last key pressed):
    /// the avatar sleeps only once this, too, is long enough ago.
    Date awakeSince;
};

/// The avatar's figure as it stands on the screen at one moment: what an animation step
/// redraws, while everything else stays as drawn.
struct AvatarCells {
    int row = 0;
    int column = 0;
    AvatarPose pose = AvatarPose::idle;
    /// One line per row of the figure, each as wide as the avatar's widest frame.
    std::vector<FrameLine> lines;
};

/// Smallest size that gets the full layout; smaller terminals get a one-line notice.
inline constexpr int minimumWidth = 40;
inline constexpr int minimumHeight = 12;

/// The screen for `controller`'s state at `now` in a terminal of `width` × `height`. The top
/// line is the banner while there is one; the header shows the avatar, when there is one and
/// the terminal is tall enough, with its expression, the most urgent session and a count of
/// the sessions by state.
[[nodiscard]] Frame layoutScreen(const ScreenController& controller, Date now, int width,
                                 int height, LayoutOptions options = {});

/// The avatar's figure in the screen layoutScreen gives for the same arguments; nothing when
/// that screen shows no avatar.
[[nodiscard]] std::optional<AvatarCells> layoutAvatar(const ScreenController& controller, Date now,
                                                      int width, int height,
                                                      const LayoutOptions& options);

} // namespace tidewick
