#include "presentation/AvatarPose.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(AvatarPose, FollowsTheMostUrgentSessionAndSleepsWhenNothingHappens) {
    const Date now = dateFromSeconds(1'800'000'000);
    const Date started = addSeconds(now, -3600); // the interface, an hour ago
    auto session = [&](SessionStatus status, double secondsAgo, bool holding = false) {
        Session s;
        s.key = {AgentKind::claude, "s" + std::to_string(secondsAgo)};
        s.status = status;
        s.lastActivityAt = addSeconds(now, -secondsAgo);
        if (holding)
            s.pending.push_back(PendingRequest{});
        return s;
    };
    using enum SessionStatus;
    struct Row {
        std::string name;
        std::vector<Session> sessions;
        AvatarPose pose;
    };
    const std::vector<Row> rows = {
        {"idle", {session(idle, 10)}, AvatarPose::idle},
        {"finished over idle", {session(idle, 10), session(finished, 20)}, AvatarPose::finished},
        {"working over finished",
         {session(finished, 5), session(working, 20)},
         AvatarPose::working},
        {"error over working", {session(working, 5), session(error, 20)}, AvatarPose::error},
        {"a permission request over everything",
         {session(error, 5), session(needsPermission, 20), session(working, 1)},
         AvatarPose::needsYou},
        {"a reply awaited", {session(waitingReply, 30), session(idle, 1)}, AvatarPose::needsYou},
        {"a held request whatever the status says",
         {session(working, 3, true)},
         AvatarPose::needsYou},
        {"ended sessions are over", {session(ended, 3), session(idle, 4)}, AvatarPose::idle},
        {"five quiet minutes: asleep",
         {session(finished, 301), session(error, 400)},
         AvatarPose::sleeping},
        {"a working session with no news sleeps too",
         {session(working, 900)},
         AvatarPose::sleeping},
        {"but a held request keeps it awake",
         {session(needsPermission, 4000, true)},
         AvatarPose::needsYou},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(rawValue(choosePose(row.sessions, now, started, 300)), rawValue(row.pose));
    }
    // Without sessions it is idle when the interface has just started, asleep once it has
    // been quiet for long enough; a key press (a new awakeSince) wakes it.
    EXPECT_EQ(choosePose({}, now, addSeconds(now, -1), 300), AvatarPose::idle);
    EXPECT_EQ(choosePose({}, now, started, 300), AvatarPose::sleeping);
    EXPECT_EQ(choosePose({session(idle, 4000)}, now, addSeconds(now, -2), 300), AvatarPose::idle);
}

} // namespace
} // namespace tidewick
