// A real Claude Code accepts what `tidewick connect claude` writes: its
// SessionStart hook starts the installed tidewick-hook, and a whole print-mode
// turn reaches the running application. Claude Code comes from the npm
// registry (test only) and runs with no network at all.
#include "RealAgents.h"
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"

#include <filesystem>
#include <sstream>

namespace tidewick {
namespace {

using testing::runProgram;
namespace RealAgents = testing::RealAgents;

// Claude Code installed on first use (into TIDEWICK_CLAUDE_CODE_DIR when set, so
// build trees can share it) and connected in a temporary home that serves as
// both HOME and TIDEWICK_HOME.
class ClaudeCode : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        auto install = RealAgents::install("install-claude-code.sh", "TIDEWICK_CLAUDE_CODE_DIR",
                                           "claude-code");
        if (install.status == 77)
            GTEST_SKIP() << "Claude Code could not be installed from npm: " << install.error;
        ASSERT_EQ(install.status, 0) << install.error;
        claude = install.command;
        // `connect` looks for Claude Code on the PATH.
        run.setVariable("PATH", File::parent(claude) + ":/usr/bin:/bin");
        auto connect = run.tidewick({"connect", "claude", "--yes"});
        ASSERT_EQ(connect.status, 0) << connect.out << connect.err;
    }

    // `argv` in the home, with no network: a network namespace of its own when one
    // can be made, and `variables` besides the two homes.
    testing::ProgramResult isolated(std::vector<std::string> argv,
                                    std::vector<std::string> variables) {
        if (RealAgents::canIsolateNetwork())
            argv.insert(argv.begin(), {"/usr/bin/unshare", "-n"});
        variables.insert(variables.end(),
                         {"HOME=" + run.home(), "TIDEWICK_HOME=" + run.home(),
                          "DISABLE_AUTOUPDATER=1", "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1",
                          "CLAUDE_CODE_DISABLE_OFFICIAL_MARKETPLACE_AUTOINSTALL=1"});
        return runProgram(argv, variables, {}, run.home(), std::chrono::seconds(150));
    }

    testing::TidewickPrograms run;
    std::string claude;
};

TEST_F(ClaudeCode, SessionStartRunsTheInstalledHook) {
    auto version = runProgram({claude, "--version"}, {"PATH=/usr/bin:/bin", "HOME=/nonexistent"});
    RecordProperty("claude_code_version", version.out);

    run.recordHookCalls();

    // No key, and every address pointed at a closed loopback port.
    auto turn = isolated({claude, "-p", "hello"},
                         {"PATH=/usr/bin:/bin", "ANTHROPIC_BASE_URL=http://127.0.0.1:9",
                          "HTTPS_PROXY=http://127.0.0.1:9", "HTTP_PROXY=http://127.0.0.1:9"});
    EXPECT_FALSE(turn.timedOut);

    const std::vector<JSONValue> starts = run.hookCalls("SessionStart");
    ASSERT_FALSE(starts.empty()) << "Claude Code never started tidewick-hook.\nstdout: " << turn.out
                                 << "\nstderr: " << turn.err;
    for (const JSONValue& record : starts) {
        EXPECT_EQ(*record.get("agent"), JSONValue("claude"));
        // The payload is Claude Code's own, not something this test made up.
        const JSONValue* payload = record.get("payload");
        ASSERT_TRUE(payload && payload->get("hook_event_name")) << record.compact();
        EXPECT_EQ(*payload->get("hook_event_name"), JSONValue("SessionStart"));
        EXPECT_TRUE(payload->get("session_id")) << record.compact();
    }
}

// Plays one turn inside the network namespace: loopback up, the model stand-in
// on a free port, `claude -p` against it. Arguments: stand-in script, claude,
// working folder, scratch folder, the stand-in's scenario.
const char* const printTurnScript = R"(
set -u
stand_in=$1 claude=$2 work=$3 scratch=$4 scenario=$5
# A fresh network namespace starts with loopback down.
ip link set lo up 2>/dev/null || true
python3 "$stand_in" 0 --scenario "$scenario" --log "$scratch/stand-in.log" > "$scratch/port" &
stand_in_pid=$!
for _ in $(seq 200); do [ -s "$scratch/port" ] && break; sleep 0.05; done
port=$(head -n 1 "$scratch/port")
cd "$work" &&
    ANTHROPIC_BASE_URL="http://127.0.0.1:$port" timeout 90 "$claude" \
        -p "say hi" --output-format text
status=$?
kill "$stand_in_pid" 2>/dev/null
wait "$stand_in_pid" 2>/dev/null
exit $status
)";

