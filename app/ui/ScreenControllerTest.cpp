#include "ScreenController.h"

#include "DisplayText.h"
#include "UITestSupport.h"

#include <gtest/gtest.h>

#include <array>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using Call = UICall;
using Mode = ScreenController::Mode;
using ScreenControllerTest = UITest;

/// A session holding a request of `kind` since its last activity.
Session asking(std::string id, double lastActivity, PendingKind kind = PendingKind::permission,
               AgentKind agent = AgentKind::claude) {
    return holding(makeSession(std::move(id), lastActivity, agent),
                   heldRequest(kind, kind == PendingKind::permission ? "Run make" : "Finished",
                               std::nullopt, lastActivity));
}

TEST_F(ScreenControllerTest, AllowAndDenyAnswerTheSelectedSessionsPermission) {
    controller.setSessions({makeSession("quiet", 90), asking("asks", 10), asking("asks2", 20)});
    EXPECT_EQ(selectedId(), "asks") << "the longest-waiting request is on top and selected";
    type({U'y', down, U'n'});
    type(U"not on main ✋");
    const Frame deny = screen();
    const std::string line = deny.text(23);
    EXPECT_TRUE(line.starts_with("Deny — message for the agent")) << line;
    EXPECT_EQ(line.find("✋"), line.rfind("✋"));
    const std::string typed = line.substr(0, line.find("✋") + std::string_view("✋").size());
    EXPECT_EQ(deny.cursor, std::pair(23, DisplayText::width(typed)))
        << "the cursor stands after what was typed, the wide hand two columns";
    type({backspace, enter, U'n', U'x', escape});
    EXPECT_EQ(controller.input(), "");
    type({up, U'n', enter});
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"allow", claude("asks"), std::nullopt},
                                                {"deny", claude("asks2"), "not on main "},
                                                {"deny", claude("asks"), std::nullopt}}))
        << "Esc sends nothing; an empty message denies without one";
    EXPECT_EQ(message(), "Denied.");

    // A session that is not asking is not answered, and the user is told so.
    type({end});
    EXPECT_EQ(selectedId(), "quiet");
    type({U'y', U'n'});
    EXPECT_EQ(actions.calls.size(), 3u);
    EXPECT_EQ(controller.mode(), Mode::browse);
    EXPECT_EQ(message(),
              "Claude Code has no permission request waiting, so the decision was not delivered.");

    actions.delivered = false;
    type({home, U'y'});
    EXPECT_EQ(message(), "Not delivered: that request had already ended.");

    // An open line still answers its own session after the list has moved: the first is
    // answered elsewhere and drops down meanwhile.
    actions.calls.clear();
    controller.setSessions({asking("first", 10), asking("second", 20)});
    type({U'n'});
    controller.setSessions({makeSession("first", 30), asking("second", 20)});
    type({U'n', U'o', enter});
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"deny", claude("first"), "no"}}));
}

TEST_F(ScreenControllerTest, AlwaysAllowOffersTheRuleAndQuestionsAreAnsweredByNumber) {
    Session shell = asking("shell", 10);
    shell.pending[0].alwaysAllow =
        AlwaysAllowOffer{AlwaysAllowOffer::Kind::agentRule, "Bash", "make:*"};
    controller.setSessions({shell});
    // The offered rule is on the line, ready to change or to send as it is, under what the
    // agent keeps.
    type({U'a'});
    expectShows(screen(100, 30).text(),
                {"Always allow", "Claude Code keeps the rule below for Bash",
                 "still asks when such a command redirects output",
                 "Always allow — Enter sends, Esc cancels: make:*"});
    type(keys(backspace, backspace, U" test:*", enter, U'a', escape));
    EXPECT_EQ(controller.alwaysOffer(), std::nullopt);
    // Emptied, it is still sent (and refused by the service); with no offer, an empty line
    // asks for the agent's own suggestions.
    type(keys(U'a', std::u32string(6, backspace), enter));
    controller.setSessions({asking("bare", 10)});
    type({U'a'});
    EXPECT_EQ(controller.input(), "");
    type({enter});
    EXPECT_EQ(message(), "Always allowed: done");
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"allowAlways", claude("shell"), "make test:*"},
                                                {"allowAlways", claude("shell"), ""},
                                                {"allowAlways", claude("bare"), std::nullopt}}));

    // Codex takes no lasting rule: the key says so and sends nothing.
    actions.calls.clear();
    controller.setSessions({asking("codex", 10, PendingKind::permission, AgentKind::codex)});
    type({U'a'});
    EXPECT_EQ(controller.mode(), Mode::browse);
    EXPECT_NE(message().find("Codex takes no lasting rule"), std::string::npos) << message();

    // A question: the allow key opens the form, a number chooses at once, and the form
    // shows the options ticked and the one under the cursor.
    Session asks = asking("asks", 10);
    asks.pending[0].questions = {
        {"Which colour?", {}, {{"Red", {}}, {"Blue", {}}}, false},
        {"Which features?", "Features", {{"Search", "Full text"}, {"Sync", {}}}, true}};
    controller.setSessions({asks});
    EXPECT_TRUE(contains(screen().text(), "1–2 choose · y answer · n deny"));
    type({U'a'});
    EXPECT_EQ(controller.mode(), Mode::browse) << "questions are not always allowed";
    type(keys(U'y', U"22"));
    const Frame form = screen();
    expectShows(form.text(),
                {"Question 2 of 2 · Features", "Which features?", "   [ ] 1 Search — Full text",
                 " › [x] 2 Sync", "Numbers or space tick, Enter sends"});
    EXPECT_TRUE(form.cursor);
    type(keys(U'1', enter, U"1Both, please", enter));
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"answer", claude("asks"), "Blue|Search, Sync"},
                                                {"answer", claude("asks"), "Red|Both, please"}}));
    EXPECT_EQ(controller.mode(), Mode::browse);
    EXPECT_EQ(controller.questionForm(), nullptr);
    EXPECT_EQ(message(), "Answered: done");
}

