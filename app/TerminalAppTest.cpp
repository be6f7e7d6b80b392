// `tidewick app` on a real terminal: the interface runs in a tmux pane, held
// requests come from the real hook command, and keys sent to the pane answer
// them.
#include "TidewickPrograms.h"
#include "TmuxTestSupport.h"

#include "foundation/TidewickPaths.h"

#include <gmock/gmock.h>

#include <regex>

namespace tidewick {
namespace {

using testing::claudeAllowed;
using testing::claudeAsks;
using testing::claudeAsksToRun;
using ::testing::HasSubstr;

class TerminalApp : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::Tmux::isInstalled())
            GTEST_SKIP() << "tmux is not installed (Debian package tmux): the terminal "
                            "interface tests need it";
        ASSERT_TRUE(testing::TidewickPrograms::built());
        // A sound player of our own, first on the path: it notes what it was asked to play.
        played = run.fakeSoundPlayer("paplay");
        // No session bus: desktop notifications stay off and nothing leaves the test.
        const std::string path = "PATH='" + File::join(run.home(), "players") + ":/usr/bin:/bin' ";
        ASSERT_TRUE(terminal.start("ui", run.inTerminal("ui", path + environment, arguments)));
        ASSERT_TRUE(waitForScreen({"0 sessions"}));
    }

    bool waitForScreen(std::initializer_list<std::string> parts) {
        const bool shown = terminal.waitForAll("ui", parts);
        if (!shown)
            ADD_FAILURE() << "standard error: " << (File::exists(errors) ? File::read(errors) : "");
        return shown;
    }

    /// What the application is started with: more variables, and its arguments.
    std::string environment;
    std::string arguments = "app";
    testing::TidewickPrograms run;
    const std::string errors = File::join(run.home(), "ui.err");
    std::string played;
    testing::Tmux terminal;
};

TEST_F(TerminalApp, HeldRequestsAreShownAndAnsweredWithKeys) {
    auto& prompt = run.hook("claude", "UserPromptSubmit",
                            R"({"hook_event_name":"UserPromptSubmit","session_id":"s-api",)"
                            R"("cwd":"/home/ana/src/api","prompt":"Add the signup checks"})");
    EXPECT_EQ(run.finished(prompt), "");
    ASSERT_TRUE(waitForScreen({"On it", "1 working", "(•_• )"}));
    terminal.keys("ui", {"Down"}); // the user reads this session

    // A request of another session: the avatar looks up and a banner points to it.
    auto& claude = run.hook("claude", "PermissionRequest",
                            claudeAsksToRun("s-web", "rm -rf build && npm run build"));
    ASSERT_TRUE(waitForScreen({"● Claude Code · webshop needs permission — Tab to go there",
                               "Needs you!", "( °o° )", "1 needs you · 1 working"}));
    // In 256 colours, what needs the user is amber (xterm colour 214).
    EXPECT_NE(terminal.styledScreen("ui").find("38;5;214m"), std::string::npos);
    // The alert's sound went to the player on the path.
    EXPECT_EQ(testing::TidewickPrograms::whenWritten(played),
              File::join(run.home(), "Library/Application Support/Tidewick/Sounds/knock.wav\n"));

    terminal.keys("ui", {"Tab"});
    ASSERT_TRUE(terminal.waitForGone("ui", "Tab to go there"));
    ASSERT_TRUE(waitForScreen({"● Run rm -rf build && npm run build", "1 held"}));
    terminal.keys("ui", {"y"});
    EXPECT_EQ(run.finished(claude), claudeAllowed);
    EXPECT_TRUE(waitForScreen({"Allowed: Run rm -rf build", "On it", "2 working"}));
    EXPECT_TRUE(terminal.waitForGone("ui", "Needs you!"));

    // Nothing is held now: q quits at once.
    terminal.keys("ui", {"q"});
    EXPECT_TRUE(terminal.waitForEnd("ui"));
}

/// How the interface is started: its variables and arguments, and whether it attaches to a
/// headless application (which then answers the agent).
struct Start {
    const char* environment;
    const char* arguments;
    bool attached;
};
// How a start reads in test names, which must not change from one build to the next.
void PrintTo(const Start& start, std::ostream* out) {
    *out << start.environment << (*start.environment ? " " : "") << start.arguments
         << (start.attached ? ", attached" : "");
}
class TerminalAppStarted : public TerminalApp, public ::testing::WithParamInterface<Start> {
protected:
    void SetUp() override {
        environment = GetParam().environment;
        arguments = GetParam().arguments;
        if (GetParam().attached && testing::TidewickPrograms::built()) {
            ASSERT_TRUE(run.startApp()); // the macro's own if-else wants the braces
        }
        TerminalApp::SetUp();
    }
};

/// Asked for no colour, by flag or by NO_COLOR.
class TerminalAppWithoutColour : public TerminalAppStarted {};