TEST_F(ClaudeCode, APrintModeTurnReachesTheRunningApplicationWithoutHolding) {
    const std::string python = RealAgents::python();
    if (python.empty())
        GTEST_SKIP() << "python3 is needed for the model stand-in";
    const std::string work = File::join(run.home(), "work");
    std::filesystem::create_directories(work);
    // A read-only command runs unasked; the second one asks for permission, which print
    // mode hands to the hooks too, yet nobody is there to answer it.
    const std::string scenario = File::join(run.home(), "scenario.json");
    File::writeAtomically(scenario,
                          R"({"steps": [{"bash": "echo tidewick-e2e"}, {"bash": "touch asked.txt"}],
                              "final_text": "Done: the marker command has run."})",
                          0600);
    run.recordHookCalls();
    ASSERT_TRUE(run.startApp());

    // The Unix sockets still reach the application through the file system from
    // the network namespace; the loopback stand-in is the only model.
    auto turn = isolated(
        {"/bin/bash", "-c", printTurnScript, "turn",
         std::string(TIDEWICK_SOURCE_DIR) + "/app/testing/claude_stand_in.py", claude, work,
         run.home(), scenario},
        {"PATH=" + File::parent(python) + ":" + File::parent(claude) + ":/usr/sbin:/usr/bin:/bin",
         "ANTHROPIC_API_KEY=test-key", "DISABLE_TELEMETRY=1"});
    const std::string standIn = File::exists(File::join(run.home(), "stand-in.log"))
                                    ? File::read(File::join(run.home(), "stand-in.log"))
                                    : "";
    ASSERT_EQ(turn.status, 0) << turn.out << turn.err << "\nstand-in:\n" << standIn;
    EXPECT_NE(turn.out.find("Done: the marker command has run."), std::string::npos) << turn.out;

    const JSONValue list = run.listing("sessions");
    const std::string sessions = list.compact();
    ASSERT_EQ(list.arrayValue()->size(), 1u) << sessions;
    const JSONValue& session = (*list.arrayValue())[0];
    EXPECT_EQ(*session.get("key")->get("agent"), JSONValue("claude"));
    const std::string sessionId = *session.get("key")->get("sessionId")->stringValue();
    EXPECT_EQ(*session.get("projectPath"), JSONValue(work));
    EXPECT_TRUE(session.get("pending")->arrayValue()->empty()) << "print mode holds nothing";
    EXPECT_EQ(*session.get("status"), JSONValue("ended")) << sessions;

    bool sawCommand = false, sawEnd = false, sawFinish = false;
    for (const JSONValue& item : *session.get("timeline")->arrayValue()) {
        const std::string text = *item.get("text")->stringValue();
        const JSONValue* detail = item.get("detail");
        if (*item.get("kind") == JSONValue("shell") && detail &&
            detail->stringValue()->find("echo tidewick-e2e") != std::string::npos)
            sawCommand = true;
        sawFinish = sawFinish || text == "Finished the turn";
        sawEnd = sawEnd || text == "Session ended";
        // Nothing was ever held, so nothing timed out or was withdrawn.
        EXPECT_EQ(text.find("No answer"), std::string::npos);
        EXPECT_EQ(text.find("withdrawn"), std::string::npos);
    }
    EXPECT_TRUE(sawCommand) << sessions;
    EXPECT_TRUE(sawFinish) << sessions;
    // The permission request reached Tidewick, which left it to Claude Code: refused.
    const std::vector<JSONValue> asked = run.hookCalls("PermissionRequest");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(*asked[0].get("payload")->get("tool_input")->get("command"),
              JSONValue("touch asked.txt"));
    EXPECT_FALSE(File::exists(File::join(work, "asked.txt")));
    EXPECT_TRUE(sawEnd) << sessions;
    EXPECT_EQ(run.listing("pending"), JSONValue(JSONValue::Array{}));

    // The session is titled by its prompt, and the activity log keeps the prompt too.
    EXPECT_EQ(*session.get("title"), JSONValue("say hi")) << sessions;
    const std::string activityLog = File::read(TidewickPaths(run.home()).activityFile());
    bool sawPrompt = false;
    std::istringstream activity(activityLog);
    for (std::string line; std::getline(activity, line);) {
        JSONValue record = JSONValue::parse(line);
        if (*record.get("session") == JSONValue(sessionId) &&
            *record.get("kind") == JSONValue("userPrompt") && record.get("detail") &&
            *record.get("detail") == JSONValue("say hi"))
            sawPrompt = true;
    }
    EXPECT_TRUE(sawPrompt) << activityLog;

    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

} // namespace
} // namespace tidewick
