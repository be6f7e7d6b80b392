// End to end through the real `tidewick` and `tidewick-hook` programs, in a
// temporary home.
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"
#include "install/HookCatalog.h"
#include "testing/SmallFileSystem.h"

#include <filesystem>

namespace tidewick {
namespace {

namespace fs = std::filesystem;
using testing::runProgram;

class TidewickCommand : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        fs::create_directories(File::join(home(), ".claude"));
        fs::create_directories(File::join(emptyPath.path(), "bin"));
        // HOME points elsewhere on purpose: TIDEWICK_HOME must win for every file.
        programs.setVariable("HOME", decoy.path());
        programs.setVariable("PATH", File::join(emptyPath.path(), "bin"));
    }

    testing::ProgramResult run(std::vector<std::string> arguments, const std::string& input = {}) {
        return programs.tidewick(std::move(arguments), input);
    }
    const std::string& home() const { return programs.home(); }
    std::string settings() const { return File::join(home(), ".claude/settings.json"); }

    testing::TidewickPrograms programs;
    TemporaryDirectory decoy;
    TemporaryDirectory emptyPath;
};

TEST_F(TidewickCommand, ConnectClaudeWritesHooksThatStartTheHelperAndDisconnectRemovesThem) {
    auto connect = programs.succeeded({"connect", "claude", "--yes"});
    EXPECT_NE(connect.out.find("Connected Claude Code."), std::string::npos);
    EXPECT_NE(connect.out.find("+   \"hooks\": {"), std::string::npos) << connect.out;
    EXPECT_EQ(connect.out.find("\x1b["), std::string::npos) << "no colour into a pipe";

    // Which events and which status line are written is ConnectionManager's and
    // HookConfigEditor's to test; here a written command line really starts the helper
    // copied into TIDEWICK_HOME (not HOME) through a shell.
    const TidewickPaths paths(home());
    const std::string sessionStart =
        HookCatalog::command(paths.helperPath(), AgentKind::claude, "SessionStart");
    EXPECT_NE(File::read(settings()).find(JSONValue::quote(sessionStart)), std::string::npos);
    EXPECT_TRUE(fs::is_empty(decoy.path()));
    programs.recordHookCalls();
    auto hook = runProgram({"/bin/sh", "-c", sessionStart},
                           {"TIDEWICK_HOME=" + home(), "PATH=/usr/bin:/bin"},
                           R"({"session_id":"s1","hook_event_name":"SessionStart"})");
    EXPECT_EQ(hook.status, 0) << hook.err;
    EXPECT_EQ(programs.hookCalls("SessionStart").size(), 1u);

    auto status = run({"status", "--json"});
    const JSONValue claude = JSONValue::parse(status.out).arrayValue()->at(0);
    EXPECT_EQ(*claude.get("state"), JSONValue("connected")) << status.out;

    auto again = programs.succeeded({"connect", "claude", "--yes"});
    EXPECT_NE(again.out.find("Nothing to change."), std::string::npos) << again.out;

    auto disconnect = programs.succeeded({"disconnect", "claude", "--yes"});
    EXPECT_NE(disconnect.out.find("Disconnected Claude Code."), std::string::npos);
    EXPECT_NE(disconnect.out.find("backed up to " + paths.backupsDirectory() + "/claude/"),
              std::string::npos);
}

TEST_F(TidewickCommand, DisconnectGivesBackTheUsersOwnSettings) {
    const char* raw = R"({"model": "opus", "hooks": {"Stop": [{"hooks": [{"type": "command",
        "command": "say done"}]}]}})";
    const std::string mine = JSONValue::parse(raw).pretty() + "\n";
    File::writeAtomically(settings(), mine, 0600);

    // Asked and declined: nothing happens.
    auto declined = programs.succeeded({"connect", "claude"}, "n\n");
    EXPECT_NE(declined.out.find("Apply these changes? [y/N]"), std::string::npos);
    EXPECT_NE(declined.out.find("Nothing was changed."), std::string::npos);
    EXPECT_EQ(File::read(settings()), mine);
    // The preview leaves out what is far from any change (the condensing itself is
    // ChangeView's to test).
    EXPECT_EQ(declined.out.find("\"model\""), std::string::npos) << declined.out;
    (void)programs.succeeded({"connect", "claude"}, "y\n");
    EXPECT_NE(File::read(settings()).find("tidewick-hook"), std::string::npos);

    (void)programs.succeeded({"disconnect", "claude"}, "yes\n");
    EXPECT_EQ(File::read(settings()), mine);
}

