// End to end through the real `tidewick` and `tidewick-hook` programs, in a
// temporary home.
#include "testing/ProgramRun.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"
#include "install/HookCatalog.h"
#include "testing/TemporaryDirectory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tidewick {
namespace {

namespace fs = std::filesystem;
using testing::runProgram;

const std::string tidewick = std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick";
const std::string bundledHook = std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick-hook";

class TidewickCommand : public ::testing::Test {
protected:
    void SetUp() override {
        if (!File::isExecutableFile(bundledHook))
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        fs::create_directories(File::join(home.path(), ".claude"));
        fs::create_directories(File::join(emptyPath.path(), "bin"));
    }

    testing::ProgramResult run(std::vector<std::string> arguments, const std::string& input = {},
                               std::vector<std::string> extraEnvironment = {}) {
        arguments.insert(arguments.begin(), tidewick);
        // HOME points elsewhere on purpose: TIDEWICK_HOME must win for every file.
        std::vector<std::string> environment = {"TIDEWICK_HOME=" + home.path(),
                                                "HOME=" + decoy.path(),
                                                "PATH=" + File::join(emptyPath.path(), "bin")};
        environment.insert(environment.end(), extraEnvironment.begin(), extraEnvironment.end());
        return runProgram(arguments, environment, input);
    }

    std::string settings() const { return File::join(home.path(), ".claude/settings.json"); }

    TemporaryDirectory home;
    TemporaryDirectory decoy;
    TemporaryDirectory emptyPath;
};

TEST_F(TidewickCommand, ConnectClaudeWritesTheTenHooksAndTheStatusLine) {
    auto connect = run({"connect", "claude", "--yes"});
    ASSERT_EQ(connect.status, 0) << connect.err;
    EXPECT_NE(connect.out.find("Connected Claude Code."), std::string::npos);
    EXPECT_NE(connect.out.find("+   \"hooks\": {"), std::string::npos) << connect.out;
    EXPECT_EQ(connect.out.find("\x1b["), std::string::npos) << "no colour into a pipe";

    const std::string helper = TidewickPaths(home.path()).helperPath();
    EXPECT_EQ(File::read(helper), File::read(bundledHook));
    EXPECT_TRUE(File::isExecutableFile(helper));

    JSONValue document = JSONValue::parse(File::read(settings()));
    ASSERT_TRUE(document.isObject());
    ASSERT_EQ(document.objectPairs()->size(), 2u);
    const JSONValue& hooks = *document.get("hooks");
    std::set<std::string> events;
    for (const auto& [event, groups] : *hooks.objectPairs()) {
        events.insert(event);
        ASSERT_EQ(groups.arrayValue()->size(), 1u) << event;
        const JSONValue& handlers = *(*groups.arrayValue())[0].get("hooks");
        ASSERT_EQ(handlers.arrayValue()->size(), 1u) << event;
        EXPECT_EQ(*(*handlers.arrayValue())[0].get("command"),
                  JSONValue(HookCatalog::command(helper, AgentKind::claude, event)));
    }
    EXPECT_EQ(events, HookCatalog::installedEvents(AgentKind::claude));
    EXPECT_EQ(*document.get("statusLine")->get("command"),
              JSONValue(HookCatalog::command(helper, AgentKind::claude, "StatusLine")));
    EXPECT_TRUE(fs::is_empty(decoy.path()));

    // The written command line really starts the installed helper through a shell.
    const std::string line = document.get("hooks")
                                 ->get("SessionStart")
                                 ->arrayValue()
                                 ->at(0)
                                 .get("hooks")
                                 ->arrayValue()
                                 ->at(0)
                                 .get("command")
                                 ->stringValue()[0];
    fs::create_directories(TidewickPaths(home.path()).appSupport());
    std::string marker =
        File::join(File::parent(TidewickPaths(home.path()).socketPath()), "debug-hooks");
    File::writeAtomically(marker, "", 0600);
    auto hook =
        runProgram({"/bin/sh", "-c", line}, {"TIDEWICK_HOME=" + home.path(), "PATH=/usr/bin:/bin"},
                   R"({"session_id":"s1","hook_event_name":"SessionStart"})");
    EXPECT_EQ(hook.status, 0) << hook.err;
    EXPECT_NE(File::read(File::join(File::parent(marker), "hook-debug.jsonl")).find("SessionStart"),
              std::string::npos);

    auto status = run({"status", "--json"});
    ASSERT_EQ(status.status, 0) << status.err;
    JSONValue statuses = JSONValue::parse(status.out);
    ASSERT_EQ(statuses.arrayValue()->size(), 4u);
    const JSONValue& claude = statuses.arrayValue()->at(0);
    EXPECT_EQ(*claude.get("agent"), JSONValue("claude"));
    EXPECT_EQ(*claude.get("state"), JSONValue("connected"));
    EXPECT_EQ(*claude.get("configPath"), JSONValue(settings()));
    EXPECT_EQ(*claude.get("evidence"), JSONValue("folder " + File::join(home.path(), ".claude")));
    EXPECT_EQ(*statuses.arrayValue()->at(1).get("state"), JSONValue("not installed"));
    auto text = run({"status"});
    EXPECT_NE(text.out.find("claude      connected"), std::string::npos) << text.out;

    // Connecting again is a no-op that says so.
    auto again = run({"connect", "claude", "--yes"});
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.out.find("Nothing to change."), std::string::npos) << again.out;

