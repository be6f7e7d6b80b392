#include "install/ConnectionManager.h"

#include "foundation/File.h"
#include "install/ConnectionError.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"
#include "install/MatcherGroupEditor.h"
#include "testing/TemporaryDirectory.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {
namespace {

namespace fs = std::filesystem;

class FakeDetector final : public AgentDetector {
public:
    std::set<AgentKind> installed;
    std::optional<std::string> detect(AgentKind agent) const override {
        if (installed.contains(agent))
            return "folder /fake/" + std::string(rawValue(agent));
        return std::nullopt;
    }
};

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

void put(const std::string& path, const std::string& text, mode_t mode = 0644) {
    File::makeDirectories(File::parent(path), 0700);
    File::writeAtomically(path, text, mode);
}

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    if (!fs::exists(directory))
        return names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

const char* userSettings = R"json({
  "permissions": {"allow": ["Bash(git status)"]},
  "hooks": {"PreToolUse": [{"matcher": "Bash", "hooks": [{"type": "command", "command": "~/guard.sh"}]}]},
  "theme": "dark"
}
)json";

class ConnectionManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        home = dir.path();
        bundled = File::join(home, "bundle/tidewick-hook");
        put(bundled, "#!/bin/sh\nexit 0\n", 0755);
        detector->installed = {AgentKind::claude, AgentKind::codex, AgentKind::cursor,
                               AgentKind::antigravity};
    }

    ConnectionManager manager() {
        return ConnectionManager(TidewickPaths(home), home, detector, bundled,
                                 [this] { return clockNow; });
    }

    std::string claudeSettings() const { return File::join(home, ".claude/settings.json"); }
    std::string backups(AgentKind agent) const {
        return File::join(TidewickPaths(home).backupsDirectory(), rawValue(agent));
    }

    TemporaryDirectory dir;
    std::string home;
    std::string bundled;
    std::shared_ptr<FakeDetector> detector = std::make_shared<FakeDetector>();
    Date clockNow = dateFromSeconds(1772357400); // 2026-03-01T09:30:00Z
};

TEST_F(ConnectionManagerTest, ConnectAndDisconnectAUsersClaudeSettings) {
    put(claudeSettings(), userSettings, 0600);
    auto connections = manager();

    ConfigChange preview = connections.previewConnect(AgentKind::claude, GateCommands::off);
    EXPECT_EQ(File::read(claudeSettings()), userSettings) << "a preview writes nothing";
    EXPECT_TRUE(preview.fileExisted);
    EXPECT_EQ(preview.before, userSettings);
    EXPECT_EQ(preview.addedEvents, HookCatalog::installedEvents(AgentKind::claude));
    EXPECT_TRUE(preview.removedEvents.empty());
    EXPECT_FALSE(preview.isNoChange());
    EXPECT_EQ(preview.after.back(), '\n');
    EXPECT_NE(preview.after.find(connections.hookCommand(AgentKind::claude, "Stop")),
              std::string::npos);
    EXPECT_FALSE(fs::exists(TidewickPaths(home).helperPath()));

    ConfigChange change = connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_EQ(File::read(claudeSettings()), preview.after);
    EXPECT_EQ(modeOf(claudeSettings()), 0600u);
    ASSERT_TRUE(change.backup);
    EXPECT_EQ(*change.backup,
              File::join(backups(AgentKind::claude), "2026-03-01T09-30-00Z-settings.json"));
    EXPECT_EQ(File::read(*change.backup), userSettings);
    EXPECT_EQ(modeOf(*change.backup), 0600u);
    // The hook command is installed, executable, and what every entry runs.
    const std::string helper = TidewickPaths(home).helperPath();
    EXPECT_EQ(File::read(helper), File::read(bundled));
    EXPECT_EQ(modeOf(helper), 0755u);
    auto record = connections.record(AgentKind::claude);
    ASSERT_TRUE(record);
    EXPECT_FALSE(record->createdFile);
    EXPECT_EQ(connections.status(AgentKind::claude, GateCommands::off).state,
              ConnectionState::connected());

    // Connecting again changes nothing and makes no second backup.
    clockNow = addSeconds(clockNow, 60);
    ConfigChange again = connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(again.isNoChange());
    EXPECT_FALSE(again.backup);
    EXPECT_EQ(namesIn(backups(AgentKind::claude)).size(), 1u);

    ConfigChange removal = connections.disconnect(AgentKind::claude);
    EXPECT_EQ(removal.removedEvents, HookCatalog::installedEvents(AgentKind::claude));
    EXPECT_EQ(File::read(claudeSettings()), JSONValue::parse(userSettings).pretty() + "\n");
    EXPECT_EQ(modeOf(claudeSettings()), 0600u);
    EXPECT_FALSE(connections.record(AgentKind::claude));
    EXPECT_EQ(connections.status(AgentKind::claude, GateCommands::off).state,
              ConnectionState::disconnected());
    EXPECT_EQ(namesIn(backups(AgentKind::claude)).size(), 2u);

    // Disconnecting what is not connected is no change and no backup.
    EXPECT_TRUE(connections.disconnect(AgentKind::claude).isNoChange());
    EXPECT_EQ(namesIn(backups(AgentKind::claude)).size(), 2u);
}

