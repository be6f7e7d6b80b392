#include "service/TidewickSettings.h"

#include "foundation/File.h"
#include "service/ServiceTestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

TEST(TidewickSettings, DefaultsCoverEveryKeyInTheirOrder) {
    TidewickSettings defaults;
    JSONValue json = defaults.toJSON();
    std::vector<std::string> keys;
    for (const auto& pair : *json.objectPairs())
        keys.push_back(pair.first);
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "permissionTimeoutSeconds", "replyTimeoutSeconds", "gating", "quickReplies",
                        "systemNotificationsEnabled", "glowEnabled", "soundEnabled", "quietMode",
                        "alertChip", "allowKey", "denyKey", "launchAtLogin", "checkForUpdates"}));
    EXPECT_EQ(json.get("permissionTimeoutSeconds")->doubleValue(), 300);
    EXPECT_EQ(json.get("replyTimeoutSeconds")->doubleValue(), 3600);
    EXPECT_EQ(
        json.get("quickReplies")->compact(),
        R"(["Continue working.","Run the tests.","Fix the remaining errors.","Explain what you changed."])");
    EXPECT_EQ(json.get("allowKey")->compact(), R"("y")");
    EXPECT_EQ(json.get("denyKey")->compact(), R"("n")");
    EXPECT_EQ(json.get("checkForUpdates")->boolValue(), false);
    EXPECT_EQ(json.get("launchAtLogin")->boolValue(), false);
    EXPECT_EQ(json.get("quietMode")->boolValue(), false);
    EXPECT_EQ(json.get("systemNotificationsEnabled")->boolValue(), true);
    EXPECT_EQ(*json.get("gating"), GatingPolicy().toJSON());
    // What is written reads back the same, and an empty object gives the defaults.
    EXPECT_EQ(TidewickSettings::fromJSON(json), defaults);
    EXPECT_EQ(TidewickSettings::fromJSON(JSONValue::parse("{}")), defaults);
}

TEST(TidewickSettings, MissingOrMistypedKeysTakeTheirDefaults) {
    TidewickSettings read = TidewickSettings::fromJSON(JSONValue::parse(R"({
        "permissionTimeoutSeconds": 45.5, "replyTimeoutSeconds": -1,
        "gating": {"gateCommands": {"cursor": false, "vim": true}, "safePrefixes": ["make -n"],
                   "paused": true},
        "quickReplies": ["Go on.", 7, "Stop here."], "soundEnabled": "no", "quietMode": true,
        "alertChip": false, "allowKey": "a", "denyKey": "", "checkForUpdates": true,
        "launchAtLogin": 1})"));
    EXPECT_EQ(read.permissionTimeoutSeconds, 45.5);
    EXPECT_EQ(read.replyTimeoutSeconds, 3600);
    EXPECT_EQ(read.gating.gateCommands, (std::map<AgentKind, bool>{{AgentKind::cursor, false}}));
    EXPECT_EQ(read.gating.safePrefixes, std::vector<std::string>{"make -n"});
    EXPECT_TRUE(read.gating.paused);
    EXPECT_EQ(read.quickReplies, (std::vector<std::string>{"Go on.", "Stop here."}));
    EXPECT_TRUE(read.soundEnabled);
    EXPECT_TRUE(read.quietMode);
    EXPECT_FALSE(read.alertChip);
    EXPECT_EQ(read.allowKey, "a");
    EXPECT_EQ(read.denyKey, "n");
    EXPECT_TRUE(read.checkForUpdates);
    EXPECT_FALSE(read.launchAtLogin);

    // A gating object missing one of its three keys falls back whole.
    read = TidewickSettings::fromJSON(
        JSONValue::parse(R"({"gating": {"gateCommands": {}, "paused": true},
                             "permissionTimeoutSeconds": 1e12})"));
    EXPECT_EQ(read.gating, GatingPolicy());
    EXPECT_EQ(read.permissionTimeoutSeconds, TidewickSettings::longestTimeoutSeconds);
    EXPECT_THROW((void)TidewickSettings::fromJSON(JSONValue::parse("[1]")), std::runtime_error);
}

class SettingsFileTest : public ::testing::Test {
protected:
    SettingsFileTest()
        : file(home.path() + "/Tidewick/settings.json",
               [this](const auto& s) { reports.push_back(s); }) {}

    void write(const std::string& text) {
        File::makeDirectories(File::parent(file.path()), 0700);
        File::writeAtomically(file.path(), text, 0600);
    }

    TemporaryHome home;
    std::vector<std::string> reports;
    SettingsFile file;
};

TEST_F(SettingsFileTest, AMissingFileGivesTheDefaultsAndAnEditAppliesAtOnce) {
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_FALSE(File::exists(file.path()));
    write(R"({"replyTimeoutSeconds": 60})");
    EXPECT_EQ(file.current().replyTimeoutSeconds, 60);
    write(R"({"replyTimeoutSeconds": 90})");
    EXPECT_EQ(file.current().replyTimeoutSeconds, 90);
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_TRUE(reports.empty());
}

TEST_F(SettingsFileTest, KeepsUnknownKeysWhenWritingBack) {
    write(R"({"fromANewerVersion": {"a": [1, 2]}, "quietMode": true, "zeta": "z"})");
    TidewickSettings settings = file.current();
    EXPECT_TRUE(settings.quietMode);
    settings.allowKey = "Y";
    file.save(settings);

    JSONValue written = JSONValue::parse(File::read(file.path()));
    const JSONValue::Object& pairs = *written.objectPairs();
    ASSERT_EQ(pairs.size(), 15u);
    EXPECT_EQ(pairs[13].first, "fromANewerVersion");
    EXPECT_EQ(pairs[13].second.compact(), R"({"a":[1,2]})");
    EXPECT_EQ(pairs[14].first, "zeta");
    EXPECT_EQ(*written.get("allowKey")->stringValue(), "Y");
    EXPECT_EQ(written.get("quietMode")->boolValue(), true);
    EXPECT_EQ(file.current(), settings);
    struct stat info {};
    ASSERT_EQ(::stat(file.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    // Another reader of the same file sees what was saved.
    EXPECT_EQ(SettingsFile(file.path()).current(), settings);
}

TEST_F(SettingsFileTest, AMalformedFileIsReportedOnceAndNeverOverwritten) {
    const std::string broken = R"({"quietMode": true,)";
    write(broken);
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_EQ(file.current(), TidewickSettings());
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(reports[0].find(file.path()), std::string::npos);
    EXPECT_NE(reports[0].find(" at byte "), std::string::npos);
    EXPECT_EQ(File::read(file.path()), broken);

    // A top level that is not an object is just as broken; each new state is reported once.
    write("[]");
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_EQ(reports.size(), 2u);
    EXPECT_EQ(File::read(file.path()), "[]");

    write(R"({"quietMode": true})");
    EXPECT_TRUE(file.current().quietMode);
    EXPECT_EQ(reports.size(), 2u);
}

} // namespace
} // namespace tidewick
