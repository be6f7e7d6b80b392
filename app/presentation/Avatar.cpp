#include "presentation/Avatar.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utf8proc.h>

namespace tidewick {

// A small sea creature over a ripple of water: calm, busy, waving for you, pleased,
// knocked out, asleep.
const std::string_view AvatarDefinition::builtInJSON = R"json({
  "sleepAfterSeconds": 300,
  "poses": {
    "idle": {
      "expression": "All calm",
      "framesPerSecond": 1,
      "frames": [
        ["  .---.", " ( ·‿· )", "  `~~~´"],
        ["  .---.", " ( ·‿· )", "  `-~-´"],
        ["  .---.", " ( ·‿· )", "  `~-~´"],
        ["  .---.", " ( -‿- )", "  `-~-´"]
      ]
    },
    "working": {
      "expression": "On it",
      "framesPerSecond": 2,
      "frames": [
        ["  .---.  .", " ( •_•)", "  `~~~´"],
        ["  .---. ..", " ( •_•)", "  `-~-´"],
        ["  .---....", " (•_• )", "  `~-~´"],
        ["  .---. ..", " (•_• )", "  `-~-´"]
      ]
    },
    "needsYou": {
      "expression": "Needs you!",
      "framesPerSecond": 2,
      "frames": [
        ["  .---.  !", " ( °o° )/", "  `~~~´"],
        ["  .---. !", " ( °o° )\\", "  `~~~´"]
      ]
    },
    "finished": {
      "expression": "All done",
      "framesPerSecond": 1,
      "frames": [
        ["  .---. *", " ( ^‿^ )", "  `~~~´"],
        ["  .---.  +", " ( ^‿^ )", "  `~~~´"]
      ]
    },
    "error": {
      "expression": "Something went wrong",
      "framesPerSecond": 2,
      "frames": [
        ["  .---.", " ( ×_× )  !", "  `~~~´"],
        [" .---.", "( ×_× )   !", " `~~~´"]
      ]
    },
    "sleeping": {
      "expression": "Dozing",
      "framesPerSecond": 1,
      "frames": [
        ["  .---.  z", " ( -_- ) Z", "  `~~~´"]
      ]
    }
  }
})json";

namespace {

/// Terminal columns of one line, or nothing when it holds a control character (which
/// could move the cursor or change the terminal) or is not UTF-8.
std::optional<int> columnsOf(std::string_view line) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(line.data());
    const auto size = static_cast<utf8proc_ssize_t>(line.size());
    int columns = 0;
    for (utf8proc_ssize_t at = 0; at < size;) {
        utf8proc_int32_t codePoint = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes + at, size - at, &codePoint);
        if (length <= 0 || utf8proc_category(codePoint) == UTF8PROC_CATEGORY_CC)
            return std::nullopt;
        columns += utf8proc_charwidth(codePoint);
        at += length;
    }
    return columns;
}

std::string quoted(AvatarPose pose) {
    return "the pose \"" + std::string(rawValue(pose)) + "\"";
}

void checkText(std::string_view text, int limit, const std::string& what) {
    const std::optional<int> columns = columnsOf(text);
    if (!columns)
        throw AvatarDefinition::Invalid(what + " holds a control character");
    if (*columns > limit)
        throw AvatarDefinition::Invalid(what + " is " + std::to_string(*columns) +
                                        " columns wide (at most " + std::to_string(limit) + ")");
}

void checkPose(AvatarPose which, const AvatarDefinition::Pose& pose) {
    const std::string name = quoted(which);
    if (pose.expression.empty())
        throw AvatarDefinition::Invalid(name + " has no expression");
    checkText(pose.expression, AvatarDefinition::maxExpressionColumns, "the expression of " + name);
    if (!(pose.framesPerSecond > 0 && pose.framesPerSecond <= AvatarDefinition::maxFramesPerSecond))
        throw AvatarDefinition::Invalid(name + " has a framesPerSecond outside 0 to 4");
    if (pose.frames.empty() || pose.frames.size() > AvatarDefinition::maxFrames)
        throw AvatarDefinition::Invalid(name + " has " + std::to_string(pose.frames.size()) +
                                        " frames (1 to " +
                                        std::to_string(AvatarDefinition::maxFrames) + " fit)");
    for (std::size_t i = 0; i < pose.frames.size(); ++i) {
        const std::string frame = "frame " + std::to_string(i + 1) + " of " + name;
        const std::size_t lines = pose.frames[i].size();
        if (lines == 0 || lines > AvatarDefinition::maxLines)
            throw AvatarDefinition::Invalid(frame + " has " + std::to_string(lines) +
                                            " lines (1 to " +
                                            std::to_string(AvatarDefinition::maxLines) + " fit)");
        for (const std::string& line : pose.frames[i])
            checkText(line, AvatarDefinition::maxColumns, "a line of " + frame);
    }
}

} // namespace