    auto disconnect = run({"disconnect", "claude", "--yes"});
    ASSERT_EQ(disconnect.status, 0) << disconnect.err;
    EXPECT_NE(disconnect.out.find("Disconnected Claude Code."), std::string::npos);
    // Tidewick created the file, so it takes the whole file away again.
    EXPECT_FALSE(fs::exists(settings()));
    EXPECT_NE(disconnect.out.find("backed up to " + TidewickPaths(home.path()).backupsDirectory() +
                                  "/claude/"),
              std::string::npos);
    EXPECT_EQ(JSONValue::parse(run({"status", "--json"}).out)
                  .arrayValue()
                  ->at(0)
                  .get("state")
                  ->stringValue()[0],
              "disconnected");
}

TEST_F(TidewickCommand, DisconnectGivesBackTheUsersOwnSettings) {
    const std::string mine =
        "{\n  \"model\": \"opus\",\n  \"hooks\": {\n    \"Stop\": [\n      {\n        \"hooks\": "
        "[\n"
        "          {\n            \"type\": \"command\",\n            \"command\": \"say done\"\n"
        "          }\n        ]\n      }\n    ]\n  }\n}\n";
    File::writeAtomically(settings(), mine, 0600);

    // Asked and declined: nothing happens.
    auto declined = run({"connect", "claude"}, "n\n");
    EXPECT_EQ(declined.status, 0);
    EXPECT_NE(declined.out.find("Apply these changes? [y/N]"), std::string::npos);
    EXPECT_NE(declined.out.find("Nothing was changed."), std::string::npos);
    EXPECT_EQ(File::read(settings()), mine);
    // The preview is condensed: the user's model line is more than three lines from any change.
    EXPECT_EQ(declined.out.find("\"model\""), std::string::npos) << declined.out;
    EXPECT_NE(
        declined.out.find(
            "              \"command\": \"say done\"\n            }\n          ]\n+       },\n"),
        std::string::npos)
        << declined.out;
    EXPECT_NE(declined.out.find("Adds hooks for: SessionStart, UserPromptSubmit, SessionEnd"),
              std::string::npos);

    auto accepted = run({"connect", "claude"}, "y\n");
    ASSERT_EQ(accepted.status, 0) << accepted.err;
    EXPECT_NE(File::read(settings()).find("tidewick-hook"), std::string::npos);
    struct stat info {};
    ASSERT_EQ(::stat(settings().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    auto removed = run({"disconnect", "claude"}, "yes\n");
    ASSERT_EQ(removed.status, 0) << removed.err;
    EXPECT_NE(removed.out.find("Removes hooks for: SessionStart"), std::string::npos);
    EXPECT_EQ(File::read(settings()), mine);
}

TEST_F(TidewickCommand, ExitStatusesForRefusalsAndUsageErrors) {
    auto unknown = run({"connect", "vim", "--yes"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err,
              "Unknown agent \"vim\". Choose one of: claude, codex, cursor, antigravity.\n");
    EXPECT_EQ(run({"disconnect", "Claude"}).status, 2);
    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"connect"}).status, 2);
    EXPECT_EQ(run({"status", "--bogus"}).status, 2);
    EXPECT_EQ(run({"launch"}).status, 2);

    for (auto command : {std::vector<std::string>{"--help"},
                         {"status", "--help"},
                         {"connect", "--help"},
                         {"disconnect", "--help"}}) {
        auto help = run(command);
        EXPECT_EQ(help.status, 0) << command[0];
        EXPECT_NE(help.out.find("Usage:"), std::string::npos) << help.out;
    }
    auto version = run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "tidewick 0.1.0\n");

    // A file of the wrong shape: refused with the sentence, left byte for byte.
    File::writeAtomically(settings(), "[\"not\", \"settings\"]", 0644);
    auto shape = run({"connect", "claude", "--yes"});
    EXPECT_EQ(shape.status, 1);
    EXPECT_EQ(shape.err,
              "settings.json is not the shape Tidewick expects, so it was left untouched.\n");
    EXPECT_EQ(File::read(settings()), "[\"not\", \"settings\"]");

    // No folder and no command on PATH: not installed.
    auto absent = run({"connect", "cursor", "--yes"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.err, "Cursor does not appear to be installed.\n");
    EXPECT_FALSE(fs::exists(File::join(home.path(), ".cursor")));

    // The same agent found through its command on PATH connects.
    File::writeAtomically(File::join(emptyPath.path(), "bin/cursor-agent"), "#!/bin/sh\n", 0755);
    auto found = run({"connect", "cursor", "--gate-commands", "--yes"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_NE(
        File::read(File::join(home.path(), ".cursor/hooks.json")).find("beforeShellExecution"),
        std::string::npos);
}

} // namespace
} // namespace tidewick
