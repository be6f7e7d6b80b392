#include "service/AlertThrottle.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(AlertThrottle, AdmitsOneAlertPerSessionAndWindow) {
    const SessionKey one{AgentKind::claude, "a"};
    const Date start = dateFromSeconds(1000);
    AlertThrottle throttle(3);
    EXPECT_TRUE(throttle.admit(one, start));
    EXPECT_FALSE(throttle.admit(one, addSeconds(start, 2.999)));
    // Another session, even with the same identifier from another agent, is not held back.
    EXPECT_TRUE(throttle.admit({AgentKind::codex, "a"}, addSeconds(start, 1)));
    EXPECT_TRUE(throttle.admit(one, addSeconds(start, 3)));
    // A clock set back does not silence the session.
    EXPECT_TRUE(throttle.admit(one, addSeconds(start, -100)));
    // Tidying a large table never forgets a window still open.
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(throttle.admit({AgentKind::cursor, std::to_string(i)}, addSeconds(start, i)));
    EXPECT_FALSE(throttle.admit({AgentKind::cursor, "999"}, addSeconds(start, 1001)));
}

} // namespace
} // namespace tidewick
