#include "Screen.h"

#include "UITestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

std::vector<std::string> ids(const std::vector<Session>& sessions) {
    std::vector<std::string> result;
    for (const Session& s : sessions)
        result.push_back(s.key.sessionId);
    return result;
}

TEST(Screen, SessionsNeedingYouComeFirstLongestWaitingFirstEndedLast) {
    Session ended = makeSession("ended", 90, AgentKind::cursor);
    ended.status = SessionStatus::ended;
    Session idle = makeSession("idle", 10, AgentKind::cursor);
    idle.status = SessionStatus::idle;
    const Session askedLate = holding(makeSession("askedLate", 80),
                                      heldRequest(PendingKind::permission, "Run ls", "ls", 80));
    const Session askedEarly =
        holding(makeSession("askedEarly", 99, AgentKind::codex),
                heldRequest(PendingKind::reply, "Finished", std::nullopt, 20, 3600));
    EXPECT_EQ(ids(Screen::ordered({makeSession("working", 50, AgentKind::codex), ended, idle,
                                   askedLate, askedEarly})),
              (std::vector<std::string>{"askedEarly", "askedLate", "working", "idle", "ended"}));

    // Equal times fall back to the key, so the order never depends on the input order.
    EXPECT_EQ(ids(Screen::ordered({makeSession("b", 5), makeSession("a", 5)})),
              ids(Screen::ordered({makeSession("a", 5), makeSession("b", 5)})));
}

TEST(Screen, RowCarriesTheListColumns) {
    Session session = holding(makeSession("s", 0, AgentKind::antigravity),
                              heldRequest(PendingKind::permission, "Run make", "make"));
    session.projectPath = "/home/ana/src/webshop/";
    session.currentAction = "Run make\ntest";
    session.pending.push_back(heldRequest(PendingKind::reply, "Finished"));

    SessionRow row = Screen::row(session, addSeconds(t0, 125));
    EXPECT_EQ(row.agent, "Antigravity");
    EXPECT_EQ(row.project, "webshop") << "a trailing slash does not hide the folder's name";
    EXPECT_EQ(row.action, "Run make test");
    EXPECT_EQ(row.held, 2u);
    EXPECT_EQ(row.sinceActivity, "2m");

    session.projectPath.reset();
    EXPECT_EQ(Screen::row(session, t0).project, "—");
}

TEST(Screen, HeldRequestsSayWhatTheyWaitForAndWhatHappensAfterTheDeadline) {
    Session session = holding(
        makeSession("s", 0, AgentKind::codex),
        heldRequest(PendingKind::permission, "Run rm", "rm -rf build\n\nClean the build folder"));
    session.pending.push_back(heldRequest(PendingKind::reply, "Finished", std::nullopt, 0, 3600));

    SessionDetail live = Screen::detail(session, addSeconds(t0, 0.5), 10);
    ASSERT_EQ(live.held.size(), 2u);
    EXPECT_EQ(live.held[0].countdown, "5:00") << "rounded up: 299.5 s left";
    EXPECT_EQ(live.held[0].detail, "rm -rf build\n\nClean the build folder");
    EXPECT_EQ(live.held[1].waiting, "Waiting for your reply");
    EXPECT_EQ(live.held[1].countdown, "1:00:00");
    EXPECT_FALSE(live.held[1].risk) << "replies are not commands";

    SessionDetail late = Screen::detail(session, addSeconds(t0, 300), 10);
    EXPECT_TRUE(late.held[0].expired);
    EXPECT_EQ(late.held[0].waiting, "No answer in Tidewick — asking in Codex");
    EXPECT_EQ(late.held[0].countdown, "");
    EXPECT_FALSE(late.held[1].expired);

    SessionDetail over = Screen::detail(session, addSeconds(t0, 4000), 10);
    EXPECT_EQ(over.held[1].waiting, "No reply — it stopped");

    // Risk looks only at the command, not at the agent's description of it.
    session.pending[0].detail = "ls build\n\nCheck before running sudo make";
    EXPECT_FALSE(Screen::detail(session, t0, 10).held[0].risk);
    session.pending[0].detail = "sudo ls\nbuild";
    EXPECT_TRUE(Screen::detail(session, t0, 10).held[0].risk) << "one line feed is the command's";
}

TEST(Screen, TimelineKeepsTheMostRecentEntriesOnOneLine) {
    Session session = makeSession("s");
    std::vector<TimelineItem> items;
    for (int i = 0; i < 30; ++i)
        items.push_back({UUID::random(), addSeconds(t0, i), TimelineKind::tool,
                         "Step " + std::to_string(i), std::nullopt});
    items.push_back({UUID::random(), addSeconds(t0, 31), TimelineKind::shell, "Run make", "make"});
    items.push_back({UUID::random(), addSeconds(t0, 31), TimelineKind::shell, "Ran", "make\ntest"});
    session.timeline = Timeline(items);
    SessionDetail detail = Screen::detail(session, t0, 4);
    ASSERT_EQ(detail.timeline.size(), 4u);
    EXPECT_EQ(detail.timeline[0].text, "Step 28");
    EXPECT_EQ(detail.timeline[2].text, "Run make")
        << "a detail the text already names is not repeated";
    EXPECT_EQ(detail.timeline[3].text, "Ran — make test");

    // A tool call that started and finished is one line with its outcome; the permission
    // entry between them is its own line, and a call not yet finished shows none.
    session.timeline = Timeline({
        {UUID::random(), t0, TimelineKind::shell, "Run npm test", "npm test"},
        {UUID::random(), t0, TimelineKind::permission, "Run npm test", "npm test"},
        {UUID::random(), t0, TimelineKind::shell, "Run npm test", "npm test"},
        {UUID::random(), t0, TimelineKind::edit, "Edit a.py", std::nullopt},
        {UUID::random(), t0, TimelineKind::edit, "Edit a.py failed", "no such file"},
        {UUID::random(), t0, TimelineKind::shell, "Run npm test", "npm test"},
    });
    detail = Screen::detail(session, t0, 10);
    ASSERT_EQ(detail.timeline.size(), 4u);
    const std::pair<TimelineKind, ToolOutcome> expected[] = {
        {TimelineKind::shell, ToolOutcome::finished},
        {TimelineKind::permission, ToolOutcome::none},
        {TimelineKind::edit, ToolOutcome::failed},
        {TimelineKind::shell, ToolOutcome::none}};
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(detail.timeline[i].kind, expected[i].first);
        EXPECT_EQ(detail.timeline[i].outcome, expected[i].second);
    }
}

TEST(Screen, AgesAndCountdowns) {
    using Rows = std::vector<std::pair<double, std::string>>;
    for (const auto& [seconds, age] :
         Rows{{-4, "0s"}, {59.9, "59s"}, {60, "1m"}, {3599, "59m"}, {7200, "2h"}, {259205, "3d"}})
        EXPECT_EQ(Screen::age(seconds), age) << seconds;
    for (const auto& [seconds, left] :
         Rows{{0.2, "0:01"}, {59, "0:59"}, {3599.5, "1:00:00"}, {3661, "1:01:01"}, {-1, "0:00"}})
        EXPECT_EQ(Screen::countdown(seconds), left) << seconds;
}

} // namespace
} // namespace tidewick
