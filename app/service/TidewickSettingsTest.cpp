#include "service/TidewickSettings.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(TidewickSettings, DefaultsAndWhatAFileMayGetWrong) {
    const std::string defaults = encodeJSON(TidewickSettings());
    EXPECT_EQ(
        defaults,
        R"({"permissionTimeoutSeconds":300,"replyTimeoutSeconds":3600,"gating":)" +
            encodeJSON(GatingPolicy()) +
            R"(,"quickReplies":["Continue working.","Run the tests.","Fix the remaining errors.","Explain what you changed."],)"
            R"("systemNotificationsEnabled":true,"glowEnabled":true,"soundEnabled":true,)"
            R"("alertSounds":{"needsPermission":"knock","waitingReply":"question","finished":"chime",)"
            R"("error":"buzz","usageLimit":"pulse"},"quietMode":false,"alertChip":true,"avatarEnabled":true,)"
            R"("allowKey":"y","denyKey":"n","launchAtLogin":false,"checkForUpdates":false,"agentCommands":{}})");
    EXPECT_EQ(decodeJSON<TidewickSettings>("{}"), TidewickSettings());

    // Mistyped or out-of-range keys take their defaults; the others are read.
    TidewickSettings read = *decodeJSON<TidewickSettings>(R"({
        "permissionTimeoutSeconds": 45.5, "replyTimeoutSeconds": -1,
        "gating": {"gateCommands": {"cursor": false, "vim": true}, "safePrefixes": ["make -n"],
                   "paused": true},
        "quickReplies": ["Go on.", 7, "Stop here."], "soundEnabled": "no", "quietMode": true,
        "allowKey": "a", "denyKey": "", "launchAtLogin": 1, "avatarEnabled": false,
        "alertSounds": {"finished": "none", "error": "loud", "usageLimit": 3, "later": "knock",
                        "needsPermission": "pulse"},
        "agentCommands": {"claude": "/opt/claude", "codex": 3, "cursor": ""}})");
    EXPECT_EQ(read.permissionTimeoutSeconds + read.replyTimeoutSeconds, 45.5 + 3600);
    EXPECT_EQ(read.gating.gateCommands, (std::map<AgentKind, bool>{{AgentKind::cursor, false}}));
    EXPECT_TRUE(read.gating.paused);
    EXPECT_EQ(read.quickReplies, (std::vector<std::string>{"Go on.", "Stop here."}));
    EXPECT_TRUE(read.soundEnabled && read.quietMode);
    EXPECT_EQ(read.allowKey + read.denyKey, "an");
    EXPECT_FALSE(read.launchAtLogin || read.avatarEnabled);
    // Each sound entry stands alone: unknown sounds and kinds are passed over.
    std::map<Alert::Kind, AlertSound> sounds = TidewickSettings::defaultAlertSounds();
    sounds[Alert::Kind::finished] = AlertSound::none;
    sounds[Alert::Kind::needsPermission] = AlertSound::pulse;
    EXPECT_EQ(read.alertSounds, sounds);
    EXPECT_EQ(read.agentCommands, (std::map<std::string, std::string>{{"claude", "/opt/claude"}}));

    // A gating object missing one of its three keys falls back whole.
    read = *decodeJSON<TidewickSettings>(
        R"({"gating": {"gateCommands": {}, "paused": true}, "permissionTimeoutSeconds": 1e12})");
    EXPECT_EQ(read.gating, GatingPolicy());
    EXPECT_EQ(read.permissionTimeoutSeconds, TidewickSettings::longestTimeoutSeconds);
    EXPECT_EQ(decodeJSON<TidewickSettings>("[1]"), std::nullopt);
}

class SettingsFileTest : public ::testing::Test {
protected:
    void write(const std::string& text) { testing::put(file.path(), text); }

    TemporaryDirectory home;
    std::vector<std::string> reports;
    SettingsFile file{home.path() + "/Tidewick/settings.json",
                      [this](const std::string& sentence) { reports.push_back(sentence); }};
};

TEST_F(SettingsFileTest, ReadsEditsAtOnceAndKeepsUnknownKeysWhenWritingBack) {
    write(R"({"fromANewerVersion": {"a": [1, 2]}, "quietMode": true, "zeta": "z"})");
    TidewickSettings settings = file.current();
    EXPECT_TRUE(settings.quietMode);
    settings.allowKey = "Y";
    file.save(settings);

    const JSONValue written = JSONValue::parse(File::read(file.path()));
    const JSONValue::Object& pairs = *written.objectPairs();
    // The unknown keys follow every known one.
    const std::size_t known =
        JSONValue::parse(encodeJSON(TidewickSettings())).objectPairs()->size();
    ASSERT_EQ(pairs.size(), known + 2);
    EXPECT_EQ(pairs[known].first + pairs[known].second.compact() + pairs[known + 1].first,
              R"(fromANewerVersion{"a":[1,2]}zeta)");
    EXPECT_EQ(*written.get("allowKey")->stringValue(), "Y");
    EXPECT_EQ(SettingsFile(file.path()).current(), settings);
    EXPECT_EQ(testing::modeOf(file.path()), 0600);

    write(R"({"replyTimeoutSeconds": 90})");
    EXPECT_EQ(file.current().replyTimeoutSeconds, 90);
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    EXPECT_EQ(file.current(), TidewickSettings());
    EXPECT_TRUE(reports.empty());
}

TEST_F(SettingsFileTest, AMalformedFileIsReportedOnceAndNeverOverwritten) {
    const std::string broken = R"({"quietMode": true,)";
    write(broken);
    for (int i = 0; i < 2; ++i)
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
    write(R"({"quietMode": true})");
    EXPECT_TRUE(file.current().quietMode);
    EXPECT_EQ(reports.size(), 2u);
}

} // namespace
} // namespace tidewick
