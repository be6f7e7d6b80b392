#include "Layout.h"

#include "DisplayText.h"
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

void expectExactSize(const Frame& frame, int width, int height) {
    ASSERT_EQ(static_cast<int>(frame.lines.size()), height);
    for (int row = 0; row < height; ++row)
        EXPECT_EQ(DisplayText::width(frame.text(row)), width)
            << "row " << row << ": " << frame.text(row);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class LayoutTest : public ::testing::Test {
protected:
    RecordingActions actions;
    ScreenController controller{actions};
};

TEST_F(LayoutTest, HeldRequestIsShownWithCommandRiskAndCountdownIn80x24) {
    controller.setSessions({makeSession("api", 30, AgentKind::codex),
                            asking("rm -rf build && make"),
                            makeSession("notes", 20, AgentKind::cursor)});
    const Frame frame = layoutScreen(controller, addSeconds(t0, 9), 80, 24);
    expectExactSize(frame, 80, 24);
    const std::string screen = frame.text();
    EXPECT_TRUE(frame.text(0).starts_with("┌─ Tidewick 3 sessions")) << frame.text(0);
    EXPECT_TRUE(contains(frame.text(0), " 1 held ")) << "the chip counts held requests";
    // The session needing you is first.
    for (const char* part : {"▸ Claude Code", "Needs permission", "webshop"})
        EXPECT_TRUE(contains(frame.text(2), part)) << part;
    for (const char* part :
         {"● Run rm -rf build && make", "Waiting for you · 4:51", "⚠ Risk: deletes files for good",
          "y allow · a always allow · n deny", "I will clean the build folder", "Ran make"})
        EXPECT_TRUE(contains(screen, part)) << part;
    EXPECT_TRUE(contains(frame.text(23), "y allow")) << "key hints on the status line";
    EXPECT_FALSE(frame.cursor);

    // Glowing changes only the frame's style.
    EXPECT_EQ(frame.lines[0][0].style, Style::frame);
    controller.glowFor(controller.selected()->pending[0].id);
    const Frame glowing = layoutScreen(controller, addSeconds(t0, 9), 80, 24);
    EXPECT_EQ(glowing.lines[0][0].style, Style::glow);
    EXPECT_EQ(glowing.lines[22][0].style, Style::glow);
    EXPECT_EQ(glowing.text(), screen);

    LayoutOptions noChip;
    noChip.alertChip = false;
    EXPECT_FALSE(contains(layoutScreen(controller, t0, 80, 24, noChip).text(0), "held"));
}

TEST_F(LayoutTest, QuestionsShowTheirOptionsAndAlwaysAllowWhatItKeeps) {
    Session session = asking("make");
    session.pending[0].questions = {{"Which features?", "Features", {{"Search", "Full text"}, {"Sync", {}}}, true}};
    controller.setSessions({session});
    EXPECT_TRUE(contains(layoutScreen(controller, t0, 80, 24).text(), "1–2 choose · y answer · n deny"));
    (void)controller.handleKey(Key::of('2'), t0);
    (void)controller.handleKey(Key::special(Key::Kind::down), t0);
    const Frame form = layoutScreen(controller, t0, 80, 24);
    for (const char* part : {"Question 1 of 1 · Features", "Which features?", "   [ ] 1 Search — Full text",
                             " › [x] 2 Sync", "Numbers or space tick, Enter sends"})
        EXPECT_TRUE(contains(form.text(), part)) << part << "\n" << form.text();
    EXPECT_TRUE(form.cursor);

    session = asking("make");
    session.pending[0].alwaysAllow = AlwaysAllowOffer{AlwaysAllowOffer::Kind::agentRule, "Bash", "make:*"};
    controller.setSessions({session});
    (void)controller.handleKey(Key::special(Key::Kind::escape), t0);
    (void)controller.handleKey(Key::of('a'), t0);
    const Frame always = layoutScreen(controller, t0, 100, 30);
    for (const char* part : {"Always allow", "Claude Code keeps the rule below for Bash",
                             "still asks when such a command redirects output",
                             "Always allow — Enter sends, Esc cancels: make:*"})
        EXPECT_TRUE(contains(always.text(), part)) << part << "\n" << always.text();
}

TEST_F(LayoutTest, ScalesUpAndRefusesTooSmallTerminals) {
    Session session = asking(std::string(300, 'x'));
    controller.setSessions({session});
    for (auto [width, height] : std::vector<std::pair<int, int>>{
             {80, 24}, {100, 30}, {200, 60}, {minimumWidth, minimumHeight}})
        expectExactSize(layoutScreen(controller, t0, width, height), width, height);

    const Frame wide = layoutScreen(controller, t0, 200, 60);
    EXPECT_TRUE(contains(wide.text(), std::string(150, 'x'))) << "a wide terminal shows more";

    const Frame tiny = layoutScreen(controller, t0, 39, 11);
    expectExactSize(tiny, 39, 11);
    EXPECT_TRUE(contains(tiny.text(1), "Make the terminal at least 40×12."));
}

TEST_F(LayoutTest, EmptyOrTwoHundredSessionsTheListFitsTheScreen) {
    const std::string empty = layoutScreen(controller, t0, 80, 24).text();
    EXPECT_TRUE(contains(empty, "No sessions yet.") && contains(empty, "0 sessions")) << empty;

    // Two hundred sessions scroll to keep the selection visible.
    std::vector<Session> many;
    for (int i = 0; i < 200; ++i)
        many.push_back(makeSession("s" + std::to_string(1000 + i), -i, AgentKind::cursor));
    controller.setSessions(many);
    for (int i = 0; i < 150; ++i)
        (void)controller.handleKey(Key::special(Key::Kind::down), t0);
    const Frame frame = layoutScreen(controller, t0, 80, 24);
    expectExactSize(frame, 80, 24);
    EXPECT_TRUE(contains(frame.text(), "▸ Cursor      s1150"));
    EXPECT_TRUE(contains(frame.text(0), "200 sessions"));
}

TEST_F(LayoutTest, PausedFrameSettingsViewAndForgetQuestion) {
    RecordingControls controls;
    controller.setControls(&controls);
    controller.setSessions({makeSession("web", 0)});
    TidewickSettings settings;
    settings.gating.paused = true;
    settings.quietMode = true;
    controller.setSettings(settings);
    EXPECT_TRUE(contains(layoutScreen(controller, t0, 80, 24).text(0), " Paused ")) << "the frame";

    (void)controller.handleKey(Key::of(','), t0);
    const Frame view = layoutScreen(controller, t0, 80, 24);
    EXPECT_TRUE(contains(view.text(1), "Settings"));
    EXPECT_TRUE(contains(view.text(2), "▸ permissionTimeoutSeconds"));
    EXPECT_TRUE(contains(view.text(), "gating.paused                     [on]  true"));
    EXPECT_TRUE(contains(view.text(), "quietMode                         [on]  true"));
    EXPECT_TRUE(contains(view.text(), "How long a permission request is held"));
    EXPECT_TRUE(contains(view.text(23), "Enter switch"));
    (void)controller.handleKey(Key::special(Key::Kind::escape), t0);

    (void)controller.handleKey(Key::of('x'), t0);
    EXPECT_TRUE(contains(layoutScreen(controller, t0, 80, 24).text(23),
                         "Forget Claude Code session web? It leaves the list"));
}

TEST_F(LayoutTest, DenyAndReplyLinesHelpAndQuitQuestion) {
    controller.setSessions({asking("git push --force")});
    (void)controller.handleKey(Key::of('n'), t0);
    (void)controller.handleKey(Key::of(U'é'), t0);
    Frame deny = layoutScreen(controller, t0, 80, 24);
    EXPECT_TRUE(deny.text(23).starts_with("Deny — message for the agent")) << deny.text(23);
    ASSERT_TRUE(deny.cursor);
    EXPECT_EQ(deny.cursor->first, 23);
    EXPECT_EQ(deny.text(23).find("é"), deny.text(23).rfind("é"));
    EXPECT_EQ(DisplayText::width(deny.text(23).substr(0, deny.text(23).find("é"))) + 1,
              deny.cursor->second)
        << "the cursor stands after what was typed";
    (void)controller.handleKey(Key::special(Key::Kind::escape), t0);

    (void)controller.handleKey(Key::of('?'), t0);
    const std::string help = layoutScreen(controller, t0, 80, 24).text();
    EXPECT_TRUE(contains(help, "allow the selected session's permission request"));
    EXPECT_TRUE(contains(help, "4           Explain what you changed."));
    (void)controller.handleKey(Key::of(' '), t0);

    (void)controller.handleKey(Key::of('q'), t0);
    EXPECT_TRUE(
        contains(layoutScreen(controller, t0, 80, 24).text(23), "1 request is held. Quit anyway?"));
    (void)controller.handleKey(Key::of('n'), t0);

    // The end of a turn: a reply line listing the quick replies.
    controller.setSessions(
        {holding(makeSession("api", 0, AgentKind::codex),
                 heldRequest(PendingKind::reply, "Finished the turn", std::nullopt, 0, 3600))});
    const std::string before = layoutScreen(controller, t0, 80, 24).text();
    for (const char* part : {"Waiting for your reply · 1:00:00", "r reply · s let it stop"})
        EXPECT_TRUE(contains(before, part)) << part;
    (void)controller.handleKey(Key::of('r'), t0);
    const Frame reply = layoutScreen(controller, t0, 80, 24);
    for (const char* part : {"1 Continue working.", "2 Run the tests."})
        EXPECT_TRUE(contains(reply.text(), part)) << part;
    EXPECT_TRUE(reply.text(23).starts_with("Reply (Enter sends, Esc cancels): "));
    (void)controller.handleKey(Key::special(Key::Kind::escape), t0);

    // A notice stays on the status line, ahead of messages, until it is cleared.
    controller.showMessage("Allowed: Run ls", ScreenController::Tone::success, t0);
    controller.setNotice("Tidewick isn't running any more.");
    EXPECT_EQ(layoutScreen(controller, t0, 80, 24).text(23).find("Tidewick isn't running"), 0u);
    controller.setNotice(std::nullopt);
    EXPECT_EQ(layoutScreen(controller, t0, 80, 24).text(23).find("Allowed: Run ls"), 0u);

    ScreenController attached(actions, ScreenController::Quitting::leavesRequestsHeld);
    (void)attached.handleKey(Key::of('?'), t0);
    EXPECT_TRUE(contains(layoutScreen(attached, t0, 80, 24).text(),
                         "close this window; Tidewick keeps running and holding requests"));
}

TEST_F(LayoutTest, TheHeaderShowsTheAvatarAndTheBannerTakesTheTopLine) {
    LayoutOptions options;
    options.avatar = &AvatarDefinition::builtIn();
    options.awakeSince = t0;
    Session api = makeSession("api", 5, AgentKind::codex);
    api.currentAction = "Run npm test";
    controller.setSessions({api, asking("rm -rf build")});
    const Date now = addSeconds(t0, 9);
    const Frame frame = layoutScreen(controller, now, 80, 24, options);
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
    const Frame asleep = layoutScreen(controller, addSeconds(t0, 400), 80, 24, options);
    EXPECT_TRUE(contains(asleep.text(1), "Dozing"));
    EXPECT_TRUE(contains(asleep.text(2), "( -_- ) Z"));
    EXPECT_TRUE(contains(asleep.text(3), "1 working")) << "what the sessions say";

    // Off, or too little room: the list starts right under the top line.
    for (auto [avatar, height] : {std::pair{options.avatar, 18}, {nullptr, 24}}) {
        LayoutOptions other = options;
        other.avatar = avatar;
        EXPECT_TRUE(contains(layoutScreen(controller, now, 80, height, other).text(1), "AGENT"));
        EXPECT_FALSE(layoutAvatar(controller, now, 80, height, other));
    }

    // A request held while another session is in view: the banner is the top line.
    (void)controller.handleKey(Key::special(Key::Kind::down), t0);
    controller.setSessions({makeSession("api", 5, AgentKind::codex), asking("make")});
    const Frame banner = layoutScreen(controller, now, 80, 24, options);
    expectExactSize(banner, 80, 24);
    EXPECT_TRUE(
        banner.text(0).starts_with(" ● Claude Code · webshop needs permission — Tab to go there  "))
        << banner.text(0);
    EXPECT_EQ(banner.lines[0][0].style, Style::banner);
}

} // namespace
} // namespace tidewick
