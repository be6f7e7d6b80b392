#include "presentation/AvatarPose.h"

#include <algorithm>

namespace tidewick {

std::optional<AvatarPose> poseOf(const Session& session) {
    if (session.status == SessionStatus::ended)
        return std::nullopt;
    if (!session.pending.empty() || needsYou(session.status))
        return AvatarPose::needsYou;
    switch (session.status) {
    case SessionStatus::error:
        return AvatarPose::error;
    case SessionStatus::working:
        return AvatarPose::working;
    case SessionStatus::finished:
        return AvatarPose::finished;
    default:
        return AvatarPose::idle;
    }
}

AvatarPose choosePose(const std::vector<Session>& sessions, Date now, Date awakeSince,
                      double sleepAfterSeconds) {
    AvatarPose pose = AvatarPose::idle;
    Date latest = awakeSince;
    for (const Session& session : sessions) {
        latest = std::max(latest, session.lastActivityAt);
        if (const std::optional<AvatarPose> own = poseOf(session))
            pose = std::min(pose, *own); // the enumeration runs from most urgent down
    }
    if (pose == AvatarPose::needsYou)
        return pose;
    // A session marked working with no news for this long is as quiet as an idle one:
    // agents do not always say when they stop.
    if (addSeconds(latest, sleepAfterSeconds) <= now)
        return AvatarPose::sleeping;
    return pose;
}

} // namespace tidewick
