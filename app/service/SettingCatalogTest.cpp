#include "service/SettingCatalog.h"

#include "foundation/JSONCoding.h"
#include "service/ServiceTestSupport.h"
#include "service/SettingsEditor.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using Change = SettingCatalog::Change;

TEST(SettingCatalog, EveryKeyOfTheFileIsListedOnceWithItsDefault) {
    const JSONValue defaults = JSONValue::parse(encodeJSON(TidewickSettings{}));
    std::vector<std::string> listed;
    for (const SettingCatalog::Entry& entry : SettingCatalog::entries()) {
        listed.emplace_back(entry.name);
        const std::string top(entry.name.substr(0, entry.name.find('.')));
        EXPECT_NE(defaults.get(top), nullptr) << entry.name;
        EXPECT_FALSE(entry.description.empty()) << entry.name;
    }
    for (const auto& [key, value] : *defaults.objectPairs())
        EXPECT_TRUE(std::ranges::any_of(listed, [&](const auto& name) {
            return name.starts_with(key);
        })) << key;
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(std::adjacent_find(listed.begin(), listed.end()), listed.end());
}

TEST(SettingCatalog, AppliesWhatFitsAndRefusesTheRestNamingTheSettingAndWhatItTakes) {
    struct Row {
        std::string name, value;
        Change change;
        /// The setting's value afterwards, or the start of the refusal.
        std::string expected;
        bool refused = false;
    };
    const std::vector<Row> rows = {
        {"quietMode", "on", Change::set, "true"},
        {"quietMode", " FALSE ", Change::set, "false"},
        {"quietMode", "maybe", Change::set, "quietMode takes true or false, not \"maybe\".", true},
        {"permissionTimeoutSeconds", "90.5", Change::set, "90.5"},
        {"permissionTimeoutSeconds", "0", Change::set, "0"},
        {"permissionTimeoutSeconds", "-1", Change::set,
         "permissionTimeoutSeconds takes a number of seconds from 0 to 31536000", true},
        {"replyTimeoutSeconds", "31536001", Change::set, "replyTimeoutSeconds takes", true},
        {"replyTimeoutSeconds", "10m", Change::set, "replyTimeoutSeconds takes", true},
        {"allowKey", "a", Change::set, "\"a\""},
        {"allowKey", "é", Change::set, "\"é\""},
        {"allowKey", "ab", Change::set, "allowKey takes one character", true},
        {"denyKey", " ", Change::set, "denyKey takes one character", true},
        {"denyKey", "y", Change::set, "denyKey takes a key the other", true},
        {"gating.gateCommands.cursor", "off", Change::set, "false"},
        {"gating.gateCommands.claude", "off", Change::set,
         "Claude Code's permission requests are always held", true},
        {"gating.gateCommands.codex", "on", Change::set, "Codex's permission requests", true},
        {"gating.safePrefixes", "Make Test", Change::add, "make test"},
        {"gating.safePrefixes", "ls", Change::remove, "pwd"},
        {"gating.safePrefixes", "  ", Change::add, "gating.safePrefixes takes texts", true},
        {"gating.safePrefixes", R"(["ls", "Git Log"])", Change::set, R"("ls", "git log")"},
        {"quickReplies", R"(["Go on."])", Change::set, R"("Go on.")"},
        {"quickReplies", R"(["Go on.", 3])", Change::set, "quickReplies takes a JSON array", true},
        {"quickReplies", "Go on.", Change::add, "\"Explain what you changed.\", \"Go on.\""},
        {"quietMode", "x", Change::add, "quietMode is not a list", true},
        {"alertSounds.finished", " buzz ", Change::set, "\"buzz\""},
        {"alertSounds.usageLimit", "none", Change::set, "\"none\""},
        {"alertSounds.error", "beep", Change::set,
         "alertSounds.error takes one of knock, question, chime, buzz, pulse, or none", true},
        {"volume", "3", Change::set, "Tidewick has no setting \"volume\".", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name + " " + row.value);
        TidewickSettings settings;
        const TidewickSettings before = settings;
        try {
            (void)SettingCatalog::apply(settings, row.name, row.value, row.change);
            EXPECT_FALSE(row.refused);
            const std::string shown =
                SettingCatalog::display(SettingCatalog::find(row.name)->get(settings));
            if (row.change == Change::set)
                EXPECT_EQ(shown, row.expected);
            else
                EXPECT_NE(shown.find(row.expected), std::string::npos) << shown;
        } catch (const SettingCatalog::Refused& refused) {
            EXPECT_TRUE(row.refused) << refused.what();
            EXPECT_EQ(std::string(refused.what()).rfind(row.expected, 0), 0u) << refused.what();
            EXPECT_EQ(settings, before);
        }
    }
    // Adding twice keeps one; the value of an unchanged setting says so.
    TidewickSettings settings;
    EXPECT_FALSE(SettingCatalog::apply(settings, "gating.safePrefixes", "ls", Change::add));
    EXPECT_EQ(std::ranges::count(settings.gating.safePrefixes, "ls"), 1);
    EXPECT_FALSE(SettingCatalog::apply(settings, "alertChip", "true"));
}

