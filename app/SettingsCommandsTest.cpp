// Pausing, gating, settings and forgetting from the command line, end to end
// through the real programs: `tidewick app --headless` in a temporary home and
// `tidewick-hook` fed Cursor's payloads.
#include "SettingsCommands.h"
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::BackgroundProgram;
using ::testing::HasSubstr;
using testing::ProgramResult;

const std::string cursorAsk = "{\"permission\":\"ask\"}\n";
const std::string cursorAllow = "{\"permission\":\"allow\"}\n";

TEST(SettingsCommands, DurationsNameTheirUnitsLargestFirst) {
    for (auto [text, seconds] : {std::pair{"90s", 90.0},
                                 {"30m", 1800.0},
                                 {"1h30m", 5400.0},
                                 {"2d", 172800.0},
                                 {"1.5h", 5400.0}})
        EXPECT_EQ(parseDuration(text), seconds) << text;
    for (const char* text : {"30", "30m1h", "1m1m", "", "0m", "-5m", "400d", "5 m", "m"})
        EXPECT_EQ(parseDuration(text), std::nullopt) << text;
}

class SettingsEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        // A request held by mistake ends within seconds rather than minutes.
        paths.ensureDirectories();
        File::writeAtomically(paths.settingsFile(), R"({"permissionTimeoutSeconds": 30})", 0600);
    }

    /// What `tidewick arguments...` printed (standard output, then error); fails the test
    /// unless it exits `status`.
    std::string says(const std::vector<std::string>& arguments, int status) {
        const ProgramResult result = run.tidewick(arguments);
        EXPECT_EQ(result.status, status) << arguments[0];
        return result.out + result.err;
    }
    JSONValue settingsFile() const { return JSONValue::parse(File::read(paths.settingsFile())); }
    std::vector<std::string> listedIds() const {
        std::vector<std::string> ids;
        const JSONValue sessions = run.listing("sessions");
        for (const JSONValue& session : *sessions.arrayValue())
            ids.push_back(*session.get("key")->get("sessionId")->stringValue());
        std::sort(ids.begin(), ids.end());
        return ids;
    }

    testing::TidewickPrograms run;
    TidewickPaths paths{run.home()};
};

// What a pause holds and lets pass, its ending on time and what it leaves in the settings
// file are TidewickService's and SettingsEditor's to test; here the commands' sentences and
// exit statuses, and the pause reaching a real hook.
TEST_F(SettingsEndToEnd, APauseLetsCursorCommandsPassAndEndsWithResumeOrByItself) {
    ASSERT_TRUE(run.startApp());
    EXPECT_THAT(says({"pause"}, 0),
                HasSubstr("Paused: Tidewick holds nothing and answers nothing"));
    EXPECT_THAT(says({"status"}, 0), HasSubstr("Paused: nothing is held or answered"));
    EXPECT_EQ(run.finished(run.cursorShell("pause-1", "rm -rf dist")), cursorAsk);

    EXPECT_EQ(says({"resume"}, 0), "Resumed: Tidewick holds your agents' requests again.\n");
    BackgroundProgram& after = run.cursorShell("pause-2", "rm -rf dist");
    EXPECT_EQ(run.waitForHeld(1).size(), 1u);

    // A pause for a while ends on its own, with nobody asking.
    EXPECT_THAT(says({"pause", "--for", "1s"}, 0), HasSubstr("Paused until "));
    (void)says({"pause", "--for", "soon"}, 2);
    EXPECT_TRUE(testing::eventually(
        [&] { return *settingsFile().get("gating")->get("paused") == JSONValue::boolean(false); },
        std::chrono::seconds(10)));

    EXPECT_EQ(run.tidewick({"allow", "pause-2"}).status, 0);
    EXPECT_EQ(run.finished(after), cursorAllow);
}

