// Which pose the avatar strikes: the state of the most urgent session, or
// sleep after a while in which nothing happened.
#pragma once

#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "sessions/Session.h"

#include <array>
#include <vector>

namespace tidewick {

/// From most to least urgent, sleeping last.
enum class AvatarPose { needsYou, error, working, finished, idle, sleeping };

template <> struct RawValues<AvatarPose> {
    static constexpr EnumTable<AvatarPose, 6> table{{{
        {AvatarPose::needsYou, "needsYou"},
        {AvatarPose::error, "error"},
        {AvatarPose::working, "working"},
        {AvatarPose::finished, "finished"},
        {AvatarPose::idle, "idle"},
        {AvatarPose::sleeping, "sleeping"},
    }}};
};

/// Every pose, in declaration order.
inline constexpr std::array<AvatarPose, 6> allAvatarPoses = {
    AvatarPose::needsYou, AvatarPose::error, AvatarPose::working,
    AvatarPose::finished, AvatarPose::idle,  AvatarPose::sleeping};

/// The pose of one session: needsYou while it holds a request or waits for the user,
/// otherwise its status's pose; nothing for an ended session.
[[nodiscard]] std::optional<AvatarPose> poseOf(const Session& session);

/// The pose for `sessions` at `now`. needsYou whenever a session needs the user. Otherwise
/// sleeping once `sleepAfterSeconds` have passed since the latest activity of any session
/// and `awakeSince` (when the interface started, or the user last pressed a key); else the
/// most urgent session's pose (error over working over finished over idle), idle when
/// there are none.
[[nodiscard]] AvatarPose choosePose(const std::vector<Session>& sessions, Date now, Date awakeSince,
                                    double sleepAfterSeconds);

} // namespace tidewick