TEST_P(TerminalAppWithoutColour, StatusesStandOutByWeightAlone) {
    auto& claude = run.hook("claude", "PermissionRequest", claudeAsksToRun("s-web", "npm publish"));
    ASSERT_TRUE(waitForScreen({"Needs permission", "Needs you!"}));
    // Bold still marks what matters; no colour is set anywhere (39 and 49 only return to the
    // terminal's own).
    const std::string styled = terminal.styledScreen("ui");
    EXPECT_NE(styled.find("\x1b[1m"), std::string::npos) << styled;
    const std::regex colour("\x1b\\[([0-9]*;)*(3[0-8]|4[0-8]|9[0-7]|10[0-7])[;m]");
    EXPECT_FALSE(std::regex_search(styled, colour)) << styled;
    terminal.keys("ui", {"y"});
    EXPECT_NE(run.finished(claude), "");
}

INSTANTIATE_TEST_SUITE_P(ByFlagOrVariable, TerminalAppWithoutColour,
                         ::testing::Values(Start{"", "app --no-color", false},
                                           Start{"NO_COLOR=1", "app", false}));

/// Standing alone, or attached to a headless application.
class TerminalAppIn : public TerminalAppStarted {};

TEST_P(TerminalAppIn, AlwaysAllowAndQuestionsAreAnsweredWithKeys) {
    // The offered rule is edited on the line before it is sent. The answers' exact shape is
    // the service's to test; here: what was typed and chosen reaches the agent.
    auto& always = run.hook(
        "claude", "PermissionRequest",
        claudeAsks("s-always", R"("tool_name":"Bash","tool_input":{"command":"npm test -- --ci"},)"
                               R"("permission_suggestions":[])"));
    ASSERT_TRUE(waitForScreen({"Run npm test -- --ci", "a always allow"}));
    terminal.keys("ui", {"a"});
    ASSERT_TRUE(waitForScreen({"Enter sends, Esc cancels: npm test:*"}));
    terminal.keys("ui", {"BSpace", "BSpace", "BSpace", "BSpace", "BSpace", "BSpace"});
    terminal.keys("ui", {"-l", "run lint:*"});
    terminal.keys("ui", {"Enter"});
    EXPECT_THAT(run.finished(always),
                HasSubstr(R"("rules":[{"toolName":"Bash","ruleContent":"npm run lint:*"}])"));

    // Two questions: a number chooses the first; the second is ticked with the cursor.
    const std::string asked =
        R"({"questions":[{"question":"Which colour?","header":"Colour","multiSelect":false,)"
        R"("options":[{"label":"Red","description":"A warm red"},{"label":"Blue","description":"A calm blue"}]},)"
        R"({"question":"Which features?","header":"Features","multiSelect":true,)"
        R"("options":[{"label":"Search","description":"s"},{"label":"Sync","description":"t"}]}]})";
    auto& question =
        run.hook("claude", "PermissionRequest",
                 claudeAsks("s-ask", R"("tool_name":"AskUserQuestion","tool_input":)" + asked));
    ASSERT_TRUE(waitForScreen({"Claude Code is asking you a question", "1–2 choose · y answer"}));
    terminal.keys("ui", {"2"});
    terminal.keys("ui", {"1", "Down", "Space", "Enter"});
    EXPECT_THAT(
        run.finished(question),
        HasSubstr(R"("answers":{"Which colour?":"Blue","Which features?":"Search, Sync"})"));
}

INSTANTIATE_TEST_SUITE_P(StandaloneOrAttached, TerminalAppIn,
                         ::testing::Values(Start{"", "app", false}, Start{"", "app", true}));

TEST_F(TerminalApp, TranscriptOpensWithTAndHWritesAHandoff) {
    const std::string transcript = run.recordedClaudeSession();
    ASSERT_TRUE(waitForScreen({"1 session", "proj"}));

    terminal.keys("ui", {"t"});
    ASSERT_TRUE(waitForScreen({"Transcript · Claude Code session bc2ae821", "clean the build",
                               "✓ Run rm -rf build && echo removed-ok  removed-ok", "All done."}));
    terminal.keys("ui", {"h"});
    ASSERT_TRUE(waitForScreen({"Handoff written to"}));
    const std::string handoffs = TidewickPaths(run.home()).handoffsDirectory();
    const std::vector<std::string> written = File::listFolder(handoffs);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_THAT(File::read(File::join(handoffs, written[0])),
                ::testing::HasSubstr("claude --resume " + run.recordedClaudeId));

    // Reading it recorded how far: the whole file.
    const JSONValue sessions = run.listing("sessions");
    EXPECT_EQ(*sessions.arrayValue()->at(0).get("transcriptStep"),
              JSONValue::integer(static_cast<std::int64_t>(File::read(transcript).size())));
}

// The header shows what Claude Code's status line recorded through the real hook
// command, the application raises its 90 % alert once, and u opens the whole report.
TEST_F(TerminalApp, TheHeaderShowsTheRecordedLimitsAndUOpensThemAll) {
    run.claudeStatusLine(7800, 4 * 86400);
    EXPECT_TRUE(waitForScreen({"Claude Code  5h █████░ 93% 2h ", "7d ██░░░░ 41% 3d 23h"}));
    // The application's alert for the window past 90 %, on the status line.
    EXPECT_TRUE(waitForScreen({"Claude Code: 5h limit 93% used. Resets in 2h"}));

    terminal.keys("ui", {"u"});
    EXPECT_TRUE(waitForScreen({"Usage limits", "Claude Code · as of", "resets in 3d 23h",
                               "No figures from Codex yet: they come from its session records",
                               "Tokens by session", "u back"}));
}

} // namespace
} // namespace tidewick
