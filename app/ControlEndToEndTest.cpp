// End to end through the real programs: `tidewick app --headless` running in a
// temporary home, `tidewick-hook` fed each agent's payloads, and the control
// commands answering what it holds.
#include "testing/BackgroundProgram.h"
#include "testing/ProgramRun.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::BackgroundProgram;
using testing::ProgramResult;
using testing::runProgram;

const std::string binaryDir = TIDEWICK_BINARY_DIR;
const std::string fixtures = std::string(TIDEWICK_SOURCE_DIR) + "/../shared/fixtures/claude/";
const std::string claudeSession = "d4e23369-98ea-4e04-8cd7-5fb639c89c36";

std::string fixture(const std::string& name) {
    return File::read(fixtures + name + ".json");
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class ControlEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        if (!File::isExecutableFile(binaryDir + "/bin/tidewick-hook"))
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        if (!File::exists(fixtures + "Stop.json"))
            GTEST_SKIP() << "the recorded Claude Code payloads are not at " << fixtures;
    }

    void TearDown() override {
        hooks.clear();
        if (app && app->isRunning())
            (void)stopApp();
    }

    std::vector<std::string> environment(std::vector<std::string> extra = {}) const {
        std::vector<std::string> entries = {"TIDEWICK_HOME=" + home.path(), "HOME=" + home.path(),
                                            "PATH=/usr/bin:/bin"};
        entries.insert(entries.end(), extra.begin(), extra.end());
        return entries;
    }

    std::string scratch(const std::string& name) {
        return File::join(home.path(), name + "-" + std::to_string(++programs));
    }

    // Starts the application and waits until it says both sockets listen.
    void startApp() {
        app = std::make_unique<BackgroundProgram>(
            std::vector<std::string>{binaryDir + "/bin/tidewick", "app", "--headless"},
            environment(), "", scratch("app"));
        for (auto deadline = std::chrono::steady_clock::now() + 10s;
             std::chrono::steady_clock::now() < deadline && app->isRunning();
             std::this_thread::sleep_for(10ms))
            if (contains(app->out(), "Tidewick is running."))
                return;
        FAIL() << "the application did not start: " << app->out() << app->err();
    }

    // Stops it with SIGTERM as a service manager would; its exit status.
    int stopApp() {
        app->signal(SIGTERM);
        auto status = app->waitFor(20s);
        EXPECT_TRUE(status) << "the application did not stop";
        return status.value_or(-1);
    }

    ProgramResult tidewick(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), binaryDir + "/bin/tidewick");
        return runProgram(arguments, environment(), {}, {}, 30s);
    }

    BackgroundProgram& hook(const std::string& agent, const std::string& event,
                            const std::string& payload, std::vector<std::string> extra = {}) {
        hooks.push_back(std::make_unique<BackgroundProgram>(
            std::vector<std::string>{binaryDir + "/bin/tidewick-hook", "--agent", agent, "--event",
                                     event},
            environment(std::move(extra)), payload, scratch("hook")));
        return *hooks.back();
    }

    JSONValue listing(const std::string& command) {
        ProgramResult result = tidewick({command, "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        return result.status == 0 ? JSONValue::parse(result.out) : JSONValue(JSONValue::Array{});
    }

    // Waits (up to 10 s) until exactly `count` requests are held; the held requests.
    JSONValue::Array waitForHeld(std::size_t count) {
        JSONValue::Array held;
        for (auto deadline = std::chrono::steady_clock::now() + 10s;
             std::chrono::steady_clock::now() < deadline; std::this_thread::sleep_for(20ms)) {
            held = *listing("pending").arrayValue();
            if (held.size() == count)
                return held;
        }
        ADD_FAILURE() << "expected " << count << " held requests, have " << held.size();
        return held;
    }

    // The session's timeline texts, oldest first.
    std::vector<std::string> timeline(const std::string& sessionId) {
        std::vector<std::string> texts;
        const JSONValue sessions = listing("sessions");
        for (const JSONValue& session : *sessions.arrayValue()) {
            if (*session.get("key")->get("sessionId") != JSONValue(sessionId))
                continue;
            for (const JSONValue& item : *session.get("timeline")->arrayValue())
                texts.push_back(*item.get("text")->stringValue());
        }
        return texts;
    }

    static std::string finished(BackgroundProgram& program) {
        auto status = program.waitFor(15s);
        EXPECT_EQ(status, 0) << program.err();
        return program.out();
    }

    TemporaryDirectory home;
    std::unique_ptr<BackgroundProgram> app;
    std::vector<std::unique_ptr<BackgroundProgram>> hooks;
    int programs = 0;
};

bool hasItem(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

TEST_F(ControlEndToEnd, ClaudePermissionAllowedDeniedAndTheFirstDecisionWins) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    const std::string permission = fixture("PermissionRequest-Bash");

    BackgroundProgram& first = hook("claude", "PermissionRequest", permission);
    auto held = waitForHeld(1);
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(*held[0].get("session")->get("sessionId"), JSONValue(claudeSession));
    EXPECT_EQ(*held[0].get("request")->get("kind"), JSONValue("permission"));
    EXPECT_TRUE(first.isRunning()) << "held until someone decides";

    ProgramResult allow = tidewick({"allow", "d4e2"});
    EXPECT_EQ(allow.status, 0) << allow.err;
    EXPECT_EQ(allow.out, "Allowed Claude Code session d4e23369.\n");
    EXPECT_EQ(finished(first), R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest",)"
                               R"("decision":{"behavior":"allow"}}})"
                               "\n");
    // The first decision wins: a second one finds nothing waiting.
    ProgramResult again = tidewick({"deny", "d4e2"});
    EXPECT_EQ(again.status, 1);
    EXPECT_TRUE(contains(again.err, "was not delivered")) << again.err;

    BackgroundProgram& second = hook("claude", "PermissionRequest", permission);
    waitForHeld(1);
    EXPECT_EQ(tidewick({"deny", claudeSession}).status, 0);
    const std::string denied = finished(second);
    EXPECT_TRUE(contains(denied, R"("behavior":"deny")")) << denied;
    EXPECT_TRUE(contains(denied, "Denied from Tidewick.")) << denied;

    BackgroundProgram& third = hook("claude", "PermissionRequest", permission);
    waitForHeld(1);
    ProgramResult withMessage =
        tidewick({"deny", "d4e", "--agent", "claude", "--message", "Use the staging database."});
    EXPECT_EQ(withMessage.status, 0) << withMessage.err;
    const std::string deniedWithMessage = finished(third);
    EXPECT_TRUE(contains(deniedWithMessage, R"("message":"Use the staging database.")"))
        << deniedWithMessage;

    auto texts = timeline(claudeSession);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "Allowed"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "Denied"), 2);
    EXPECT_TRUE(waitForHeld(0).empty());

    ProgramResult unknown = tidewick({"allow", "ffff"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "No session matches \"ffff\".\n");
    EXPECT_EQ(tidewick({"allow", "d4e2", "--agent", "vim"}).status, 2);
    EXPECT_EQ(tidewick({"allow"}).status, 2);
}

