// The usage limits on screen: the header's bars over the session list, and the
// view the key u opens with every window and the sessions' token use.
#include "UsageAccess.h"

#include "UITestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

AgentUsage claudeUsage() {
    AgentUsage usage;
    usage.agent = AgentKind::claude;
    usage.reportedAt = addSeconds(t0, -120);
    usage.windows = {{"five_hour", 93.4, 300, addSeconds(t0, 7800)},
                     {"seven_day", 71, 10080, addSeconds(t0, 3 * 86400)},
                     {"seven_day_opus", 20, 10080, addSeconds(t0, -5)}};
    return usage;
}

AgentUsage codexWithout() {
    AgentUsage usage;
    usage.agent = AgentKind::codex;
    usage.missing = "No figures from Codex yet.";
    return usage;
}

class FakeUsage : public UsageAccess {
public:
    std::vector<AgentUsage> agents(const std::vector<Session>&) override {
        return {claudeUsage(), codexWithout()};
    }
    UsageReport report(const std::vector<Session>& sessions, Date now) override {
        UsageReport report{now, agents(sessions), {}, 0};
        for (const Session& session : sessions)
            report.sessions.push_back(
                {session.key, session.projectPath, {}, {1200, 0, 0, 34, 0}, false});
        return report;
    }
};

/// The styles of the segments whose text contains `part`, in order.
std::vector<Style> stylesOf(const FrameLine& line, const std::string& part) {
    std::vector<Style> styles;
    for (const Segment& segment : line)
        if (segment.text.find(part) != std::string::npos)
            styles.push_back(segment.style);
    return styles;
}

using UsageViewTest = UITest;

TEST_F(UsageViewTest, TheHeaderShowsEachWindowColouredByLevelAndUOpensTheWholeReport) {
    FakeUsage usage;
    controller.setSessions({makeSession("webshop"), makeSession("api", 20, AgentKind::codex)});

    // No figures at all: no header line.
    controller.setUsage({codexWithout()});
    EXPECT_TRUE(contains(screen(100, 24).text(1), "AGENT"));

    controller.setUsage(usage.agents({}));
    const Frame frame = screen(100, 24);
    const std::string header = frame.text(1);
    EXPECT_TRUE(contains(
        header, "Claude Code  5h █████░ 93% 2h 10m  7d ████░░ 71% 3d  7d opus ░░░░░░ reset"))
        << header;
    EXPECT_FALSE(contains(header, "Codex")) << "an agent without figures is left out";
    struct Row {
        std::string part;
        Style style;
    };
    for (const Row& row :
         {Row{"93%", Style::error}, Row{"71%", Style::warning}, Row{"reset", Style::dim}}) {
        SCOPED_TRACE(row.part);
        EXPECT_EQ(stylesOf(frame.lines.at(1), row.part), std::vector<Style>{row.style});
    }
    // A narrow terminal shows the windows that fit whole.
    const std::string narrow = screen(50, 24).text(1);
    EXPECT_TRUE(contains(narrow, "5h █████░ 93% 2h 10m")) << narrow;
    EXPECT_FALSE(contains(narrow, "71")) << narrow;

    // Without access the key says so; with it the view lists everything.
    type(U"u");
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_EQ(message(), "Usage figures are not available here.");
    controller.setUsageAccess(&usage);
    type(U"u");
    ASSERT_EQ(controller.mode(), ScreenController::Mode::usage);
    expectShows(screen(100, 24).text(),
                {"Usage limits", "Claude Code · as of 2m ago",
                 "5h ██████████████████░░ 93%  resets in 2h 10m",
                 "7d opus ░░░░░░░░░░░░░░░░░░░░ reset", "Codex", "No figures from Codex yet.",
                 "Tokens by session", "webshop", "1,234 tokens (1,200 in, 34 out)",
                 "↑↓ scroll  u back"});
    // Scrolling stops at the last line; u goes back to the sessions.
    type(keys(std::u32string(50, down), up));
    EXPECT_EQ(controller.usageScroll(), 8U); // ten lines: down stops at 9, up goes to 8
    type(U"u");
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_FALSE(controller.usageReport());
}

} // namespace
} // namespace tidewick