TEST_F(ScreenControllerTest, ConfiguredKeysReplaceTheDefaultsAndMayTakeABuiltInLetter) {
    TidewickSettings settings;
    settings.allowKey = "a";
    settings.denyKey = "s"; // takes over "let it stop"
    controller.setSettings(settings);
    controller.setSessions({asking("asks", 0)});
    type({U'y'});
    EXPECT_TRUE(actions.calls.empty()) << "the default key no longer allows";
    type({U'a', U's'});
    EXPECT_EQ(controller.mode(), Mode::denyMessage);
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"allow", claude("asks"), {}}}));

    for (auto [allow, deny, shownAllow] :
         std::vector<std::array<std::string, 3>>{{"", "n", "y"},
                                                 {"yes", "n", "y"},
                                                 {"x", "x", "y"},
                                                 {"\t", "n", "y"},
                                                 {"é", "n", "é"}}) {
        settings.allowKey = allow;
        settings.denyKey = deny;
        controller.setSettings(settings);
        EXPECT_EQ(controller.allowKey() + controller.denyKey(), shownAllow + "n") << allow << deny;
    }
}

TEST_F(ScreenControllerTest, ReplyLineOffersQuickRepliesOnTheNumberKeys) {
    TidewickSettings settings;
    settings.quickReplies = {"Continue working.", "Run the tests."};
    controller.setSettings(settings);
    controller.setSessions({asking("codex", 0, PendingKind::reply, AgentKind::codex)});
    const SessionKey codex{AgentKind::codex, "codex"};
    expectShows(screen().text(), {"Waiting for your reply · 5:00", "r reply · s let it stop"});

    type({U'r'});
    const Frame line = screen();
    expectShows(line.text(), {"1 Continue working.", "2 Run the tests."});
    EXPECT_TRUE(line.text(23).starts_with("Reply (Enter sends, Esc cancels): "));
    type({U'2'});
    type(U"r7Fix 2 bugs"); // no seventh quick reply: nothing is sent
    EXPECT_EQ(controller.input(), "Fix 2 bugs") << "numbers after the first character are text";
    type({enter, U'r', enter, escape, U's'}); // an empty reply is not sent
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"reply", codex, "Run the tests."},
                                                {"reply", codex, "Fix 2 bugs"},
                                                {"letStop", codex, std::nullopt}}));
    EXPECT_EQ(message(), "Let Codex stop.");

    controller.setSessions({makeSession("busy", 0)});
    type({U'r', U's'});
    EXPECT_EQ(message(), "Claude Code isn't waiting for a reply, so nothing was delivered.");
    EXPECT_EQ(actions.calls.size(), 3u);
}

