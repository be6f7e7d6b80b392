// The avatar: a small text figure with one pose per state of the agents (see
// AvatarPose), each pose a few frames of text, an expression and a frame rate.
// Built into Tidewick as JSON and replaceable by the user's "avatar.json".
#pragma once

#include "foundation/Clock.h"
#include "presentation/AvatarPose.h"

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class JSONReader;

/// What the avatar looks like in each pose, and when it falls asleep.
struct AvatarDefinition {
    /// A definition that cannot be used; what() is the reason, a clause that fits into a
    /// sentence ("the pose \"idle\" has no frames").
    class Invalid : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Limits that keep the avatar small on screen and cheap to animate.
    static constexpr std::size_t maxLines = 4;
    static constexpr int maxColumns = 16;
    static constexpr std::size_t maxFrames = 24;
    static constexpr int maxExpressionColumns = 40;
    static constexpr double maxFramesPerSecond = 4;

    /// One picture: its lines of text, top to bottom.
    using Frame = std::vector<std::string>;

    /// How the avatar looks in one pose.
    struct Pose {
        /// A few words beside the figure ("Needs you!").
        std::string expression;
        /// Frames shown one after the other, looping; each one to maxLines lines.
        std::vector<Frame> frames;
        /// More than 0, at most maxFramesPerSecond.
        double framesPerSecond = 1;

        friend bool operator==(const Pose&, const Pose&) = default;
    };

    /// Seconds without any news after which the avatar falls asleep.
    double sleepAfterSeconds = 300;
    /// Every pose of AvatarPose, each once.
    std::map<AvatarPose, Pose> poses;

    /// The avatar Tidewick ships, from builtInJSON.
    [[nodiscard]] static const AvatarDefinition& builtIn();
    /// The JSON text of the built-in avatar; also the example for anyone writing their own.
    static const std::string_view builtInJSON;

    /// The definition in `json`. Throws Invalid when it is not JSON, not of this shape, or
    /// breaks a rule: every pose there with 1 to maxFrames frames of 1 to maxLines lines of
    /// at most maxColumns columns, no control characters, an expression of 1 to
    /// maxExpressionColumns columns, a frame rate in range, sleepAfterSeconds from 1 on.
    /// Members this version does not know, poses too, are passed over.
    [[nodiscard]] static AvatarDefinition parse(std::string_view json);

    [[nodiscard]] const Pose& pose(AvatarPose pose) const { return poses.at(pose); }
    /// The frame of `pose` at `now`, by its frame rate; the first one while sleeping, which
    /// is never animated.
    [[nodiscard]] const Frame& frameAt(AvatarPose pose, Date now) const;
    /// When the frame after the one at `now` is due; nothing when `pose` stays still (one
    /// frame, or sleeping).
    [[nodiscard]] std::optional<Date> nextFrameAt(AvatarPose pose, Date now) const;
    /// The most lines of any frame: the height the avatar takes on screen.
    [[nodiscard]] std::size_t height() const;
    /// The most columns of any frame's line.
    [[nodiscard]] int width() const;

    friend bool operator==(const AvatarDefinition&, const AvatarDefinition&) = default;
};

/// The members parse() reads; false when the shape is wrong. Rules are parse()'s to check.
[[nodiscard]] bool readJSON(JSONReader& in, AvatarDefinition::Pose& out);
[[nodiscard]] bool readJSON(JSONReader& in, AvatarDefinition& out);

/// The avatar of the file `path` when it is there and valid, else the built-in one. A
/// file that is there but unusable is reported through `reporter` in one sentence.
[[nodiscard]] AvatarDefinition loadAvatar(const std::string& path,
                                          const std::function<void(const std::string&)>& reporter);

} // namespace tidewick