TEST_F(TidewickCommand, ConnectingWhileTidewicksFolderIsFullSaysWhatHappened) {
    // Tidewick's home on a small disk that holds its hook command; the agent's settings
    // linked onto another file system.
    testing::SmallFileSystem disk(File::read(testing::TidewickPrograms::hookPath).size() +
                                  256 * 1024);
    if (!disk.mounted())
        GTEST_SKIP() << "this test mounts a small tmpfs, which needs privileges";
    const std::string tidewickHome = disk.path();
    programs.setVariable("TIDEWICK_HOME", tidewickHome);
    const TidewickPaths paths(tidewickHome);
    TemporaryDirectory elsewhere;
    const std::string real = File::join(elsewhere.path(), "settings.json");
    const std::string mine = "{\n  \"model\": \"opus\"\n}\n";
    File::writeAtomically(real, mine, 0644);
    const std::string linked = File::join(tidewickHome, ".claude/settings.json");
    fs::create_directories(File::parent(linked));
    ASSERT_EQ(::symlink(real.c_str(), linked.c_str()), 0);
    paths.ensureDirectories();
    File::writeAtomically(paths.helperPath(), File::read(testing::TidewickPrograms::hookPath),
                          0755);
    const std::string backups = File::join(paths.backupsDirectory(), "claude");
    fs::create_directories(backups);
    // Full but for one page: the backup fits, the record of the connection does not.
    const std::string spare = File::join(tidewickHome, "spare");
    File::writeAtomically(spare, "x", 0600);
    disk.fill("filler");
    ASSERT_EQ(::unlink(spare.c_str()), 0);

    const auto before = run({"status", "--json"});
    EXPECT_EQ(programs.fails({"connect", "claude", "--yes"}, 1),
              "Tidewick couldn't write " + paths.connectionsFile() +
                  ": No space left on device. It put " + linked +
                  " back as it was, so nothing was changed.\n");
    EXPECT_EQ(File::read(real), mine);
    EXPECT_TRUE(File::listFolder(backups).empty());
    // `tidewick status` agrees: Claude Code is exactly as it was.
    const auto after = programs.succeeded({"status", "--json"});
    EXPECT_EQ(after.out, before.out);
    EXPECT_EQ(*(*JSONValue::parse(after.out).arrayValue())[0].get("state")->stringValue(),
              "disconnected");

    // With room again, the same command connects.
    ASSERT_EQ(::unlink(File::join(tidewickHome, "filler").c_str()), 0);
    (void)programs.succeeded({"connect", "claude", "--yes"});
    EXPECT_NE(File::read(real).find("tidewick-hook"), std::string::npos);
}

TEST_F(TidewickCommand, ExitStatusesForRefusalsAndUsageErrors) {
    EXPECT_EQ(programs.fails({"connect", "vim", "--yes"}, 2),
              "Unknown agent \"vim\". Choose one of: claude, codex, cursor, antigravity.\n");
    const std::vector<std::vector<std::string>> usages = {
        {"disconnect", "Claude"}, {}, {"connect"}, {"status", "--bogus"}, {"launch"}};
    for (const auto& usage : usages)
        EXPECT_EQ(run(usage).status, 2) << (usage.empty() ? "" : usage[0]);
    for (const char* command : {"connect", "disconnect"}) {
        auto help = programs.succeeded({command, "--help"});
        EXPECT_NE(help.out.find("Usage:"), std::string::npos) << help.out;
    }
    auto version = programs.succeeded({"--version"});
    EXPECT_EQ(version.out, "tidewick 0.1.0\n");

    // No folder and no command on PATH: not installed, a refusal (1) with its sentence.
    EXPECT_EQ(programs.fails({"connect", "cursor", "--yes"}, 1),
              "Cursor does not appear to be installed.\n");

    // The same agent found through its command on PATH connects.
    File::writeAtomically(File::join(emptyPath.path(), "bin/cursor-agent"), "#!/bin/sh\n", 0755);
    (void)programs.succeeded({"connect", "cursor", "--gate-commands", "--yes"});
    EXPECT_NE(File::read(File::join(home(), ".cursor/hooks.json")).find("beforeShellExecution"),
              std::string::npos);
}

} // namespace
} // namespace tidewick