TEST_F(ScreenControllerTest, SelectionFollowsTheTopUntilMovedThenTheSession) {
    controller.setSessions({makeSession("a", 30), makeSession("b", 20), makeSession("c", 10)});
    EXPECT_EQ(selectedId(), "a");
    controller.setSessions({makeSession("a", 30), makeSession("b", 20), makeSession("c", 40)});
    EXPECT_EQ(selectedId(), "c") << "untouched, the selection shows the top row";
    type({down});
    EXPECT_EQ(selectedId(), "a");
    controller.setSessions({makeSession("a", 30), makeSession("b", 50), makeSession("c", 40)});
    EXPECT_EQ(selectedId(), "a") << "once moved, it stays with the session";
    EXPECT_EQ(controller.selectedIndex(), 2u);
    controller.setSessions({makeSession("b", 50)});
    EXPECT_EQ(selectedId(), "b") << "a vanished session leaves the selection in range";
    type({pageDown, U'k'});
    EXPECT_EQ(selectedId(), "b");

    // After an answer the selection goes back to the top, where the next request waits.
    controller.setSessions({asking("x", 10), asking("y", 20)});
    type({down, U'y'});
    controller.setSessions({asking("x", 10), makeSession("y", 30)});
    EXPECT_EQ(selectedId(), "x");

    controller.setSessions({});
    EXPECT_FALSE(controller.selectedIndex());
    type({U'y', down});
    EXPECT_EQ(message(), "No session is selected.");
}

TEST_F(ScreenControllerTest, PauseForgetAndSettingsKeysAskTheApplication) {
    controller.setSessions({makeSession("old", 0)});
    type(U"p");
    EXPECT_EQ(message(), "Pausing is not available here.");
    controller.setControls(&actions);
    type(U"pp");
    EXPECT_FALSE(controller.settings().gating.paused);
    type(U"xn");
    EXPECT_EQ(message(), "Kept.");
    type(U"x");
    EXPECT_TRUE(contains(screen().text(23), "Forget Claude Code session old? It leaves the list"));
    type(U"y");

    // The frame says when alerts are paused; the settings view shows each value with its
    // toggle and explanation, switches toggles and says how to change the rest.
    TidewickSettings paused;
    paused.gating.paused = paused.quietMode = true;
    controller.setSettings(paused);
    EXPECT_TRUE(contains(screen().text(0), " Paused "));
    type(U",");
    ASSERT_NE(controller.settingsView(), nullptr);
    // Once the message of forgetting has gone, the status line tells the keys.
    const Frame view = screen(80, 24, addSeconds(t0, ScreenController::messageSeconds));
    EXPECT_TRUE(contains(view.text(1), "Settings"));
    EXPECT_TRUE(contains(view.text(2), "▸ permissionTimeoutSeconds"));
    expectShows(view.text(), {"gating.paused                     [on]  true",
                              "quietMode                         [on]  true",
                              "How long a permission request is held"});
    EXPECT_TRUE(contains(view.text(23), "Enter switch"));
    type({enter});
    EXPECT_EQ(message(), "Change permissionTimeoutSeconds with `tidewick settings set "
                         "permissionTimeoutSeconds VALUE`.");
    type({down, U'j', U'j', enter, end, enter, up, up, up, enter, up, U' ', escape});
    EXPECT_EQ(controller.settingsView(), nullptr);
    const std::vector<Call> expected = {
        {"pause", {}, std::nullopt},
        {"resume", {}, std::nullopt},
        {"forget", {AgentKind::claude, "old"}, std::nullopt},
        {"setting", {}, "gating.gateCommands.cursor=false"},
        {"setting", {}, "checkForUpdates=true"},
    };
    EXPECT_EQ(actions.calls, expected);
    EXPECT_EQ(message(), "Change launchAtLogin with `tidewick settings set launchAtLogin VALUE`.")
        << "it installs a service: the command line sets it";
    // A sound goes round to the next one, and the last one to none.
    type(keys(U',', std::u32string(13, U'j'), enter, down, down, enter, escape));
    EXPECT_EQ(std::vector<Call>(actions.calls.end() - 2, actions.calls.end()),
              (std::vector<Call>{{"setting", {}, "alertSounds.finished=buzz"},
                                 {"setting", {}, "alertSounds.usageLimit=none"}}));

    // A refusal is shown as a warning and changes nothing shown: still paused.
    actions.result = ControlResult::refused("Tidewick couldn't read its settings.");
    type(U"p");
    EXPECT_TRUE(controller.settings().gating.paused);
    EXPECT_EQ(controller.message(t0)->tone, ScreenController::Tone::warning);
}