TEST_F(SettingsEndToEnd, SettingsAreCheckedAndWrittenWithOrWithoutTheApplication) {
    // Without the application the file is edited directly. Which values each setting takes,
    // and the sentences of its refusals, are SettingCatalog's to test.
    EXPECT_EQ(says({"settings", "set", "quietMode", "on"}, 0),
              "Set quietMode to true. It applies from the next request.\n");
    EXPECT_EQ(says({"settings", "set", "replyTimeoutSeconds", "soon"}, 1),
              "replyTimeoutSeconds takes a number of seconds from 0 to 31536000, not \"soon\". "
              "Nothing was changed.\n");
    EXPECT_EQ(says({"settings", "set", "volume", "3"}, 1),
              "Tidewick has no setting \"volume\". `tidewick settings` lists them all.\n");
    (void)says({"gate", "cursor", "maybe"}, 2);

    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(says({"gate", "cursor", "off"}, 0),
              "Cursor's shell commands are no longer held: Cursor asks in its own window.\n");
    EXPECT_EQ(run.finished(run.cursorShell("gate-1", "rm -rf build")), cursorAsk);
    (void)says({"gate", "cursor", "on"}, 0);
    EXPECT_EQ(says({"safe", "add", "make", "-n"}, 0),
              "Added \"make -n\" to gating.safePrefixes. It applies from the next request.\n");
    EXPECT_EQ(run.finished(run.cursorShell("gate-2", "make -n install")), cursorAllow);
    (void)says({"safe", "remove", "make", "-n"}, 0);
    BackgroundProgram& held = run.cursorShell("gate-3", "make -n install");
    EXPECT_EQ(run.waitForHeld(1).size(), 1u);
    EXPECT_EQ(run.tidewick({"deny", "gate-3"}).status, 0);
    EXPECT_THAT(run.finished(held), HasSubstr("deny"));

    // The listing shows each value beside its default; unknown keys survive every write.
    File::writeAtomically(paths.settingsFile(), R"({"fromLater": {"x": 1}, "alertChip": false})",
                          0600);
    (void)says({"settings", "set", "allowKey", "a"}, 0);
    const std::string listing = says({"settings"}, 0);
    EXPECT_THAT(listing, HasSubstr("alertChip = false  (default: true)\n"));
    EXPECT_THAT(listing, HasSubstr("allowKey = \"a\"  (default: \"y\")\n"));
    EXPECT_THAT(listing,
                HasSubstr("Also in the file, unknown to this version and kept: fromLater"));
    const JSONValue json = run.listing("settings");
    ASSERT_GE(json.arrayValue()->size(), 15u);
    EXPECT_EQ(json.arrayValue()->front().get("default")->compact(), "300");
    EXPECT_EQ(settingsFile().get("fromLater")->compact(), R"({"x":1})");
}

TEST_F(SettingsEndToEnd, ForgottenSessionsLeaveTheListAndTheFileButHeldOnesStay) {
    ASSERT_TRUE(run.startApp());
    // Cursor's answer to what it does not wait on.
    const std::string nothing = "{}\n";
    EXPECT_EQ(run.finished(run.cursor("sessionStart", "idle-1")), nothing);
    for (const char* event : {"sessionStart", "sessionEnd"})
        EXPECT_EQ(run.finished(run.cursor(event, "ended-1")), nothing);
    EXPECT_EQ(run.finished(run.cursor("afterAgentResponse", "busy-1", R"(,"text":"On it.")")),
              nothing);
    BackgroundProgram& held = run.cursorShell("held-1", "rm -rf build");
    run.waitForHeld(1);

    EXPECT_EQ(says({"forget", "idle"}, 0), "Forgot Cursor session idle-1.\n");
    EXPECT_THAT(says({"forget", "held-1"}, 1),
                HasSubstr("holds a request for you, so Tidewick keeps it"));
    (void)says({"forget"}, 2);
    EXPECT_EQ(listedIds(), (std::vector<std::string>{"busy-1", "ended-1", "held-1"}));

    EXPECT_EQ(says({"forget", "--all"}, 0),
              "Erased the history: forgot 2 sessions. Kept 1 that holds a request for you.\n");
    // Saved at once: the file already lists only the session that holds a request.
    const JSONValue saved = JSONValue::parse(File::read(paths.sessionsFile()));
    ASSERT_EQ(saved.arrayValue()->size(), 1u);
    EXPECT_EQ(*(*saved.arrayValue())[0].get("key")->get("sessionId"), JSONValue("held-1"));

    EXPECT_EQ(run.tidewick({"deny", "held-1"}).status, 0);
    (void)run.finished(held);
    EXPECT_EQ(run.finished(run.cursor("sessionEnd", "held-1")), nothing);
    (void)says({"forget", "held"}, 0);
    EXPECT_EQ(run.stopApp(), 0);
    EXPECT_EQ(File::read(paths.sessionsFile()), "[]");
    (void)says({"forget", "--all"}, 3); // forgetting needs the application
}

} // namespace
} // namespace tidewick
