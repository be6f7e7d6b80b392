#include "ScreenController.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

const Date t0 = dateFromSeconds(1'800'000'000);

struct Call {
    std::string what;
    SessionKey session;
    std::optional<std::string> text;
    friend bool operator==(const Call&, const Call&) = default;
};

class RecordingActions : public UIActions {
public:
    bool answerPermission(const SessionKey& session, TidewickService::Answer answer,
                          std::optional<std::string> message) override {
        calls.push_back({answer == TidewickService::Answer::allow ? "allow" : "deny", session,
                         std::move(message)});
        return delivered;
    }
    bool reply(const SessionKey& session, std::string text) override {
        calls.push_back({"reply", session, std::move(text)});
        return delivered;
    }
    bool letStop(const SessionKey& session) override {
        calls.push_back({"letStop", session, std::nullopt});
        return delivered;
    }
    std::vector<Call> calls;
    bool delivered = true;
};

Session makeSession(std::string id, double lastActivity, std::optional<PendingKind> held = {},
                    AgentKind agent = AgentKind::claude) {
    Session session;
    session.key = {agent, std::move(id)};
    session.status = SessionStatus::working;
    session.startedAt = t0;
    session.lastActivityAt = addSeconds(t0, lastActivity);
    if (held) {
        PendingRequest request;
        request.id = UUID::random();
        request.kind = *held;
        request.title = *held == PendingKind::permission ? "Run make" : "Finished";
        request.createdAt = addSeconds(t0, lastActivity);
        request.deadline = addSeconds(request.createdAt, 300);
        session.pending.push_back(request);
        session.status = *held == PendingKind::permission ? SessionStatus::needsPermission
                                                          : SessionStatus::waitingReply;
    }
    return session;
}

class ScreenControllerTest : public ::testing::Test {
protected:
    ScreenController::Outcome press(char32_t c) { return controller.handleKey(Key::of(c), t0); }
    ScreenController::Outcome press(Key::Kind kind) {
        return controller.handleKey(Key::special(kind), t0);
    }
    void type(std::u32string_view text) {
        for (char32_t c : text)
            (void)press(c);
    }
    std::string message() {
        auto shown = controller.message(t0);
        return shown ? shown->text : "";
    }
    std::string selectedId() { return controller.selected()->key.sessionId; }

    RecordingActions actions;
    ScreenController controller{actions};
};

TEST_F(ScreenControllerTest, AllowAndDenyAnswerTheSelectedSessionsPermission) {
    controller.setSessions({makeSession("quiet", 90),
                            makeSession("asks", 10, PendingKind::permission),
                            makeSession("asks2", 20, PendingKind::permission)});
    EXPECT_EQ(selectedId(), "asks") << "the longest-waiting request is on top and selected";
    (void)press('y');
    (void)press(Key::Kind::down);
    (void)press('n');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::denyMessage);
    type(U"not on main ✋");
    (void)press(Key::Kind::backspace);
    (void)press(Key::Kind::enter);
    (void)press('n');
    type(U"x");
    (void)press(Key::Kind::escape);
    EXPECT_EQ(controller.input(), "");
    (void)press(Key::Kind::up);
    (void)press('n');
    (void)press(Key::Kind::enter);
    SessionKey asks{AgentKind::claude, "asks"}, asks2{AgentKind::claude, "asks2"};
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"allow", asks, std::nullopt},
                                                {"deny", asks2, "not on main "},
                                                {"deny", asks, std::nullopt}}))
        << "Esc sends nothing; an empty message denies without one";
    EXPECT_EQ(message(), "Denied.");

    // A session that is not asking is not answered, and the user is told so.
    (void)press(Key::Kind::end);
    EXPECT_EQ(selectedId(), "quiet");
    (void)press('y');
    (void)press('n');
    EXPECT_EQ(actions.calls.size(), 3u);
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_EQ(message(), "Claude Code isn't asking for permission here.");

    actions.delivered = false;
    (void)press(Key::Kind::home);
    (void)press('y');
    EXPECT_EQ(message(), "Not delivered: that request had already ended.");
}