TEST_F(ScreenControllerTest, QuitAsksFirstWhileRequestsAreHeld) {
    // With nothing held q quits at once: the terminal test presses it so.
    controller.setSessions({asking("a", 0)});
    EXPECT_EQ(press('q'), ScreenController::Outcome::stay);
    EXPECT_TRUE(contains(screen().text(23), "1 request is held. Quit anyway?"));
    EXPECT_EQ(press('n'), ScreenController::Outcome::stay);
    EXPECT_EQ(controller.mode(), Mode::browse);
    EXPECT_TRUE(actions.calls.empty()) << "the answer to the question is not a denial";
    type({U'q'});
    EXPECT_EQ(press('y'), ScreenController::Outcome::quit);

    type({U'?'});
    expectShows(screen().text(), {"allow the selected session's permission request",
                                  "4           Explain what you changed."});
    EXPECT_EQ(press('q'), ScreenController::Outcome::stay) << "any key only closes the keys";
    EXPECT_EQ(controller.mode(), Mode::browse);

    // An interface attached to an application elsewhere leaves its requests held: no question.
    ScreenController attached(actions, ScreenController::Quitting::leavesRequestsHeld);
    attached.setSessions({asking("a", 0)});
    EXPECT_EQ(attached.handleKey(Key::of('q'), t0), ScreenController::Outcome::quit);
    (void)attached.handleKey(Key::of('?'), t0);
    EXPECT_TRUE(contains(layoutScreen(attached, t0, 80, 24).text(),
                         "close this window; Tidewick keeps running and holding requests"));
}

TEST_F(ScreenControllerTest, ABannerAnnouncesRequestsHeldOutOfViewAndTabGoesThere) {
    auto banner = [&] {
        auto shown = controller.banner();
        return shown ? shown->text : "";
    };
    const Session quiet = makeSession("quiet", 90);
    Session held = asking("held", 10);
    controller.setSessions({quiet, held});
    EXPECT_EQ(banner(), "") << "what was held before the interface started is no news";
    controller.setSessions({quiet, held, asking("queued", 15)});
    EXPECT_EQ(banner(), "") << "left to itself the selection shows each request in turn";
    type({end}); // reading the quiet session

    const Session webshop = asking("webshop", 20);
    Session api = asking("api", 30, PendingKind::reply, AgentKind::codex);
    api.projectPath.reset();
    controller.setSessions({quiet, held, webshop});
    EXPECT_EQ(banner(), "Claude Code · webshop needs permission — Tab to go there");
    const Frame top = screen();
    expectExactSize(top, 80, 24);
    EXPECT_TRUE(top.text(0).starts_with(" ● " + banner() + "  ")) << top.text(0);
    EXPECT_EQ(top.lines[0][0].style, Style::banner);
    controller.setSessions({quiet, held, webshop, api});
    EXPECT_EQ(banner(), "Codex is waiting for your reply (+1 more) — Tab to go there");
    EXPECT_EQ(selectedId(), "quiet") << "the banner never moves the selection by itself";

    type({tab});
    EXPECT_EQ(selectedId(), "api");
    EXPECT_EQ(banner(), "Claude Code · webshop needs permission — Tab to go there");

    // While a line is typed keys keep going to it; Tab leaves it for the banner's session
    // and the line waits for its own request to be answered again.
    type(keys(home, U"nnot yet"));
    const Session late = asking("late", 40);
    controller.setSessions({quiet, held, webshop, api, late});
    EXPECT_EQ(banner(), "Claude Code · late needs permission (+1 more) — Tab to go there");
    type(U"!");
    EXPECT_EQ(controller.input(), "not yet!");
    type({tab});
    EXPECT_EQ(selectedId(), "late");
    EXPECT_EQ(message(), "What you typed for Claude Code is kept until you answer it.");
    type({home, U'n'});
    EXPECT_EQ(selectedId(), "held");
    EXPECT_EQ(controller.input(), "not yet!");
    type({enter});
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"deny", claude("held"), "not yet!"}}));

    // The answer brings the top row into view, webshop's: its banner has done its job.
    controller.setSessions({quiet, webshop, api, late});
    EXPECT_EQ(banner(), "");
    // An answer given elsewhere ends a banner, and so does selecting its session by hand.
    type({end});
    controller.setSessions({quiet, webshop, api, late, asking("other", 60)});
    EXPECT_EQ(banner(), "Claude Code · other needs permission — Tab to go there");
    controller.setSessions({quiet, webshop, api, late, makeSession("other", 70)});
    EXPECT_EQ(banner(), "");
    controller.setSessions({quiet, webshop, api, late, asking("last", 80)});
    ASSERT_NE(banner(), "");
    type({up});
    EXPECT_EQ(selectedId(), "last");
    EXPECT_EQ(banner(), "");
    EXPECT_EQ(controller.lastKeyAt(), t0);
}

