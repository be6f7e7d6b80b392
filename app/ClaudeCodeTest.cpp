// A real Claude Code accepts what `tidewick connect claude` writes: its
// SessionStart hook starts the installed tidewick-hook, and a whole print-mode
// turn reaches the running application. Claude Code comes from the npm
// registry (test only) and runs with no network at all.
#include "testing/BackgroundProgram.h"
#include "testing/ProgramRun.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"
#include "testing/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

extern char** environ;

namespace tidewick {
namespace {

using testing::runProgram;

const std::string binaryDir = TIDEWICK_BINARY_DIR;

std::vector<std::string> currentEnvironment() {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry)
        entries.emplace_back(*entry);
    return entries;
}

// The folder Claude Code is installed into: shared between build trees when
// TIDEWICK_CLAUDE_CODE_DIR says where, else inside this build tree.
std::string claudeCodeFolder() {
    if (const char* folder = std::getenv("TIDEWICK_CLAUDE_CODE_DIR"); folder && *folder)
        return folder;
    return binaryDir + "/claude-code";
}

std::string lastLine(const std::string& text) {
    std::string line;
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);)
        if (!each.empty())
            line = each;
    return line;
}

// The `claude` command, installed on first use; nothing (with the reason in
// `why`) when npm or the registry is out of reach.
std::optional<std::string> installedClaude(std::string& why) {
    auto install = runProgram({"/bin/bash",
                               std::string(TIDEWICK_SOURCE_DIR) + "/scripts/install-claude-code.sh",
                               claudeCodeFolder()},
                              currentEnvironment(), {}, {}, std::chrono::seconds(660));
    if (install.status == 77) {
        why = "Claude Code could not be installed from npm: " + install.err;
        return std::nullopt;
    }
    EXPECT_EQ(install.status, 0) << install.err;
    if (install.status != 0) {
        why = "the installation failed";
        return std::nullopt;
    }
    return lastLine(install.out);
}

// Whether `unshare -n` can give a program a network of its own (loopback only).
bool canIsolateNetwork() {
    return runProgram({"/usr/bin/unshare", "-n", "/bin/true"}, {"PATH=/usr/bin:/bin"}).status == 0;
}

TEST(ClaudeCode, SessionStartRunsTheInstalledHook) {
    const std::string hookBinary = binaryDir + "/bin/tidewick-hook";
    if (!File::isExecutableFile(hookBinary))
        GTEST_SKIP() << "tidewick-hook was not built beside tidewick";

    std::string why;
    auto installed = installedClaude(why);
    if (!installed)
        GTEST_SKIP() << why;
    const std::string claude = *installed;
    auto version = runProgram({claude, "--version"}, {"PATH=/usr/bin:/bin", "HOME=/nonexistent"});
    RecordProperty("claude_code_version", lastLine(version.out));

    TemporaryDirectory home;
    // Claude Code reads HOME, Tidewick TIDEWICK_HOME: both are the same temporary home.
    const std::vector<std::string> homes = {"HOME=" + home.path(), "TIDEWICK_HOME=" + home.path()};
    std::vector<std::string> environment = homes;
    environment.push_back("PATH=" + File::parent(claude) + ":/usr/bin:/bin");
    auto connect =
        runProgram({binaryDir + "/bin/tidewick", "connect", "claude", "--yes"}, environment);
    ASSERT_EQ(connect.status, 0) << connect.out << connect.err;

    // The hook command appends a record of every call when this marker exists.
    const std::string socketFolder = File::parent(TidewickPaths(home.path()).socketPath());
    File::writeAtomically(File::join(socketFolder, "debug-hooks"), "", 0600);

    // No network: a network namespace of its own when one can be made, and in
    // any case no key and every address pointed at a closed loopback port.
    std::vector<std::string> argv = {claude, "-p", "hello"};
    if (canIsolateNetwork())
        argv.insert(argv.begin(), {"/usr/bin/unshare", "-n"});
    std::vector<std::string> agentEnvironment = homes;
    agentEnvironment.insert(agentEnvironment.end(),
                            {"PATH=/usr/bin:/bin", "ANTHROPIC_BASE_URL=http://127.0.0.1:9",
                             "HTTPS_PROXY=http://127.0.0.1:9", "HTTP_PROXY=http://127.0.0.1:9",
                             "DISABLE_AUTOUPDATER=1",
                             "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1"});
    auto run = runProgram(argv, agentEnvironment, {}, home.path(), std::chrono::seconds(120));
    EXPECT_FALSE(run.timedOut);

    const std::string log = File::join(socketFolder, "hook-debug.jsonl");
    ASSERT_TRUE(File::exists(log))
        << "Claude Code never started tidewick-hook.\nstdout: " << run.out
        << "\nstderr: " << run.err;
    bool sawSessionStart = false;
    std::istringstream lines(File::read(log));
    for (std::string line; std::getline(lines, line);) {
        JSONValue record = JSONValue::parse(line);
        const JSONValue* event = record.get("event");
        const JSONValue* payload = record.get("payload");
        if (!event || *event != JSONValue("SessionStart"))
            continue;
        EXPECT_EQ(*record.get("agent"), JSONValue("claude"));
        // The payload is Claude Code's own, not something this test made up.
        ASSERT_TRUE(payload && payload->get("hook_event_name")) << line;
        EXPECT_EQ(*payload->get("hook_event_name"), JSONValue("SessionStart"));
        EXPECT_TRUE(payload->get("session_id")) << line;
        sawSessionStart = true;
    }
    EXPECT_TRUE(sawSessionStart) << File::read(log);
}

