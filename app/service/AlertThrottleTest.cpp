#include "service/AlertThrottle.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(AlertThrottle, AdmitsOneAlertPerSessionAndWindow) {
    const SessionKey one{AgentKind::claude, "a"};
    const SessionKey two{AgentKind::codex, "a"};
    const Date start = dateFromSeconds(1000);
    AlertThrottle throttle(3);
    EXPECT_TRUE(throttle.admit(one, start));
    EXPECT_FALSE(throttle.admit(one, addSeconds(start, 1)));
    EXPECT_FALSE(throttle.admit(one, addSeconds(start, 2.999)));
    // Another session, even of the same identifier but another agent, is not held back.
    EXPECT_TRUE(throttle.admit(two, addSeconds(start, 1)));
    EXPECT_TRUE(throttle.admit(one, addSeconds(start, 3)));
    EXPECT_FALSE(throttle.admit(one, addSeconds(start, 4)));
    // A clock set back does not silence the session.
    EXPECT_TRUE(throttle.admit(one, addSeconds(start, -100)));
    throttle.reset();
    EXPECT_TRUE(throttle.admit(one, addSeconds(start, -99)));

    AlertThrottle off(0);
    EXPECT_TRUE(off.admit(one, start));
    EXPECT_TRUE(off.admit(one, start));
}

TEST(AlertThrottle, ForgetsLongPastWindowsOfManySessions) {
    AlertThrottle throttle(1);
    const Date start = dateFromSeconds(1000);
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(throttle.admit({AgentKind::cursor, std::to_string(i)}, addSeconds(start, i)));
    // Tidying never forgets a window still open.
    EXPECT_FALSE(throttle.admit({AgentKind::cursor, "999"}, addSeconds(start, 999.5)));
}

} // namespace
} // namespace tidewick