TEST_F(ScreenControllerTest, ConfiguredKeysReplaceTheDefaultsAndMayTakeABuiltInLetter) {
    TidewickSettings settings;
    settings.allowKey = "a";
    settings.denyKey = "s"; // takes over "let it stop"
    controller.setSettings(settings);
    controller.setSessions({makeSession("asks", 0, PendingKind::permission)});
    (void)press('y');
    EXPECT_TRUE(actions.calls.empty()) << "the default key no longer allows";
    (void)press('a');
    (void)press('s');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::denyMessage);
    ASSERT_EQ(actions.calls.size(), 1u);
    EXPECT_EQ(actions.calls[0].what, "allow");

    for (auto [allow, deny] : std::vector<std::pair<std::string, std::string>>{
             {"", "n"}, {"yes", "n"}, {"x", "x"}, {"\t", "n"}}) {
        settings.allowKey = allow;
        settings.denyKey = deny;
        controller.setSettings(settings);
        EXPECT_EQ(controller.allowKey(), "y") << allow;
        EXPECT_EQ(controller.denyKey(), "n") << deny;
    }
    settings.allowKey = "é";
    settings.denyKey = "n";
    controller.setSettings(settings);
    EXPECT_EQ(controller.allowKey(), "é") << "one character, however many bytes";
}

TEST_F(ScreenControllerTest, ReplyLineOffersQuickRepliesOnTheNumberKeys) {
    TidewickSettings settings;
    settings.quickReplies = {"Continue working.", "Run the tests."};
    controller.setSettings(settings);
    controller.setSessions({makeSession("codex", 0, PendingKind::reply, AgentKind::codex)});
    const SessionKey codex{AgentKind::codex, "codex"};

    (void)press('r');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::reply);
    (void)press('2');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    (void)press('r');
    (void)press('7'); // no seventh quick reply: nothing is sent
    type(U"Fix 2 bugs");
    EXPECT_EQ(controller.input(), "Fix 2 bugs") << "numbers after the first character are text";
    (void)press(Key::Kind::enter);
    (void)press('r');
    (void)press(Key::Kind::enter); // an empty reply is not sent
    (void)press(Key::Kind::escape);
    (void)press('s');
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"reply", codex, "Run the tests."},
                                                {"reply", codex, "Fix 2 bugs"},
                                                {"letStop", codex, std::nullopt}}));
    EXPECT_EQ(message(), "Let Codex stop.");

    controller.setSessions({makeSession("busy", 0)});
    (void)press('r');
    (void)press('s');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_EQ(message(), "Claude Code isn't waiting for a reply.");
    EXPECT_EQ(actions.calls.size(), 3u);
}

TEST_F(ScreenControllerTest, AnOpenLineStillAnswersItsOwnSessionAfterTheListMoves) {
    controller.setSessions({makeSession("first", 10, PendingKind::permission),
                            makeSession("second", 20, PendingKind::permission)});
    (void)press('n');
    // The first is answered elsewhere and drops down the list meanwhile.
    controller.setSessions(
        {makeSession("first", 30), makeSession("second", 20, PendingKind::permission)});
    type(U"no");
    (void)press(Key::Kind::enter);
    ASSERT_EQ(actions.calls.size(), 1u);
    EXPECT_EQ(actions.calls[0].session.sessionId, "first");
}

