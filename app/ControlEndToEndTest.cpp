// End to end through the real programs: `tidewick app --headless` running in a
// temporary home, `tidewick-hook` fed each agent's payloads, and the control
// commands answering what it holds.
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::BackgroundProgram;
using testing::claudeAllowed;
using ::testing::Contains;
using ::testing::HasSubstr;
using testing::ProgramResult;

const std::string fixtures = std::string(TIDEWICK_SOURCE_DIR) + "/../shared/fixtures/claude/";
const std::string claudeSession = "d4e23369-98ea-4e04-8cd7-5fb639c89c36";
const std::string timedOutText = "No answer in Tidewick — asking in Claude Code";

std::string fixture(const std::string& name) {
    return File::read(fixtures + name + ".json");
}

class ControlEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        if (!File::exists(fixtures + "Stop.json"))
            GTEST_SKIP() << "the recorded Claude Code payloads are not at " << fixtures;
    }

    // Starts tidewick-hook with the recorded Claude Code payload `name`: "Event" or
    // "Event-Tool".
    BackgroundProgram& claude(const std::string& name, std::vector<std::string> extra = {}) {
        return run.hook("claude", name.substr(0, name.find('-')), fixture(name), std::move(extra));
    }

    // Holds a Claude Code permission request, answers it with `command`, and returns
    // the hook's output.
    std::string answered(std::vector<std::string> command) {
        BackgroundProgram& held = claude("PermissionRequest-Bash");
        EXPECT_EQ(run.waitForHeld(1).size(), 1u);
        EXPECT_TRUE(held.isRunning()) << "held until someone decides";
        (void)run.succeeded(command);
        return testing::TidewickPrograms::finished(held);
    }

    testing::TidewickPrograms run;
};

TEST_F(ControlEndToEnd, ClaudePermissionAllowedDeniedAndTheFirstDecisionWins) {
    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(answered({"allow", "d4e2"}), claudeAllowed);
    EXPECT_EQ(run.tidewick({"allow", "d4e2"}).status, 1) << "nothing is held any more";

    // Claude Code's default denial is the adapter's to test; here a message travels with it.
    const std::string denied =
        answered({"deny", "d4e", "--agent", "claude", "--message", "Use the staging database."});
    EXPECT_THAT(denied, HasSubstr(R"("behavior":"deny")"));
    EXPECT_THAT(denied, HasSubstr(R"("message":"Use the staging database.")"));

    // Exit statuses: 1 for a refusal with its sentence, 2 for a usage error.
    EXPECT_EQ(run.fails({"allow", "ffff"}, 1), "No session matches \"ffff\".\n");
    EXPECT_EQ(run.tidewick({"allow", "d4e2", "--agent", "vim"}).status, 2);
}

TEST_F(ControlEndToEnd, TheEndOfATurnAnsweredWithAReplyOrLetStop) {
    const std::string played = run.fakeSoundPlayer("pw-play");
    ASSERT_TRUE(run.startApp());
    BackgroundProgram& first = claude("Stop");
    ASSERT_EQ(run.waitForHeld(1).size(), 1u);
    // Headless, the application plays the alert's sound itself.
    EXPECT_EQ(testing::TidewickPrograms::whenWritten(played),
              File::join(run.home(), "Library/Application Support/Tidewick/Sounds/question.wav\n"));
    ProgramResult reply = run.succeeded({"reply", "d4e", "Run the tests."});
    EXPECT_EQ(reply.out, "Replied to Claude Code session d4e23369.\n");
    EXPECT_EQ(run.finished(first), "{\"decision\":\"block\",\"reason\":\"Message from the user, "
                                   "sent via Tidewick: Run the tests.\"}\n");

    BackgroundProgram& second = claude("Stop");
    run.waitForHeld(1);
    EXPECT_EQ(run.tidewick({"let-stop", "d4e"}).status, 0);
    EXPECT_EQ(run.finished(second), "") << "letting it stop says nothing";
    // A second reply finds nothing waiting and would continue the session with Claude Code,
    // but the recorded project folder is not on this machine.
    EXPECT_EQ(run.fails({"reply", "d4e", "more"}, 1),
              "Tidewick doesn't know this session's project folder, so it can't continue it.\n");
}

TEST_F(ControlEndToEnd, AnUnansweredPermissionTimesOutAndAKilledHookIsWithdrawn) {
    TidewickPaths paths(run.home());
    paths.ensureDirectories();
    File::writeAtomically(paths.settingsFile(), R"({"permissionTimeoutSeconds": 1})", 0600);
    ASSERT_TRUE(run.startApp());

    // Claude Code's time-out answer is silence: it asks in its own interface.
    EXPECT_EQ(run.finished(claude("PermissionRequest-Bash")), "");

    // A Stop waits for no time-out, so it is held until its hook process dies.
    BackgroundProgram& held = claude("Stop");
    run.waitForHeld(1);
    held.signal(SIGKILL);
    // The server looks four times a second; the bound only keeps a broken run from hanging.
    EXPECT_TRUE(testing::eventually([&] { return run.listing("pending").arrayValue()->empty(); },
                                    std::chrono::seconds(10)));
}