TEST_F(ConnectionManagerTest, AFileTidewickCreatedIsDeletedOnDisconnect) {
    {
        auto connections = manager();
        ConfigChange change = connections.connect(AgentKind::cursor, GateCommands::on);
        EXPECT_FALSE(change.fileExisted);
        EXPECT_FALSE(change.backup);
        EXPECT_EQ(change.addedEvents.size(), 9u);
        EXPECT_EQ(modeOf(File::join(home, ".cursor")), 0700u);
        // Reconnecting keeps the first answer to "who created the file".
        clockNow = addSeconds(clockNow, 3600);
        (void)connections.connect(AgentKind::cursor, GateCommands::on);
        ASSERT_TRUE(connections.record(AgentKind::cursor));
        EXPECT_TRUE(connections.record(AgentKind::cursor)->createdFile);
        EXPECT_EQ(connections.record(AgentKind::cursor)->connectedAt, addSeconds(clockNow, -3600));
    }
    // A new manager reads the records back, gating choice included: the nine
    // gated events are expected, so removing one shows up as missing.
    auto connections = manager();
    ASSERT_TRUE(connections.record(AgentKind::cursor));
    EXPECT_EQ(connections.record(AgentKind::cursor)->gateCommands, GateCommands::on);
    const std::string path = File::join(home, ".cursor/hooks.json");
    JSONValue document = JSONValue::parse(File::read(path));
    document.get("hooks")->remove("beforeMCPExecution");
    put(path, document.pretty());
    EXPECT_EQ(connections.status(AgentKind::cursor, GateCommands::off).state,
              ConnectionState::needsReconnect({"beforeMCPExecution"}));

    ConfigChange preview = connections.previewDisconnect(AgentKind::cursor);
    EXPECT_TRUE(preview.deletesFile);
    ConfigChange removal = connections.disconnect(AgentKind::cursor);
    EXPECT_FALSE(fs::exists(path));
    ASSERT_TRUE(removal.backup);
    EXPECT_EQ(File::read(*removal.backup), document.pretty());

    // A file the user had is never deleted, even when nothing else is left in it.
    put(path, "{}\n");
    (void)connections.connect(AgentKind::cursor, GateCommands::off);
    EXPECT_FALSE(connections.previewDisconnect(AgentKind::cursor).deletesFile);
    (void)connections.disconnect(AgentKind::cursor);
    EXPECT_EQ(File::read(path), "{\n  \"version\": 1,\n  \"hooks\": {}\n}\n");
}

