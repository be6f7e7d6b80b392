#include "install/ConnectionManager.h"

#include "foundation/File.h"
#include "install/CodexTrust.h"
#include "install/ConnectionError.h"
#include "install/HookCatalog.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tidewick {
namespace {

namespace fs = std::filesystem;
using testing::modeOf;
using testing::put;

struct FakeDetector final : AgentDetector {
    std::set<AgentKind> installed{allAgentKinds.begin(), allAgentKinds.end()};
    std::optional<std::string> detect(AgentKind agent) const override {
        return installed.contains(agent)
                   ? std::optional("folder /fake/" + std::string(rawValue(agent)))
                   : std::nullopt;
    }
};

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names = File::listFolder(directory);
    std::sort(names.begin(), names.end());
    return names;
}

// The sentence `action` throws, or "no error".
template <typename Action> std::string errorOf(Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

const char* claudeUserSettings = R"json({"permissions": {"allow": ["Bash(git status)"]}, "hooks":
  {"PreToolUse": [{"matcher": "Bash", "hooks": [{"type": "command", "command": "~/guard.sh"}]}]},
  "theme": "dark"}
)json";

class ConnectionManagerTest : public ::testing::Test {
protected:
    void SetUp() override { put(bundled, "#!/bin/sh\nexit 0\n", 0755); }

    ConnectionManager manager() {
        return ConnectionManager(TidewickPaths(home), home, detector, bundled,
                                 [this] { return clockNow; });
    }
    ConnectionState state(const ConnectionManager& connections, AgentKind agent) const {
        return connections.status(agent, GateCommands::off).state;
    }
    std::string backups() const {
        return File::join(TidewickPaths(home).backupsDirectory(), "claude");
    }

    TemporaryDirectory dir;
    const std::string home = dir.path();
    const std::string bundled = File::join(home, "bundle/tidewick-hook");
    const std::string settings = File::join(home, ".claude/settings.json");
    const std::string helper = TidewickPaths(home).helperPath();
    std::shared_ptr<FakeDetector> detector = std::make_shared<FakeDetector>();
    Date clockNow = dateFromSeconds(1772357400); // 2026-03-01T09:30:00Z
};

// The user keeps their settings in a dotfiles folder and links to them.
TEST_F(ConnectionManagerTest, ConnectAndDisconnectASymlinkedClaudeSettingsFile) {
    const std::string target = File::join(home, "dotfiles/claude/settings.json");
    put(target, claudeUserSettings, 0640);
    File::makeDirectories(File::parent(settings), 0700);
    fs::create_symlink("../dotfiles/claude/settings.json", settings);
    auto connections = manager();
    ConfigChange preview = connections.previewConnect(AgentKind::claude, GateCommands::off);
    EXPECT_EQ(File::read(target), claudeUserSettings) << "a preview writes nothing";
    EXPECT_FALSE(fs::exists(helper));
    EXPECT_EQ(preview.after, JSONValue::parse(preview.after).pretty() + "\n");
    EXPECT_EQ(preview.addedEvents, HookCatalog::installedEvents(AgentKind::claude));

    ConfigChange change = connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(fs::is_symlink(settings));
    EXPECT_EQ(File::read(target), preview.after);
    EXPECT_EQ(modeOf(target), 0640);
    EXPECT_EQ(change.backup, File::join(backups(), "2026-03-01T09-30-00Z-settings.json"));
    EXPECT_EQ(File::read(change.backup.value()), claudeUserSettings);
    EXPECT_EQ(modeOf(change.backup.value()), 0600);
    EXPECT_EQ(modeOf(helper), 0755);
    EXPECT_FALSE(connections.record(AgentKind::claude).value().createdFile);

    // Connecting again changes nothing, makes no second backup and leaves an
    // unchanged helper alone (same inode); a different bundled one replaces it.
    auto inode = [&] {
        struct stat info {};
        EXPECT_EQ(::stat(helper.c_str(), &info), 0);
        return info.st_ino;
    };
    const auto helperInode = inode();
    clockNow = addSeconds(clockNow, 60);
    ConfigChange again = connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(again.isNoChange());
    EXPECT_FALSE(again.backup);
    EXPECT_EQ(inode(), helperInode);
    put(bundled, "#!/bin/sh\nexit 1\n", 0755);
    connections.installHelperIfNeeded();
    EXPECT_EQ(File::read(helper), "#!/bin/sh\nexit 1\n");

    ConfigChange removal = connections.disconnect(AgentKind::claude);
    EXPECT_EQ(removal.removedEvents, HookCatalog::installedEvents(AgentKind::claude));
    EXPECT_TRUE(fs::is_symlink(settings));
    EXPECT_EQ(File::read(target), JSONValue::parse(claudeUserSettings).pretty() + "\n");
    EXPECT_EQ(modeOf(target), 0640);
    EXPECT_FALSE(connections.record(AgentKind::claude));
    EXPECT_TRUE(connections.disconnect(AgentKind::claude).isNoChange());
    EXPECT_EQ(namesIn(backups()).size(), 2u);
}

