// A real Claude Code accepts what `tidewick connect claude` writes: its
// SessionStart hook starts the installed tidewick-hook. Claude Code comes
// from the npm registry (test only) and runs with no network at all.
#include "ProgramRun.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"
#include "install/TemporaryDirectory.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>

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

TEST(ClaudeCode, SessionStartRunsTheInstalledHook) {
    const std::string hookBinary = binaryDir + "/bin/tidewick-hook";
    if (!File::isExecutableFile(hookBinary))
        GTEST_SKIP() << "tidewick-hook was not built beside tidewick";

    auto install = runProgram({"/bin/bash",
                               std::string(TIDEWICK_SOURCE_DIR) + "/scripts/install-claude-code.sh",
                               claudeCodeFolder()},
                              currentEnvironment(), {}, {}, std::chrono::seconds(660));
    if (install.status == 77)
        GTEST_SKIP() << "Claude Code could not be installed from npm: " << install.err;
    ASSERT_EQ(install.status, 0) << install.err;
    const std::string claude = lastLine(install.out);
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
    if (runProgram({"/usr/bin/unshare", "-n", "/bin/true"}, {"PATH=/usr/bin:/bin"}).status == 0)
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

} // namespace
} // namespace tidewick