TEST_F(ConnectionManagerTest, RefusesAbsentAgentsAndFilesItCannotRead) {
    auto connections = manager();
    detector->installed.clear();
    auto sentence = [&](AgentKind agent) {
        try {
            (void)connections.previewConnect(agent, GateCommands::off);
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(sentence(AgentKind::cursor), "Cursor does not appear to be installed.");
    EXPECT_EQ(sentence(AgentKind::claude), "Claude Code does not appear to be installed.");
    EXPECT_EQ(connections.status(AgentKind::claude, GateCommands::off).state,
              ConnectionState::notInstalled());
    // An existing configuration file is evidence enough.
    put(claudeSettings(), "{}");
    EXPECT_EQ(sentence(AgentKind::claude), "no error");

    put(claudeSettings(), "{\"a\": tru}");
    const std::string expected =
        "Tidewick can't safely read " + claudeSettings() + " (it isn't valid JSON \u2014 ";
    EXPECT_EQ(sentence(AgentKind::claude).substr(0, expected.size()), expected);
    EXPECT_NE(sentence(AgentKind::claude).find(" at byte 6), so it left the file alone."),
              std::string::npos);
    auto state = connections.status(AgentKind::claude, GateCommands::off).state;
    EXPECT_EQ(state.stateCase(), ConnectionState::Case::unreadable);
    EXPECT_TRUE(state.reason().starts_with("it isn't valid JSON \u2014 ")) << state.reason();

    put(claudeSettings(), "{\"a\": \"\xff\"}");
    EXPECT_EQ(sentence(AgentKind::claude), "Tidewick can't safely read " + claudeSettings() +
                                               " (File is not UTF-8), so it left the file alone.");

    fs::remove(claudeSettings());
    fs::create_directories(claudeSettings());
    EXPECT_EQ(sentence(AgentKind::claude), "Tidewick can't safely read " + claudeSettings() +
                                               " (it can't be opened), so it left the file alone.");
    EXPECT_THROW((void)connections.connect(AgentKind::claude, GateCommands::off), ConnectionError);
    EXPECT_TRUE(fs::is_directory(claudeSettings()));
}

TEST_F(ConnectionManagerTest, WrongShapeAndBlankFiles) {
    auto connections = manager();
    const std::string array = "[\n  {\"hooks\": {}}\n]\n";
    put(claudeSettings(), array);
    try {
        (void)connections.connect(AgentKind::claude, GateCommands::off);
        FAIL() << "an array root was accepted";
    } catch (const HookConfigError& error) {
        EXPECT_STREQ(error.what(),
                     "settings.json is not the shape Tidewick expects, so it was left untouched.");
    }
    EXPECT_EQ(File::read(claudeSettings()), array);
    EXPECT_TRUE(namesIn(backups(AgentKind::claude)).empty());
    EXPECT_FALSE(connections.record(AgentKind::claude));

    // A file of nothing but white space counts as absent, yet it did exist.
    put(claudeSettings(), "\n  \t");
    ConfigChange change = connections.previewConnect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(change.fileExisted);
    EXPECT_EQ(change.before, "\n  \t");
    EXPECT_EQ(JSONValue::parse(change.after),
              MatcherGroupEditor(MatcherGroupEditor::Flavor::claudeCode)
                  .install(std::nullopt, HookCatalog::specs(AgentKind::claude, GateCommands::off),
                           [&](const std::string& e) {
                               return connections.hookCommand(AgentKind::claude, e);
                           }));
    EXPECT_TRUE(connections.previewDisconnect(AgentKind::claude).isNoChange());
}

TEST_F(ConnectionManagerTest, TheTwentyFirstBackupRemovesTheOldest) {
    put(claudeSettings(), userSettings);
    auto connections = manager();
    std::vector<std::string> made;
    for (int i = 0; i < 21; ++i) {
        clockNow = addSeconds(clockNow, 61);
        ConfigChange change = i % 2 == 0 ? connections.connect(AgentKind::claude, GateCommands::off)
                                         : connections.disconnect(AgentKind::claude);
        ASSERT_TRUE(change.backup);
        made.push_back(File::lastComponent(*change.backup));
    }
    std::vector<std::string> kept = namesIn(backups(AgentKind::claude));
    ASSERT_EQ(kept.size(), 20u);
    EXPECT_EQ(kept, std::vector<std::string>(made.begin() + 1, made.end()));
    EXPECT_EQ(made.front(), "2026-03-01T09-31-01Z-settings.json");

    // Two changes within one second keep both backups, in order.
    const std::string first = *connections.disconnect(AgentKind::claude).backup;
    const std::string second = *connections.connect(AgentKind::claude, GateCommands::off).backup;
    EXPECT_NE(first, second);
    EXPECT_LT(File::lastComponent(first), File::lastComponent(second));
    EXPECT_NE(File::read(first).find("tidewick-hook"), std::string::npos);
    EXPECT_EQ(File::read(second).find("tidewick-hook"), std::string::npos);
    kept = namesIn(backups(AgentKind::claude));
    EXPECT_EQ(kept.size(), 20u);
    EXPECT_EQ(kept.back(), File::lastComponent(second));
}

TEST_F(ConnectionManagerTest, EditsASymlinkedFileThroughItsTarget) {
    const std::string target = File::join(home, "dotfiles/claude/settings.json");
    put(target, userSettings, 0640);
    File::makeDirectories(File::join(home, ".claude"), 0700);
    fs::create_symlink("../dotfiles/claude/settings.json", claudeSettings());
    auto connections = manager();

    ConfigChange change = connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(fs::is_symlink(claudeSettings()));
    EXPECT_EQ(File::read(target), change.after);
    EXPECT_EQ(modeOf(target), 0640u);
    EXPECT_EQ(File::read(*change.backup), userSettings);
    EXPECT_EQ(connections.status(AgentKind::claude, GateCommands::off).state,
              ConnectionState::connected());

    (void)connections.disconnect(AgentKind::claude);
    EXPECT_TRUE(fs::is_symlink(claudeSettings()));
    EXPECT_EQ(JSONValue::parse(File::read(target)), JSONValue::parse(userSettings));
    EXPECT_EQ(modeOf(target), 0640u);

    // A link whose target does not exist yet is written through as well.
    fs::create_directories(File::join(home, ".codex"));
    fs::create_symlink(File::join(home, "dotfiles/codex-hooks.json"),
                       File::join(home, ".codex/hooks.json"));
    ConfigChange codex = connections.connect(AgentKind::codex, GateCommands::off);
    EXPECT_FALSE(codex.fileExisted);
    EXPECT_TRUE(fs::is_symlink(File::join(home, ".codex/hooks.json")));
    EXPECT_EQ(File::read(File::join(home, "dotfiles/codex-hooks.json")), codex.after);
}

TEST_F(ConnectionManagerTest, AFailedWriteLeavesTheOriginalInPlace) {
    // Running as root, permission bits would not stop the write, so make the
    // temporary file impossible instead: its name would exceed the file-name
    // limit next to a target whose own name is just under it.
    const std::string longName = std::string(245, 'x') + ".json";
    const std::string target = File::join(home, "dotfiles/" + longName);
    File::makeDirectories(File::parent(target), 0700);
    std::ofstream(target) << userSettings;
    File::makeDirectories(File::join(home, ".claude"), 0700);
    fs::create_symlink(target, claudeSettings());
    auto connections = manager();
    try {
        (void)connections.connect(AgentKind::claude, GateCommands::off);
        FAIL() << "the write went through";
    } catch (const ConnectionError& error) {
        EXPECT_EQ(error.errorCase(), ConnectionError::Case::writeFailed);
        EXPECT_EQ(std::string(error.what()), "Tidewick couldn't write " + target +
                                                 ": File name too long. Nothing was changed.");
    }
    EXPECT_EQ(File::read(target), userSettings);
    EXPECT_EQ(namesIn(File::join(home, "dotfiles")), std::vector<std::string>{longName});
    EXPECT_FALSE(connections.record(AgentKind::claude));

    // A path component that is a regular file stops the write too, and the
    // file in the way is left exactly as it was.
    const std::string blocker = File::join(home, ".codex");
    put(blocker, "not a folder\n");
    try {
        (void)connections.connect(AgentKind::codex, GateCommands::off);
        FAIL() << "the write went through";
    } catch (const ConnectionError& error) {
        EXPECT_EQ(std::string(error.what()), "Tidewick couldn't write " +
                                                 File::join(blocker, "hooks.json") +
                                                 ": Not a directory. Nothing was changed.");
    }
    EXPECT_EQ(File::read(blocker), "not a folder\n");
}

TEST_F(ConnectionManagerTest, StatusReportsSwitchesNotesAndMissingPieces) {
    auto connections = manager();
    EXPECT_EQ(connections.status(AgentKind::codex, GateCommands::off).state,
              ConnectionState::disconnected());
    EXPECT_EQ(connections.status(AgentKind::codex, GateCommands::off).evidence,
              "folder /fake/codex");
    EXPECT_TRUE(connections.status(AgentKind::codex, GateCommands::off).notes.empty());

    (void)connections.connect(AgentKind::codex, GateCommands::off);
    put(File::join(home, ".codex/config.toml"), "[features]\nhooks = false # off\n");
    ConnectionStatus codex = connections.status(AgentKind::codex, GateCommands::off);
    EXPECT_EQ(codex.state,
              ConnectionState::hooksDisabled("Hooks are turned off in ~/.codex/config.toml "
                                             "([features] hooks = false). Set it to true."));
    EXPECT_EQ(codex.notes,
              std::vector<std::string>{
                  "Codex needs your OK once. Open Codex, type /hooks and approve Tidewick."});
    EXPECT_EQ(codex.configPath, File::join(home, ".codex/hooks.json"));
    put(File::join(home, ".codex/config.toml"),
        "[features]\nhooks = false\nhooks = true\ncodex_hooks = false\n");
    EXPECT_EQ(connections.status(AgentKind::codex, GateCommands::off).state.reason(),
              "Hooks are turned off in ~/.codex/config.toml ([features] codex_hooks = false). Set "
              "it to true.");
    put(File::join(home, ".codex/config.toml"), "[features]\nhooks = true\n");
    codex = connections.status(AgentKind::codex, GateCommands::off);
    EXPECT_EQ(codex.state, ConnectionState::connected());
    EXPECT_EQ(codex.notes.size(), 1u);

    put(claudeSettings(), R"({"disableAllHooks": true})");
    (void)connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_EQ(connections.status(AgentKind::claude, GateCommands::off).state,
              ConnectionState::hooksDisabled(
                  "Hooks are turned off in Claude Code's settings (disableAllHooks)."));

    (void)connections.connect(AgentKind::antigravity, GateCommands::off);
    fs::remove(TidewickPaths(home).helperPath());
    EXPECT_EQ(connections.status(AgentKind::antigravity, GateCommands::off).state,
              ConnectionState::needsReconnect({"helper"}));
    auto all = connections.allStatuses({{AgentKind::cursor, GateCommands::on}});
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].kind, AgentKind::claude);
    EXPECT_EQ(all[3].kind, AgentKind::antigravity);
    EXPECT_EQ(all[2].state, ConnectionState::disconnected());
}