TEST_F(ControlEndToEnd, CursorReadOnlyCommandsPassAtOnceAndNoHoldNeverHolds) {
    ASSERT_TRUE(run.startApp());
    BackgroundProgram& risky = run.cursorShell("cursor-e2e-1", "rm -rf build");
    run.waitForHeld(1);
    EXPECT_EQ(run.finished(run.cursorShell("cursor-e2e-2", "ls -la")),
              "{\"permission\":\"allow\"}\n");
    EXPECT_THAT(run.fails({"deny", "cursor-e2e"}, 2), HasSubstr("matches 2 sessions"));
    EXPECT_EQ(run.tidewick({"deny", "cursor-e2e-1", "--message", "Not the build folder."}).status,
              0);
    const std::string denied = run.finished(risky);
    EXPECT_THAT(denied, HasSubstr(R"("permission":"deny")"));
    EXPECT_THAT(denied, HasSubstr("Not the build folder."));

    for (const char* name : {"PermissionRequest-Bash", "Stop"}) {
        EXPECT_EQ(run.finished(claude(name, {"TIDEWICK_NO_HOLD=1"})), "") << name;
        EXPECT_TRUE(run.listing("pending").arrayValue()->empty()) << name;
    }
    EXPECT_FALSE(run.timeline(claudeSession).empty()) << "recorded all the same";
}

TEST_F(ControlEndToEnd, AlwaysAllowKeepsACursorPrefixAndIsRefusedForCodex) {
    ASSERT_TRUE(run.startApp());
    BackgroundProgram& first = run.cursorShell("cursor-always", "npm test --ci");
    EXPECT_THAT(run.tidewick({"pending"}).out, HasSubstr("(always: npm test)"));
    EXPECT_EQ(run.tidewick({"allow", "cursor-always", "npm"}).status, 2) << "a rule needs --always";
    ProgramResult always = run.succeeded({"allow", "cursor-always", "--always"});
    EXPECT_EQ(always.out, "Always allowed Cursor session cursor-a: Tidewick now allows commands "
                          "starting with \"npm test\" without asking.\n");
    EXPECT_EQ(run.finished(first), "{\"permission\":\"allow\"}\n");
    // Kept: the next such command is let through at once.
    EXPECT_EQ(run.finished(run.cursorShell("cursor-always", "npm test --watch")),
              "{\"permission\":\"allow\"}\n");

    // Codex takes no lasting rule: nothing is sent, and the request is still held.
    BackgroundProgram& codex =
        run.hook("codex", "PermissionRequest",
                 R"({"session_id":"codex-always","cwd":"/w","hook_event_name":"PermissionRequest",)"
                 R"("tool_name":"Bash","tool_input":{"command":"touch /outside/marker"}})");
    run.waitForHeld(1);
    EXPECT_THAT(run.fails({"allow", "codex-always", "--always"}, 1),
                HasSubstr("Codex takes no lasting rule in a hook's answer"));
    EXPECT_EQ(run.tidewick({"allow", "codex-always"}).status, 0);
    EXPECT_EQ(run.finished(codex), claudeAllowed);

    // The headless application's line for each request names the commands that answer it.
    (void)testing::eventually(
        [&] { return run.appOutput().find("codex-al`") != std::string::npos; },
        std::chrono::seconds(20));
    const std::string printed = run.appOutput();
    EXPECT_THAT(printed,
                HasSubstr("`tidewick allow cursor-a`, `tidewick allow cursor-a --always` or"));
    EXPECT_THAT(printed,
                HasSubstr("Answer with `tidewick allow codex-al` or `tidewick deny codex-al`."));
}

TEST_F(ControlEndToEnd, OneInstanceAtATimeAndSessionsSurviveARestart) {
    EXPECT_EQ(run.fails({"sessions"}, 3),
              "Tidewick isn't running. Start it with `tidewick app`.\n");

    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(run.fails({"app", "--headless"}, 1),
              "Tidewick is already running. Quit it before starting another.\n");
    EXPECT_EQ(run.tidewick({"sessions"}).status, 0) << "the first one still answers";

    for (const char* name : {"SessionStart", "UserPromptSubmit", "PreToolUse-Bash"})
        EXPECT_EQ(run.finished(claude(name)), "") << name;
    BackgroundProgram& held = claude("PermissionRequest-Bash");
    run.waitForHeld(1);

    // Stopping answers what is held with the time-out answer and saves at once.
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
    EXPECT_EQ(run.finished(held), "");
    TidewickPaths paths(run.home());
    EXPECT_FALSE(File::exists(paths.socketPath()));
    EXPECT_FALSE(File::exists(paths.controlSocketPath()));
    JSONValue saved = JSONValue::parse(File::read(paths.sessionsFile()));
    ASSERT_EQ(saved.arrayValue()->size(), 1u);

    ASSERT_TRUE(run.startApp());
    JSONValue sessions = run.listing("sessions");
    ASSERT_EQ(sessions.arrayValue()->size(), 1u);
    // Saved as answered: with the time-out's line.
    EXPECT_EQ(*(*sessions.arrayValue())[0].get("timeline"),
              *(*saved.arrayValue())[0].get("timeline"));
    EXPECT_THAT(run.timeline(claudeSession), Contains(timedOutText));
    EXPECT_EQ(run.stopApp(), 0);
}

} // namespace
} // namespace tidewick
