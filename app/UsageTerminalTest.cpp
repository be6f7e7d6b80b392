// The usage limits in `tidewick app` on a real terminal: the header shows the
// figures Claude Code's status line recorded through the real hook command, the
// application raises its 90 % alert once, and u opens the whole report.
#include "TidewickPrograms.h"
#include "TmuxTestSupport.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

TEST(UsageTerminal, TheHeaderShowsTheRecordedLimitsAndUOpensThemAll) {
    if (!testing::Tmux::isInstalled())
        GTEST_SKIP() << "tmux is not installed (Debian package tmux)";
    ASSERT_TRUE(testing::TidewickPrograms::built());
    testing::TidewickPrograms run;
    testing::Tmux terminal;
    run.claudeStatusLine(7800, 4 * 86400);

    ASSERT_TRUE(terminal.start("ui", run.inTerminal("ui")));
    EXPECT_TRUE(terminal.waitForAll("ui", {"Claude Code  5h █████░ 93% 2h ", "7d ██░░░░ 41% 3d 23h"}));
    // The application's alert for the window past 90 %, on the status line.
    EXPECT_TRUE(terminal.waitForAll("ui", {"Claude Code: 5h limit 93% used. Resets in 2h"}));

    terminal.keys("ui", {"u"});
    EXPECT_TRUE(
        terminal.waitForAll("ui", {"Usage limits", "Claude Code · as of", "resets in 3d 23h",
                                   "No figures from Codex yet: they come from its session records",
                                   "Tokens by session", "u back"}));
    terminal.keys("ui", {"u"});
    EXPECT_TRUE(terminal.waitForGone("ui", "Usage limits"));
    terminal.keys("ui", {"q"});
    EXPECT_TRUE(terminal.waitForEnd("ui"));
}

} // namespace
} // namespace tidewick