TEST(SettingsEditor, WritesEachChangeKeepingTheRestAndNeverOverAFileThatDoesNotRead) {
    TemporaryDirectory home;
    const std::string path = home.path() + "/settings.json";
    File::writeAtomically(path, R"({"soundEnabled": false})", 0600);
    SettingsFile file(path);
    testing::ManualClock clock;
    SettingsEditor editor(file, clock.clock());

    EXPECT_EQ(editor.changeSetting("quietMode", "true", Change::set),
              ControlResult::done("Set quietMode to true. It applies from the next request."));
    EXPECT_EQ(editor.changeSetting("quietMode", "true", Change::set).sentence,
              "quietMode already is true. Nothing was changed.");
    EXPECT_FALSE(editor.changeSetting("launchAtLogin", "true", Change::set).isDone());
    const ControlResult refused = editor.changeSetting("alertChip", "2", Change::set);
    EXPECT_EQ(refused, ControlResult::refused(
                           "alertChip takes true or false, not \"2\". Nothing was changed."));
    const JSONValue written = JSONValue::parse(File::read(path));
    EXPECT_EQ(written.get("soundEnabled")->compact(), "false");
    EXPECT_EQ(written.get("quietMode")->compact(), "true");

    // A pause with an end resumes once the clock reaches it, and not before.
    EXPECT_TRUE(editor.pause(addSeconds(clock.now(), 1800)).isDone());
    EXPECT_TRUE(file.current().gating.paused);
    clock.advance(1799);
    EXPECT_FALSE(editor.resumeIfDue());
    clock.advance(1);
    EXPECT_TRUE(editor.resumeIfDue());
    EXPECT_EQ(file.current().gating, GatingPolicy());
    EXPECT_EQ(editor.resume().sentence, "Tidewick isn't paused.");
    // One set by hand lasts.
    EXPECT_TRUE(editor.pause(std::nullopt).isDone());
    clock.advance(1e6);
    EXPECT_FALSE(editor.resumeIfDue());
    EXPECT_EQ(editor.resume().sentence, "Resumed: Tidewick holds your agents' requests again.");

    const std::string broken = R"({"quietMode": tru)";
    File::writeAtomically(path, broken, 0600);
    for (const ControlResult& result : {editor.pause(std::nullopt), editor.resume(),
                                        editor.changeSetting("quietMode", "no", Change::set)}) {
        EXPECT_FALSE(result.isDone());
        EXPECT_NE(result.sentence.find("couldn't read its settings in " + path), std::string::npos)
            << result.sentence;
    }
    EXPECT_EQ(File::read(path), broken);
}

} // namespace
} // namespace tidewick