bool readJSON(JSONReader& in, AvatarDefinition::Pose& out) {
    using M = JSONMember;
    return readObject(in, M::required("expression", out.expression),
                      M::required("frames", out.frames),
                      M::optional("framesPerSecond", out.framesPerSecond));
}

bool readJSON(JSONReader& in, AvatarDefinition& out) {
    using M = JSONMember;
    return readObject(in, M::required("poses", out.poses),
                      M::optional("sleepAfterSeconds", out.sleepAfterSeconds));
}

AvatarDefinition AvatarDefinition::parse(std::string_view json) {
    AvatarDefinition definition;
    try {
        if (!parseJSON(json, definition))
            throw Invalid("it is not an avatar definition (an object whose \"poses\" each have "
                          "an \"expression\" and \"frames\", lists of lines of text)");
    } catch (const JSONValue::ParseError& error) {
        throw Invalid(std::string("it is not JSON: ") + error.what());
    }
    if (!(definition.sleepAfterSeconds >= 1))
        throw Invalid("its sleepAfterSeconds is less than 1");
    for (AvatarPose pose : allAvatarPoses) {
        const auto found = definition.poses.find(pose);
        if (found == definition.poses.end())
            throw Invalid(quoted(pose) + " is missing");
        checkPose(pose, found->second);
    }
    return definition;
}

const AvatarDefinition& AvatarDefinition::builtIn() {
    static const AvatarDefinition definition = parse(builtInJSON);
    return definition;
}

namespace {

/// How many frames of `pose` have gone by at `now`, counted from 1970.
long long framesSoFar(const AvatarDefinition::Pose& pose, Date now) {
    return static_cast<long long>(std::floor(secondsSince1970(now) * pose.framesPerSecond));
}

} // namespace

const AvatarDefinition::Frame& AvatarDefinition::frameAt(AvatarPose which, Date now) const {
    const Pose& shown = pose(which);
    if (which == AvatarPose::sleeping || shown.frames.size() == 1)
        return shown.frames.front();
    const auto count = static_cast<long long>(shown.frames.size());
    return shown
        .frames[static_cast<std::size_t>(((framesSoFar(shown, now) % count) + count) % count)];
}

std::optional<Date> AvatarDefinition::nextFrameAt(AvatarPose which, Date now) const {
    const Pose& shown = pose(which);
    if (which == AvatarPose::sleeping || shown.frames.size() == 1)
        return std::nullopt;
    const double next = static_cast<double>(framesSoFar(shown, now) + 1) / shown.framesPerSecond;
    // Never in the past, whatever rounding does at the boundary.
    return std::max(dateFromSeconds(next), addSeconds(now, 0.001));
}

std::size_t AvatarDefinition::height() const {
    std::size_t lines = 0;
    for (const auto& [which, pose] : poses)
        for (const Frame& frame : pose.frames)
            lines = std::max(lines, frame.size());
    return lines;
}

int AvatarDefinition::width() const {
    int columns = 0;
    for (const auto& [which, pose] : poses)
        for (const Frame& frame : pose.frames)
            for (const std::string& line : frame)
                columns = std::max(columns, columnsOf(line).value_or(0));
    return columns;
}

AvatarDefinition loadAvatar(const std::string& path,
                            const std::function<void(const std::string&)>& reporter) {
    std::string text;
    try {
        text = File::read(path);
    } catch (const SystemError& error) {
        if (error.code() != ENOENT && reporter)
            reporter("Tidewick couldn't read the avatar in " + path + " (" + error.what() +
                     "), so it shows its own.");
        return AvatarDefinition::builtIn();
    }
    try {
        return AvatarDefinition::parse(text);
    } catch (const AvatarDefinition::Invalid& invalid) {
        if (reporter)
            reporter("Tidewick couldn't use the avatar in " + path + " because " + invalid.what() +
                     ", so it shows its own.");
        return AvatarDefinition::builtIn();
    }
}

} // namespace tidewick