TEST_F(ConnectionManagerTest, HelperIsInstalledOnlyWhenMissingOrDifferent) {
    auto connections = manager();
    const std::string helper = TidewickPaths(home).helperPath();
    connections.installHelperIfNeeded();
    EXPECT_EQ(File::read(helper), "#!/bin/sh\nexit 0\n");
    EXPECT_EQ(modeOf(TidewickPaths(home).appSupport()), 0700u);

    // An unchanged helper is left alone (same inode); a different one is replaced.
    struct stat before {};
    ASSERT_EQ(::stat(helper.c_str(), &before), 0);
    connections.installHelperIfNeeded();
    struct stat after {};
    ASSERT_EQ(::stat(helper.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    put(bundled, "#!/bin/sh\nexit 1\n", 0755);
    connections.installHelperIfNeeded();
    EXPECT_EQ(File::read(helper), "#!/bin/sh\nexit 1\n");
    EXPECT_EQ(modeOf(helper), 0755u);

    ConnectionManager without(TidewickPaths(home), home, detector, std::nullopt);
    try {
        without.installHelperIfNeeded();
        FAIL() << "no helper, yet no error";
    } catch (const ConnectionError& error) {
        EXPECT_EQ(error.errorCase(), ConnectionError::Case::helperMissing);
        EXPECT_STREQ(error.what(), "The Tidewick helper isn't available.");
    }
    // Without a helper nothing is connected and the file is not created.
    EXPECT_THROW((void)without.connect(AgentKind::claude, GateCommands::off), ConnectionError);
    EXPECT_FALSE(fs::exists(claudeSettings()));
}

TEST(LinuxAgentDetector, FolderUnderHomeOrCommandOnPath) {
    TemporaryDirectory dir;
    const std::string home = File::join(dir.path(), "home");
    const std::string bin = File::join(dir.path(), "bin");
    const std::string other = File::join(dir.path(), "other");
    fs::create_directories(File::join(home, ".gemini"));
    put(File::join(home, ".codex"), "a file, not the folder");
    put(File::join(bin, "cursor"), "#!/bin/sh\n", 0755);
    put(File::join(bin, "codex"), "not executable", 0644);
    put(File::join(other, "claude"), "#!/bin/sh\n", 0755);

    LinuxAgentDetector detector(home, "::" + bin + ":" + other);
    EXPECT_EQ(detector.detect(AgentKind::antigravity), "folder " + File::join(home, ".gemini"));
    EXPECT_EQ(detector.detect(AgentKind::cursor), "command " + File::join(bin, "cursor"));
    EXPECT_EQ(detector.detect(AgentKind::claude), "command " + File::join(other, "claude"));
    EXPECT_FALSE(detector.detect(AgentKind::codex));
    // cursor-agent is preferred to the editor's own command.
    put(File::join(other, "cursor-agent"), "#!/bin/sh\n", 0755);
    EXPECT_EQ(detector.detect(AgentKind::cursor), "command " + File::join(other, "cursor-agent"));
    EXPECT_FALSE(LinuxAgentDetector(home, "").detect(AgentKind::claude));
}

} // namespace
} // namespace tidewick