TEST_F(ConnectionManagerTest, RecordsSurviveAndAFileTidewickCreatedIsDeleted) {
    const std::string path = File::join(home, ".cursor/hooks.json");
    {
        auto connections = manager();
        ConfigChange change = connections.connect(AgentKind::cursor, GateCommands::on);
        EXPECT_FALSE(change.fileExisted);
        EXPECT_FALSE(change.backup);
        EXPECT_EQ(modeOf(File::join(home, ".cursor")), 0700);
        // Reconnecting keeps the first answer to "who created the file" and when.
        clockNow = addSeconds(clockNow, 3600);
        (void)connections.connect(AgentKind::cursor, GateCommands::on);
    }
    // A new manager reads connections.json back, gating choice included: the
    // nine gated events are expected, so removing one shows up as missing.
    auto connections = manager();
    auto record = connections.record(AgentKind::cursor);
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->createdFile);
    EXPECT_EQ(record->gateCommands, GateCommands::on);
    EXPECT_EQ(record->connectedAt, addSeconds(clockNow, -3600));
    JSONValue document = JSONValue::parse(File::read(path));
    document.get("hooks")->remove("beforeMCPExecution");
    put(path, document.pretty());
    EXPECT_EQ(state(connections, AgentKind::cursor),
              ConnectionState::needsReconnect({"beforeMCPExecution"}));

    EXPECT_TRUE(connections.previewDisconnect(AgentKind::cursor).deletesFile);
    ConfigChange removal = connections.disconnect(AgentKind::cursor);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(File::read(removal.backup.value()), document.pretty());

    // A file the user had is never deleted, even when nothing else is left in it.
    put(path, "{}\n");
    (void)connections.connect(AgentKind::cursor, GateCommands::off);
    EXPECT_FALSE(connections.previewDisconnect(AgentKind::cursor).deletesFile);
    (void)connections.disconnect(AgentKind::cursor);
    EXPECT_EQ(File::read(path), "{\n  \"version\": 1,\n  \"hooks\": {}\n}\n");

    // A damaged connections.json: unknown agents and entries that are not objects are passed
    // over; members mistyped or out of range (a date the clock cannot hold) keep their defaults.
    put(TidewickPaths(home).connectionsFile(),
        R"({"vim":{"createdFile":true},"codex":3,)"
        R"("claude":{"connectedAt":1e300,"createdFile":true,"gateCommands":"on"}})");
    auto damaged = manager();
    EXPECT_FALSE(damaged.record(AgentKind::codex));
    ASSERT_TRUE(damaged.record(AgentKind::claude));
    EXPECT_EQ(damaged.record(AgentKind::claude)->connectedAt, Date());
    EXPECT_TRUE(damaged.record(AgentKind::claude)->createdFile);
    EXPECT_EQ(damaged.record(AgentKind::claude)->gateCommands, GateCommands::off);
}