TEST_F(ControlEndToEnd, TheEndOfATurnAnsweredWithAReplyOrLetStop) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    const std::string stop = fixture("Stop");

    BackgroundProgram& first = hook("claude", "Stop", stop);
    auto held = waitForHeld(1);
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(*held[0].get("request")->get("kind"), JSONValue("reply"));
    ProgramResult notAPermission = tidewick({"allow", "d4e"});
    EXPECT_EQ(notAPermission.status, 1) << "a turn end is no permission request";
    ProgramResult reply = tidewick({"reply", "d4e", "Run the tests."});
    EXPECT_EQ(reply.status, 0) << reply.err;
    EXPECT_EQ(reply.out, "Replied to Claude Code session d4e23369.\n");
    EXPECT_EQ(finished(first), R"({"decision":"block","reason":"Message from the user, sent via )"
                               R"(Tidewick: Run the tests."})"
                               "\n");

    BackgroundProgram& second = hook("claude", "Stop", stop);
    waitForHeld(1);
    ProgramResult letStop = tidewick({"let-stop", "d4e"});
    EXPECT_EQ(letStop.status, 0) << letStop.err;
    EXPECT_EQ(finished(second), "") << "letting it stop says nothing";
    EXPECT_EQ(tidewick({"let-stop", "d4e"}).status, 1);
    EXPECT_EQ(tidewick({"reply", "d4e", "more"}).status, 1);

    auto texts = timeline(claudeSession);
    EXPECT_TRUE(hasItem(texts, "You replied"));
    EXPECT_TRUE(hasItem(texts, "You let it stop"));
}

