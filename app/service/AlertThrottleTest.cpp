#include "service/AlertThrottle.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

Alert alertFor(const SessionKey& session, std::string title = "Run ls") {
    Alert alert;
    alert.session = session;
    alert.title = std::move(title);
    return alert;
}

TEST(AlertThrottle, AdmitsOneAlertPerSessionAndWindowAndKeepsTheRestForItsEnd) {
    using Kind = AlertThrottle::Admission::Kind;
    const SessionKey one{AgentKind::claude, "a"};
    const Date start = dateFromSeconds(1000);
    AlertThrottle throttle(3);
    EXPECT_EQ(throttle.admit(alertFor(one), start).kind, Kind::now);
    const auto kept = throttle.admit(alertFor(one, "second"), addSeconds(start, 2));
    EXPECT_EQ(kept.kind, Kind::kept);
    EXPECT_DOUBLE_EQ(kept.waitSeconds, 1.0);
    EXPECT_EQ(throttle.admit(alertFor(one, "third"), addSeconds(start, 2.5)).kind, Kind::joined);
    // Another session, even with the same identifier from another agent, is not held back.
    EXPECT_EQ(throttle.admit(alertFor({AgentKind::codex, "a"}), addSeconds(start, 1)).kind,
              Kind::now);

    // What the window kept comes out once, oldest first, and starts the next window.
    const std::vector<Alert> out = throttle.takeKept(one, addSeconds(start, 3));
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].title, "second");
    EXPECT_EQ(out[1].title, "third");
    EXPECT_TRUE(throttle.takeKept(one, addSeconds(start, 3)).empty());
    EXPECT_EQ(throttle.admit(alertFor(one), addSeconds(start, 5)).kind, Kind::kept);
    EXPECT_EQ(throttle.admit(alertFor(one), addSeconds(start, 6)).kind, Kind::now);
    // A clock set back does not silence the session.
    EXPECT_EQ(throttle.admit(alertFor(one), addSeconds(start, -100)).kind, Kind::now);
    // Tidying a large table never forgets a window still open.
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(throttle.admit(alertFor({AgentKind::cursor, std::to_string(i)}), addSeconds(start, i))
                      .kind,
                  Kind::now);
    EXPECT_EQ(throttle.admit(alertFor({AgentKind::cursor, "999"}), addSeconds(start, 1001)).kind,
              Kind::kept);
}

} // namespace
} // namespace tidewick