TEST_F(ConnectionManagerTest, RefusesAbsentAgentsAndFilesItCannotSafelyRead) {
    auto connections = manager();
    detector->installed.clear();
    auto sentence = [&] {
        return errorOf([&] { (void)connections.connect(AgentKind::claude, {}); });
    };
    EXPECT_EQ(sentence(), "Claude Code does not appear to be installed.");
    EXPECT_EQ(state(connections, AgentKind::claude), ConnectionState::notInstalled());
    // Without a helper to install nothing is connected and no file is created.
    ConnectionManager without(TidewickPaths(home), home, detector, std::nullopt);
    EXPECT_EQ(errorOf([&] { without.installHelperIfNeeded(); }),
              "The Tidewick helper isn't available.");
    detector->installed = {AgentKind::codex};
    EXPECT_THROW((void)without.connect(AgentKind::codex, GateCommands::off), ConnectionError);
    EXPECT_FALSE(fs::exists(File::join(home, ".codex/hooks.json")));

    // An existing configuration file is evidence enough. One of the wrong shape
    // is left byte for byte, without a backup or a record.
    const std::string array = "[\n  {\"hooks\": {}}\n]\n";
    put(settings, array);
    EXPECT_EQ(sentence(),
              "settings.json is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_EQ(File::read(settings), array);
    EXPECT_FALSE(fs::exists(backups()));
    EXPECT_FALSE(connections.record(AgentKind::claude));

    const std::string cannot = "Tidewick can't safely read " + settings + " (";
    put(settings, "{\"a\": tru}");
    EXPECT_TRUE(sentence().starts_with(cannot + "it isn't valid JSON \u2014 ")) << sentence();
    EXPECT_TRUE(sentence().ends_with(" at byte 6), so it left the file alone.")) << sentence();
    fs::remove(settings);
    fs::create_directories(settings);
    EXPECT_EQ(sentence(), cannot + "it can't be opened), so it left the file alone.");
    EXPECT_EQ(state(connections, AgentKind::claude),
              ConnectionState::unreadable("it can't be opened"));
    EXPECT_TRUE(fs::is_directory(settings));

    // A file of nothing but white space counts as absent, yet it did exist.
    fs::remove(settings);
    put(settings, "\n  \t");
    ConfigChange change = connections.previewConnect(AgentKind::claude, GateCommands::off);
    EXPECT_TRUE(change.fileExisted);
    EXPECT_EQ(change.before, "\n  \t");
    EXPECT_TRUE(connections.previewDisconnect(AgentKind::claude).isNoChange());
}

TEST_F(ConnectionManagerTest, TheTwentyFirstBackupRemovesTheOldest) {
    put(settings, claudeUserSettings);
    auto connections = manager();
    std::vector<std::string> made;
    for (int i = 0; i < 21; ++i) {
        clockNow = addSeconds(clockNow, 61);
        ConfigChange change = i % 2 == 0 ? connections.connect(AgentKind::claude, {})
                                         : connections.disconnect(AgentKind::claude);
        made.push_back(File::lastComponent(change.backup.value()));
    }
    EXPECT_EQ(made.front(), "2026-03-01T09-31-01Z-settings.json");
    EXPECT_EQ(namesIn(backups()), std::vector<std::string>(made.begin() + 1, made.end()));

    // Two changes within one second keep both backups, in order.
    const std::string first = connections.disconnect(AgentKind::claude).backup.value();
    const std::string second = connections.connect(AgentKind::claude, {}).backup.value();
    EXPECT_LT(File::lastComponent(first), File::lastComponent(second));
    EXPECT_NE(File::read(first).find("tidewick-hook"), std::string::npos);
    EXPECT_EQ(File::read(second).find("tidewick-hook"), std::string::npos);
    EXPECT_EQ(namesIn(backups()).size(), 20u);
    EXPECT_EQ(namesIn(backups()).back(), File::lastComponent(second));
}

TEST_F(ConnectionManagerTest, AFailedWriteLeavesTheOriginalInPlace) {
    // Permission bits do not stop root, so make the temporary file impossible
    // instead: its name would exceed the limit next to a target just under it.
    const std::string longName = std::string(245, 'x') + ".json";
    const std::string target = File::join(home, "dotfiles/" + longName);
    File::makeDirectories(File::parent(target), 0700);
    std::ofstream(target) << claudeUserSettings; // an atomic write could not make this name either
    File::makeDirectories(File::parent(settings), 0700);
    fs::create_symlink(target, settings);
    auto connections = manager();
    EXPECT_EQ(errorOf([&] { (void)connections.connect(AgentKind::claude, {}); }),
              "Tidewick couldn't write " + target + ": File name too long. Nothing was changed.");
    EXPECT_EQ(File::read(target), claudeUserSettings);
    EXPECT_EQ(namesIn(File::parent(target)), std::vector<std::string>{longName});
    EXPECT_FALSE(connections.record(AgentKind::claude));

    // A regular file where a folder should be stops the write too, untouched.
    const std::string blocker = File::join(home, ".codex");
    put(blocker, "not a folder\n");
    EXPECT_EQ(errorOf([&] { (void)connections.connect(AgentKind::codex, {}); }),
              "Tidewick couldn't write " + blocker +
                  "/hooks.json: Not a directory. Nothing was changed.");
    EXPECT_EQ(File::read(blocker), "not a folder\n");
}

TEST_F(ConnectionManagerTest, StatusReportsSwitchesNotesAndMissingPieces) {
    auto connections = manager();
    ConnectionStatus codex = connections.status(AgentKind::codex, GateCommands::off);
    EXPECT_EQ(codex.state, ConnectionState::disconnected());
    EXPECT_TRUE(codex.notes.empty());

    // A link whose target does not exist yet is written through.
    fs::create_directories(File::join(home, ".codex"));
    fs::create_symlink(File::join(home, "codex-hooks.json"), codex.configPath);
    EXPECT_FALSE(connections.connect(AgentKind::codex, GateCommands::off).fileExisted);
    EXPECT_TRUE(fs::is_symlink(codex.configPath));
    EXPECT_TRUE(fs::exists(File::join(home, "codex-hooks.json")));

    // The last line of config.toml wins; Codex runs Tidewick's hooks only once the user
    // has approved each of them where it stands, which config.toml records.
    const std::string off = "Hooks are turned off in ~/.codex/config.toml ([features] ";
    const std::string hooksFile = File::join(File::resolveLinks(File::join(home, ".codex")), "hooks.json");
    std::string approvals;
    for (const CodexTrust::Hook& hook : CodexTrust::hooks(JSONValue::parse(File::read(codex.configPath))))
        approvals += "[hooks.state." + JSONValue::quote(CodexTrust::key(hooksFile, hook.place)) +
                     "]\ntrusted_hash = \"" + hook.hash + "\"\n";
    const std::vector<std::string> note{ConnectionManager::codexApprovalNote};
    struct Row {
        std::string toml;
        ConnectionState state;
        std::vector<std::string> notes;
    };
    for (const Row& row : std::vector<Row>{
             {"[features]\nhooks = false # off\n",
              ConnectionState::hooksDisabled(off + "hooks = false). Set it to true."), {}},
             {"[features]\nhooks = false\nhooks = true\ncodex_hooks = false\n",
              ConnectionState::hooksDisabled(off + "codex_hooks = false). Set it to true."), {}},
             {"[features]\nhooks = true\n", ConnectionState::awaitingApproval(), note},
             {approvals.substr(0, approvals.rfind("[hooks")), ConnectionState::awaitingApproval(), note},
             {"[features]\nhooks = true\n" + approvals, ConnectionState::connected(), {}}}) {
        SCOPED_TRACE(row.toml);
        put(File::join(home, ".codex/config.toml"), row.toml);
        codex = connections.status(AgentKind::codex, GateCommands::off);
        EXPECT_EQ(codex.state, row.state);
        EXPECT_EQ(codex.notes, row.notes);
    }
    // Disconnecting names nothing: the user has no hooks of their own in the file.
    EXPECT_TRUE(connections.previewDisconnect(AgentKind::codex).movedApprovedHooks.empty());

    put(settings, R"({"disableAllHooks": true})");
    (void)connections.connect(AgentKind::claude, GateCommands::off);
    EXPECT_EQ(state(connections, AgentKind::claude),
              ConnectionState::hooksDisabled(
                  "Hooks are turned off in Claude Code's settings (disableAllHooks)."));

    (void)connections.connect(AgentKind::antigravity, GateCommands::off);
    fs::remove(helper);
    auto all = connections.allStatuses();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[2].state, ConnectionState::disconnected()) << "cursor";
    EXPECT_EQ(all[3].state, ConnectionState::needsReconnect({"helper"})) << "antigravity";
}

TEST(LinuxAgentDetector, FolderUnderHomeOrCommandOnPath) {
    TemporaryDirectory dir;
    const std::string home = File::join(dir.path(), "home");
    const std::string bin = File::join(dir.path(), "bin");
    const std::string other = File::join(dir.path(), "other");
    fs::create_directories(File::join(home, ".gemini"));
    put(File::join(home, ".codex"), "a file, not the folder", 0644);
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
