#include "Layout.h"

#include "UITestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

Session asking(std::string command) {
    Session session = holding(makeSession("webshop"),
                              heldRequest(PendingKind::permission, "Run " + command, command));
    session.currentAction = "Run " + command;
    session.lastMessage = "I will clean the build folder and rebuild.";
    session.timeline =
        Timeline({{UUID::random(), t0, TimelineKind::shell, "Ran make", std::nullopt}});
    return session;
}

using LayoutTest = UITest;

TEST_F(LayoutTest, HeldRequestIsShownWithCommandRiskAndCountdownIn80x24) {
    controller.setSessions({makeSession("api", 30, AgentKind::codex),
                            asking("rm -rf build && make"),
                            makeSession("notes", 20, AgentKind::cursor)});
    const Frame frame = screen(80, 24, addSeconds(t0, 9));
    expectExactSize(frame, 80, 24);
    const std::string shown = frame.text();
    EXPECT_TRUE(frame.text(0).starts_with("┌─ Tidewick 3 sessions")) << frame.text(0);
    EXPECT_TRUE(contains(frame.text(0), " 1 held ")) << "the chip counts held requests";
    // The session needing you is first.
    expectShows(frame.text(2), {"▸ Claude Code", "Needs permission", "webshop"});
    expectShows(shown, {"● Run rm -rf build && make", "Waiting for you · 4:51",
                        "⚠ Risk: deletes files for good", "y allow · a always allow · n deny",
                        "I will clean the build folder", "Ran make"});
    EXPECT_TRUE(contains(frame.text(23), "y allow")) << "key hints on the status line";
    EXPECT_FALSE(frame.cursor);

    // Glowing changes only the frame's style.
    EXPECT_EQ(frame.lines[0][0].style, Style::frame);
    controller.glowFor(controller.selected()->pending[0].id);
    const Frame glowing = screen(80, 24, addSeconds(t0, 9));
    EXPECT_EQ(glowing.lines[0][0].style, Style::glow);
    EXPECT_EQ(glowing.lines[22][0].style, Style::glow);
    EXPECT_EQ(glowing.text(), shown);
    LayoutOptions noChip;
    noChip.alertChip = false;
    EXPECT_FALSE(contains(screen(80, 24, t0, noChip).text(0), "held"));
}

TEST_F(LayoutTest, ScalesUpAndRefusesTooSmallTerminals) {
    controller.setSessions({asking(std::string(300, 'x'))});
    for (auto [width, height] : std::vector<std::pair<int, int>>{
             {80, 24}, {100, 30}, {200, 60}, {minimumWidth, minimumHeight}, {39, 11}})
        expectExactSize(screen(width, height), width, height);
    EXPECT_TRUE(contains(screen(200, 60).text(), std::string(150, 'x')))
        << "a wide terminal shows more";
    EXPECT_TRUE(contains(screen(39, 11).text(1), "Make the terminal at least 40×12."));
}

TEST_F(LayoutTest, EmptyOrTwoHundredSessionsTheListFitsTheScreen) {
    expectShows(screen().text(), {"No sessions yet.", "0 sessions"});

    // Two hundred sessions scroll to keep the selection visible.
    std::vector<Session> many;
    for (int i = 0; i < 200; ++i)
        many.push_back(makeSession("s" + std::to_string(1000 + i), -i, AgentKind::cursor));
    controller.setSessions(many);
    type(std::u32string(150, down));
    const Frame frame = screen();
    expectExactSize(frame, 80, 24);
    EXPECT_TRUE(contains(frame.text(), "▸ Cursor      s1150"));
    EXPECT_TRUE(contains(frame.text(0), "200 sessions"));
}

TEST_F(LayoutTest, TheHeaderShowsTheAvatarAwakeOrAsleep) {
    LayoutOptions options;
    options.avatar = &AvatarDefinition::builtIn();
    options.awakeSince = t0;
    Session api = makeSession("api", 5, AgentKind::codex);
    api.currentAction = "Run npm test";
    controller.setSessions({api, asking("rm -rf build")});
    const Date now = addSeconds(t0, 9);
    const Frame frame = screen(80, 24, now, options);
    expectExactSize(frame, 80, 24);
    const auto& figure = options.avatar->frameAt(AvatarPose::needsYou, now);
    EXPECT_TRUE(contains(frame.text(1), figure[0] + "   Needs you!")) << frame.text(1);
    EXPECT_TRUE(contains(frame.text(2), "Claude Code · webshop — Run rm -rf build"));
    EXPECT_TRUE(contains(frame.text(3), "1 needs you · 1 working")) << frame.text(3);
    EXPECT_TRUE(contains(frame.text(4), "AGENT"));
    EXPECT_EQ(frame.lines[1][1].style, Style::needsPermission);

    // The animation redraws exactly the figure's cells of the full screen.
    const std::optional<AvatarCells> cells = layoutAvatar(controller, now, 80, 24, options);
    ASSERT_TRUE(cells);
    EXPECT_EQ(cells->pose, AvatarPose::needsYou);
    ASSERT_EQ(cells->lines.size(), 3u);
    for (std::size_t row = 0; row < cells->lines.size(); ++row) {
        std::string drawn;
        for (const Segment& segment : cells->lines[row])
            drawn += segment.text;
        EXPECT_TRUE(frame.text(cells->row + static_cast<int>(row)).starts_with("│ " + drawn));
    }

    // Quiet for longer than the avatar stays awake: it sleeps and says nothing else.
    controller.setSessions({makeSession("api", 5, AgentKind::codex)});
    const Frame asleep = screen(80, 24, addSeconds(t0, 400), options);
    EXPECT_TRUE(contains(asleep.text(1), "Dozing"));
    EXPECT_TRUE(contains(asleep.text(2), "( -_- ) Z"));
    EXPECT_TRUE(contains(asleep.text(3), "1 working")) << "what the sessions say";

    // Off, or too little room: the list starts right under the top line.
    for (auto [avatar, height] : {std::pair{options.avatar, 18}, {nullptr, 24}}) {
        LayoutOptions other = options;
        other.avatar = avatar;
        EXPECT_TRUE(contains(screen(80, height, now, other).text(1), "AGENT"));
        EXPECT_FALSE(layoutAvatar(controller, now, 80, height, other));
    }
}

} // namespace
} // namespace tidewick