TEST_F(ControlEndToEnd, AnUnansweredPermissionTimesOut) {
    TidewickPaths paths(home.path());
    paths.ensureDirectories();
    File::writeAtomically(paths.settingsFile(), R"({"permissionTimeoutSeconds": 1})", 0600);
    ASSERT_NO_FATAL_FAILURE(startApp());

    BackgroundProgram& held =
        hook("claude", "PermissionRequest", fixture("PermissionRequest-Bash"));
    // Claude Code's time-out answer is silence: it asks in its own interface.
    EXPECT_EQ(finished(held), "");
    EXPECT_TRUE(hasItem(timeline(claudeSession), "No answer in Tidewick — asking in Claude Code"));
    EXPECT_EQ(tidewick({"allow", "d4e"}).status, 1) << "too late";
}

TEST_F(ControlEndToEnd, AKilledHookIsWithdrawnWithinASecond) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    BackgroundProgram& held =
        hook("claude", "PermissionRequest", fixture("PermissionRequest-Bash"));
    waitForHeld(1);

    held.signal(SIGKILL);
    const auto killed = std::chrono::steady_clock::now();
    while (!listing("pending").arrayValue()->empty() &&
           std::chrono::steady_clock::now() - killed < 10s)
        std::this_thread::sleep_for(10ms);
    const auto noticed = std::chrono::steady_clock::now() - killed;
    // Generous bound: the server looks four times a second; listing costs a process start.
    EXPECT_LT(noticed, 1s);
    EXPECT_TRUE(hasItem(timeline(claudeSession), "The request was withdrawn"));
}

TEST_F(ControlEndToEnd, CursorReadOnlyCommandsPassAtOnceWhileRiskyOnesWait) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    const std::string base =
        R"({"conversation_id":"cursor-e2e-1","generation_id":"g-1","workspace_roots":["/w"],)"
        R"("cwd":"/w","hook_event_name":"beforeShellExecution","command":)";

    BackgroundProgram& risky = hook("cursor", "beforeShellExecution", base + R"("rm -rf build"})");
    waitForHeld(1);
    BackgroundProgram& listingFiles = hook("cursor", "beforeShellExecution", base + R"("ls -la"})");
    EXPECT_EQ(finished(listingFiles), "{\"permission\":\"allow\"}\n");
    EXPECT_TRUE(risky.isRunning());
    EXPECT_EQ(waitForHeld(1).size(), 1u) << "ls -la was never held";

    EXPECT_EQ(tidewick({"deny", "cursor-e2e", "--message", "Not the build folder."}).status, 0);
    const std::string denied = finished(risky);
    EXPECT_TRUE(contains(denied, R"("permission":"deny")")) << denied;
    EXPECT_TRUE(contains(denied, "Not the build folder.")) << denied;
}

TEST_F(ControlEndToEnd, EveryAgentsHeldRequestIsAnsweredByPrefix) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    BackgroundProgram& codex =
        hook("codex", "PermissionRequest",
             R"({"session_id":"e2e-codex-1","cwd":"/w","hook_event_name":"PermissionRequest",)"
             R"("tool_name":"Bash","tool_input":{"command":"cargo publish"}})");
    BackgroundProgram& antigravity =
        hook("antigravity", "PreToolUse",
             R"({"conversationId":"e2e-ag-1","workspacePaths":["/ws"],)"
             R"("toolCall":{"name":"run_command","args":{"CommandLine":"npm publish"}}})");
    waitForHeld(2);

    ProgramResult ambiguous = tidewick({"allow", "e2e"});
    EXPECT_EQ(ambiguous.status, 2);
    EXPECT_TRUE(contains(ambiguous.err, "matches 2 sessions")) << ambiguous.err;
    EXPECT_EQ(tidewick({"allow", "e2e", "--agent", "codex"}).status, 0);
    EXPECT_EQ(tidewick({"allow", "e2e-ag"}).status, 0);
    EXPECT_EQ(finished(codex), R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest",)"
                               R"("decision":{"behavior":"allow"}}})"
                               "\n");
    EXPECT_EQ(finished(antigravity), "{\"decision\":\"allow\"}\n");

    ProgramResult sessions = tidewick({"sessions"});
    EXPECT_TRUE(contains(sessions.out, "Codex       e2e-code  ")) << sessions.out;
    EXPECT_TRUE(contains(sessions.out, "Antigravity e2e-ag-1  ")) << sessions.out;
}