TEST_F(ScreenControllerTest, GlowLastsWhileTheAlertedRequestIsHeldAndMessagesExpire) {
    Session asks = asking("asks", 0);
    controller.setSessions({asks});
    controller.glowFor(UUID::random());
    EXPECT_FALSE(controller.isGlowing()) << "an unknown request does not light the frame";
    controller.glowFor(asks.pending[0].id);
    EXPECT_TRUE(controller.isGlowing() && controller.heldCount() == 1);
    controller.setSessions({makeSession("asks", 5)});
    EXPECT_FALSE(controller.isGlowing() || controller.heldCount() != 0);

    // A permission request gone at its deadline means the agent asks in its own window;
    // one answered before it says nothing of the kind.
    const Session timesOut = asking("late", 0, PendingKind::permission, AgentKind::codex);
    for (double goneAt : {100.0, 300.0}) {
        const Date when = addSeconds(t0, goneAt);
        controller.setSessions({timesOut}, t0);
        controller.setSessions({makeSession("late", 0, AgentKind::codex)}, when);
        auto shown = controller.message(when);
        EXPECT_EQ(shown ? shown->text : "",
                  goneAt < 300 ? "" : "Codex: No answer in Tidewick — asking in Codex");
    }

    controller.showMessage("hello", ScreenController::Tone::info, t0);
    EXPECT_TRUE(controller.message(addSeconds(t0, ScreenController::messageSeconds - 0.1)));
    EXPECT_FALSE(controller.message(addSeconds(t0, ScreenController::messageSeconds)));

    // A notice stays on the status line, ahead of messages, until it is cleared.
    controller.setNotice("Tidewick isn't running any more.");
    EXPECT_TRUE(screen().text(23).starts_with("Tidewick isn't running")) << screen().text(23);
    controller.setNotice(std::nullopt);
    EXPECT_TRUE(screen().text(23).starts_with("hello")) << screen().text(23);
}

TEST_F(ScreenControllerTest, ContinueEndAndGoToAskFirstAndSayWhatHappened) {
    Session finished = makeSession("done", 3);
    finished.status = SessionStatus::finished;
    Session ended = makeSession("gone", 2);
    ended.status = SessionStatus::ended;
    ended.tmuxPane = "%4";
    ended.tmuxSocket = "/tmp/tmux-1/default";
    ended.hostApp = "kitty";
    Session busy = makeSession("busy", 1);
    const SessionKey done = finished.key;

    // A session at work is neither replied to nor continued.
    controller.setSessions({busy});
    type(U"r");
    EXPECT_EQ(message(), "Claude Code is still working on this session: wait for its turn to "
                         "end, or end it first.");
    type(U"g");
    EXPECT_EQ(message(), "Tidewick doesn't know where this Claude Code session runs.");

    // A reply to a session holding nothing starts its agent once confirmed.
    controller.setSessions({finished});
    type(keys(U"rgo on", enter));
    EXPECT_EQ(controller.mode(), Mode::confirmAction);
    EXPECT_EQ(controller.question(), "Start Claude Code to continue this session with your reply?");
    type(U"n");
    EXPECT_TRUE(actions.calls.empty());
    type(U"r1y");
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"continue", done, "Continue working."}}));
    EXPECT_EQ(message(), "continue said");

    // Ending asks too; an ended session is not ended again.
    actions.calls.clear();
    type(U"ey");
    EXPECT_EQ(actions.calls, (std::vector<Call>{{"end", done, std::nullopt}}));
    controller.setSessions({ended});
    type(U"e");
    EXPECT_EQ(message(), "That Claude Code session has already ended.");

    // Going to the agent: its pane when the switch works, else where it runs.
    std::vector<std::string> switched;
    bool canSwitch = false;
    controller.setPaneSwitch([&](const std::string& socket, const std::string& pane) {
        switched.push_back(socket + " " + pane);
        return canSwitch;
    });
    type(U"g");
    EXPECT_EQ(message(), "Claude Code runs in tmux pane %4 (kitty).");
    canSwitch = true;
    controller.showMessage("", ScreenController::Tone::info, t0);
    type(U"g");
    EXPECT_EQ(switched, (std::vector<std::string>(2, "/tmp/tmux-1/default %4")));
    EXPECT_EQ(message(), "");
}

} // namespace
} // namespace tidewick