// Plays one turn inside the network namespace: loopback up, the model stand-in
// on a free port, `claude -p` against it. Arguments: stand-in script, claude,
// working folder, scratch folder.
const char* const printTurnScript = R"(
set -u
stand_in=$1 claude=$2 work=$3 scratch=$4
# A fresh network namespace starts with loopback down.
ip link set lo up 2>/dev/null || true
python3 "$stand_in" 0 --log "$scratch/stand-in.log" > "$scratch/port" &
stand_in_pid=$!
for _ in $(seq 200); do [ -s "$scratch/port" ] && break; sleep 0.05; done
port=$(head -n 1 "$scratch/port")
cd "$work" &&
    ANTHROPIC_BASE_URL="http://127.0.0.1:$port" timeout 90 "$claude" \
        -p "say hi" --allowedTools Bash --output-format text
status=$?
kill "$stand_in_pid" 2>/dev/null
wait "$stand_in_pid" 2>/dev/null
exit $status
)";

TEST(ClaudeCode, APrintModeTurnReachesTheRunningApplicationWithoutHolding) {
    const std::string tidewick = binaryDir + "/bin/tidewick";
    if (!File::isExecutableFile(binaryDir + "/bin/tidewick-hook"))
        GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
    std::string python;
    for (const char* candidate : {"/usr/bin/python3", "/usr/local/bin/python3"})
        if (File::isExecutableFile(candidate))
            python = candidate;
    if (python.empty())
        GTEST_SKIP() << "python3 is needed for the model stand-in";
    std::string why;
    auto installed = installedClaude(why);
    if (!installed)
        GTEST_SKIP() << why;
    const std::string claude = *installed;

    TemporaryDirectory home;
    const std::string work = File::join(home.path(), "work");
    std::filesystem::create_directories(work);
    const std::vector<std::string> homes = {"HOME=" + home.path(), "TIDEWICK_HOME=" + home.path()};
    std::vector<std::string> environment = homes;
    // `connect` looks for Claude Code on the PATH.
    environment.push_back("PATH=" + File::parent(claude) + ":/usr/bin:/bin");
    auto connect = runProgram({tidewick, "connect", "claude", "--yes"}, environment);
    ASSERT_EQ(connect.status, 0) << connect.out << connect.err;

    testing::BackgroundProgram app({tidewick, "app", "--headless"}, environment, {},
                                   File::join(home.path(), "app"));
    for (int i = 0;
         i < 1000 && app.isRunning() && app.out().find("Tidewick is running.") == std::string::npos;
         ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_NE(app.out().find("Tidewick is running."), std::string::npos) << app.err();

    // No network: a namespace of its own when one can be made (the Unix sockets
    // still reach the application through the file system), and in any case
    // only the loopback stand-in as the model and no traffic beyond it.
    std::vector<std::string> argv = {"/bin/bash",
                                     "-c",
                                     printTurnScript,
                                     "turn",
                                     std::string(TIDEWICK_SOURCE_DIR) +
                                         "/app/testing/model_stand_in.py",
                                     claude,
                                     work,
                                     home.path()};
    if (canIsolateNetwork())
        argv.insert(argv.begin(), {"/usr/bin/unshare", "-n"});
    std::vector<std::string> agentEnvironment = homes;
    agentEnvironment.insert(
        agentEnvironment.end(),
        {"PATH=" + File::parent(python) + ":" + File::parent(claude) + ":/usr/sbin:/usr/bin:/bin",
         "ANTHROPIC_API_KEY=test-key", "DISABLE_AUTOUPDATER=1", "DISABLE_TELEMETRY=1",
         "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1"});
    auto turn = runProgram(argv, agentEnvironment, {}, home.path(), std::chrono::seconds(150));
    const std::string standIn = File::exists(File::join(home.path(), "stand-in.log"))
                                    ? File::read(File::join(home.path(), "stand-in.log"))
                                    : "";
    ASSERT_EQ(turn.status, 0) << turn.out << turn.err << "\nstand-in:\n" << standIn;
    EXPECT_NE(turn.out.find("Done: the marker command has run."), std::string::npos) << turn.out;

    auto sessions = runProgram({tidewick, "sessions", "--json"}, environment);
    ASSERT_EQ(sessions.status, 0) << sessions.err;
    JSONValue list = JSONValue::parse(sessions.out);
    ASSERT_EQ(list.arrayValue()->size(), 1u) << sessions.out;
    const JSONValue& session = (*list.arrayValue())[0];
    EXPECT_EQ(*session.get("key")->get("agent"), JSONValue("claude"));
    const std::string sessionId = *session.get("key")->get("sessionId")->stringValue();
    EXPECT_EQ(*session.get("projectPath"), JSONValue(work));
    EXPECT_TRUE(session.get("pending")->arrayValue()->empty()) << "print mode holds nothing";
    EXPECT_EQ(*session.get("status"), JSONValue("ended")) << sessions.out;

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
    EXPECT_TRUE(sawCommand) << sessions.out;
    EXPECT_TRUE(sawFinish) << sessions.out;
    EXPECT_TRUE(sawEnd) << sessions.out;
    auto pending = runProgram({tidewick, "pending", "--json"}, environment);
    EXPECT_EQ(JSONValue::parse(pending.out), JSONValue(JSONValue::Array{}));

    // The session is titled by its prompt, and the activity log keeps the prompt too.
    EXPECT_EQ(*session.get("title"), JSONValue("say hi")) << sessions.out;
    bool sawPrompt = false;
    std::istringstream activity(File::read(TidewickPaths(home.path()).activityFile()));
    for (std::string line; std::getline(activity, line);) {
        JSONValue record = JSONValue::parse(line);
        if (*record.get("session") == JSONValue(sessionId) &&
            *record.get("kind") == JSONValue("userPrompt") && record.get("detail") &&
            *record.get("detail") == JSONValue("say hi"))
            sawPrompt = true;
    }
    EXPECT_TRUE(sawPrompt) << File::read(TidewickPaths(home.path()).activityFile());

    app.signal(SIGTERM);
    EXPECT_EQ(app.waitFor(std::chrono::seconds(20)), 0) << app.err();
}

} // namespace
} // namespace tidewick