TEST_F(ControlEndToEnd, NoHoldNeverKeepsTheAgentWaiting) {
    ASSERT_NO_FATAL_FAILURE(startApp());
    BackgroundProgram& permission = hook("claude", "PermissionRequest",
                                         fixture("PermissionRequest-Bash"), {"TIDEWICK_NO_HOLD=1"});
    BackgroundProgram& stop = hook("claude", "Stop", fixture("Stop"), {"TIDEWICK_NO_HOLD=1"});
    EXPECT_EQ(finished(permission), "");
    EXPECT_EQ(finished(stop), "");
    EXPECT_TRUE(listing("pending").arrayValue()->empty());
    // Recorded all the same.
    EXPECT_FALSE(timeline(claudeSession).empty());
}

TEST_F(ControlEndToEnd, OneInstanceAtATimeAndSessionsSurviveARestart) {
    ProgramResult before = tidewick({"sessions"});
    EXPECT_EQ(before.status, 3);
    EXPECT_EQ(before.err, "Tidewick isn't running. Start it with `tidewick app`.\n");

    ASSERT_NO_FATAL_FAILURE(startApp());
    ProgramResult second =
        runProgram({binaryDir + "/bin/tidewick", "app", "--headless"}, environment(), {}, {}, 30s);
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.err, "Tidewick is already running. Quit it before starting another.\n");
    EXPECT_EQ(tidewick({"sessions"}).status, 0) << "the first one still answers";

    for (const char* name :
         {"SessionStart", "UserPromptSubmit", "PreToolUse-Bash", "PostToolUse-Bash"}) {
        std::string event(name);
        event = event.substr(0, event.find('-'));
        EXPECT_EQ(finished(hook("claude", event, fixture(name))), "") << name;
    }
    BackgroundProgram& held =
        hook("claude", "PermissionRequest", fixture("PermissionRequest-Bash"));
    waitForHeld(1);

    // Stopping answers what is held with the time-out answer and saves at once.
    EXPECT_EQ(stopApp(), 0) << app->err();
    EXPECT_EQ(finished(held), "");
    TidewickPaths paths(home.path());
    EXPECT_FALSE(File::exists(paths.socketPath()));
    EXPECT_FALSE(File::exists(paths.controlSocketPath()));
    ASSERT_TRUE(File::exists(paths.sessionsFile()));
    JSONValue saved = JSONValue::parse(File::read(paths.sessionsFile()));
    ASSERT_EQ(saved.arrayValue()->size(), 1u);
    const JSONValue savedTimeline = *(*saved.arrayValue())[0].get("timeline");

    ASSERT_NO_FATAL_FAILURE(startApp());
    JSONValue sessions = listing("sessions");
    ASSERT_EQ(sessions.arrayValue()->size(), 1u);
    const JSONValue& session = (*sessions.arrayValue())[0];
    EXPECT_EQ(*session.get("key")->get("sessionId"), JSONValue(claudeSession));
    EXPECT_EQ(*session.get("timeline"), savedTimeline);
    auto texts = timeline(claudeSession);
    EXPECT_TRUE(hasItem(texts, "Session started"));
    EXPECT_TRUE(hasItem(texts, "No answer in Tidewick — asking in Claude Code"));
    EXPECT_EQ(stopApp(), 0);
}

} // namespace
} // namespace tidewick