TEST_F(ScreenControllerTest, SelectionFollowsTheTopUntilMovedThenTheSession) {
    controller.setSessions({makeSession("a", 30), makeSession("b", 20), makeSession("c", 10)});
    EXPECT_EQ(selectedId(), "a");
    controller.setSessions({makeSession("a", 30), makeSession("b", 20), makeSession("c", 40)});
    EXPECT_EQ(selectedId(), "c") << "untouched, the selection shows the top row";
    (void)press(Key::Kind::down);
    EXPECT_EQ(selectedId(), "a");
    controller.setSessions({makeSession("a", 30), makeSession("b", 50), makeSession("c", 40)});
    EXPECT_EQ(selectedId(), "a") << "once moved, it stays with the session";
    EXPECT_EQ(controller.selectedIndex(), 2u);
    controller.setSessions({makeSession("b", 50)});
    EXPECT_EQ(selectedId(), "b") << "a vanished session leaves the selection in range";
    (void)press(Key::Kind::pageDown);
    (void)press('k');
    EXPECT_EQ(selectedId(), "b");

    // After an answer the selection goes back to the top, where the next request waits.
    controller.setSessions({makeSession("x", 10, PendingKind::permission),
                            makeSession("y", 20, PendingKind::permission)});
    (void)press(Key::Kind::down);
    (void)press('y');
    controller.setSessions({makeSession("x", 10, PendingKind::permission), makeSession("y", 30)});
    EXPECT_EQ(selectedId(), "x");

    controller.setSessions({});
    EXPECT_FALSE(controller.selectedIndex());
    (void)press('y');
    (void)press(Key::Kind::down);
    EXPECT_EQ(message(), "No session is selected.");
}

TEST_F(ScreenControllerTest, QuitAsksFirstWhileRequestsAreHeld) {
    controller.setSessions({makeSession("a", 0)});
    EXPECT_EQ(press('q'), ScreenController::Outcome::quit);

    controller.setSessions({makeSession("a", 0, PendingKind::permission)});
    EXPECT_EQ(press('q'), ScreenController::Outcome::stay);
    EXPECT_EQ(controller.mode(), ScreenController::Mode::confirmQuit);
    EXPECT_EQ(press('n'), ScreenController::Outcome::stay);
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
    EXPECT_TRUE(actions.calls.empty()) << "the answer to the question is not a denial";
    (void)press('q');
    EXPECT_EQ(press('y'), ScreenController::Outcome::quit);

    (void)press('?');
    EXPECT_EQ(controller.mode(), ScreenController::Mode::help);
    EXPECT_EQ(press('q'), ScreenController::Outcome::stay) << "any key only closes the keys";
    EXPECT_EQ(controller.mode(), ScreenController::Mode::browse);
}

TEST_F(ScreenControllerTest, GlowLastsWhileTheAlertedRequestIsHeldAndMessagesExpire) {
    Session asks = makeSession("asks", 0, PendingKind::permission);
    controller.setSessions({asks});
    controller.glowFor(UUID::random());
    EXPECT_FALSE(controller.isGlowing()) << "an unknown request does not light the frame";
    controller.glowFor(asks.pending[0].id);
    EXPECT_TRUE(controller.isGlowing());
    EXPECT_EQ(controller.heldCount(), 1u);
    controller.setSessions({makeSession("asks", 5)});
    EXPECT_FALSE(controller.isGlowing());
    EXPECT_EQ(controller.heldCount(), 0u);

    // A permission request gone at its deadline means the agent asks in its own window;
    // one answered before it says nothing of the kind.
    Session timesOut = makeSession("late", 0, PendingKind::permission, AgentKind::codex);
    controller.setSessions({timesOut}, t0);
    controller.setSessions({makeSession("late", 0, std::nullopt, AgentKind::codex)},
                           addSeconds(t0, 100));
    EXPECT_FALSE(controller.message(addSeconds(t0, 100)));
    controller.setSessions({timesOut}, t0);
    controller.setSessions({makeSession("late", 0, std::nullopt, AgentKind::codex)},
                           addSeconds(t0, 300));
    ASSERT_TRUE(controller.message(addSeconds(t0, 300)));
    EXPECT_EQ(controller.message(addSeconds(t0, 300))->text,
              "Codex: No answer in Tidewick — asking in Codex");

    controller.showMessage("hello", ScreenController::Tone::info, t0);
    EXPECT_TRUE(controller.message(addSeconds(t0, ScreenController::messageSeconds - 0.1)));
    EXPECT_FALSE(controller.message(addSeconds(t0, ScreenController::messageSeconds)));
}

} // namespace
} // namespace tidewick
