// Lays the terminal UI out as lines of styled text for a given size: the
// session list, the selected session's held requests, last message and
// timeline, and the status line. Pure, so that every size can be tested;
// the curses renderer only copies the result to the screen.
#pragma once

#include "ScreenController.h"

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
};

/// The style of a status label.
[[nodiscard]] Style styleFor(SessionStatus status);

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
};

/// Smallest size that gets the full layout; smaller terminals get a one-line notice.
inline constexpr int minimumWidth = 40;
inline constexpr int minimumHeight = 12;

/// The screen for `controller`'s state at `now` in a terminal of `width` × `height`.
[[nodiscard]] Frame layoutScreen(const ScreenController& controller, Date now, int width,
                                 int height, LayoutOptions options = {});

} // namespace tidewick
