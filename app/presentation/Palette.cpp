#include "presentation/Palette.h"

namespace tidewick {

namespace {

// The curses numbers of the basic colours (COLOR_RED and so on), without curses here.
constexpr short basicRed = 1, basicGreen = 2, basicYellow = 3, basicBlue = 4;

struct Choice {
    std::optional<short> extended;
    std::optional<short> basic;
    bool bold;
    bool dim;
};

// Amber asks, red alarms, green works, blue has finished; idle keeps the terminal's own
// colour (readable on light and dark backgrounds alike) and what is over fades to grey.
Choice choiceFor(Tint tint) {
    switch (tint) {
    case Tint::needsYou:
        return {214, basicYellow, true, false};
    case Tint::error:
        return {196, basicRed, true, false};
    case Tint::working:
        return {42, basicGreen, false, false};
    case Tint::finished:
        return {75, basicBlue, true, false};
    case Tint::idle:
        return {std::nullopt, std::nullopt, false, false};
    case Tint::ended:
        return {244, std::nullopt, false, true};
    }
    return {std::nullopt, std::nullopt, false, false};
}

} // namespace

Tint tintOf(SessionStatus status) {
    switch (status) {
    case SessionStatus::needsPermission:
    case SessionStatus::waitingReply:
        return Tint::needsYou;
    case SessionStatus::error:
        return Tint::error;
    case SessionStatus::working:
        return Tint::working;
    case SessionStatus::finished:
        return Tint::finished;
    case SessionStatus::idle:
        return Tint::idle;
    case SessionStatus::ended:
        return Tint::ended;
    }
    return Tint::idle;
}

Tint tintOf(AvatarPose pose) {
    switch (pose) {
    case AvatarPose::needsYou:
        return Tint::needsYou;
    case AvatarPose::error:
        return Tint::error;
    case AvatarPose::working:
        return Tint::working;
    case AvatarPose::finished:
        return Tint::finished;
    case AvatarPose::idle:
    case AvatarPose::sleeping:
        return Tint::idle;
    }
    return Tint::idle;
}

Palette::Depth Palette::depthFor(int terminalColours, ColourRequest request, const char* noColor) {
    if (request == ColourRequest::never || (noColor && *noColor) || terminalColours < 8)
        return Depth::none;
    return terminalColours >= 256 ? Depth::extended : Depth::basic;
}

Palette::Look Palette::look(Tint tint) const {
    const Choice choice = choiceFor(tint);
    switch (depth_) {
    case Depth::extended:
        return {choice.extended, choice.bold, choice.dim};
    case Depth::basic:
        return {choice.basic, choice.bold, choice.dim};
    case Depth::none:
        // Without colour the statuses that want the user still stand out.
        return {std::nullopt, tint == Tint::needsYou || tint == Tint::error, choice.dim};
    }
    return {};
}

} // namespace tidewick
