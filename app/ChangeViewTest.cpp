#include "ChangeView.h"
#include "ConnectCommands.h"

#include "install/LineDiff.h"

#include <gmock/gmock.h>
#include <sstream>

namespace tidewick {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

ConfigChange sampleChange() {
    ConfigChange change;
    change.agent = AgentKind::claude;
    change.path = "/h/.claude/settings.json";
    change.fileExisted = true;
    change.before = "{\n  \"a\": 1,\n  \"b\": 2,\n  \"c\": 3,\n  \"d\": 4,\n  \"e\": 5\n}\n";
    change.after = "{\n  \"a\": 1,\n  \"b\": 2,\n  \"c\": 3,\n  \"d\": 4,\n  \"e\": 6\n}\n";
    change.diff = LineDiff::diff(change.before, change.after);
    change.addedEvents = {"Stop", "PreToolUse", "SessionStart", "Custom"};
    return change;
}

TEST(ChangeView, PreviewIsACondensedDiffColouredOnlyWhenAsked) {
    std::istringstream in;
    std::ostringstream out;
    Terminal plain(in, out, out, ColourMode::off);
    EXPECT_EQ(describeChange(sampleChange(), plain),
              "/h/.claude/settings.json\n"
              "    \"b\": 2,\n"
              "    \"c\": 3,\n"
              "    \"d\": 4,\n"
              "-   \"e\": 5\n"
              "+   \"e\": 6\n"
              "  }\n"
              "  \n"
              "Adds hooks for: SessionStart, PreToolUse, Stop, Custom\n");

    Terminal coloured(in, out, out, ColourMode::on);
    std::string text = describeChange(sampleChange(), coloured);
    EXPECT_THAT(text, HasSubstr("\x1b[31m-   \"e\": 5\x1b[0m\n"));
    EXPECT_THAT(text, HasSubstr("\x1b[32m+   \"e\": 6\x1b[0m\n"));

    // A file that will be deleted reads as all removed.
    ConfigChange deletion = sampleChange();
    deletion.deletesFile = true;
    deletion.addedEvents.clear();
    deletion.removedEvents = {"Stop"};
    text = describeChange(deletion, plain);
    EXPECT_THAT(text, HasSubstr("so it will be deleted.\n"));
    EXPECT_THAT(text, HasSubstr("- {\n-   \"a\": 1,\n"));
    EXPECT_THAT(text, Not(HasSubstr("+ ")));
    EXPECT_THAT(text, HasSubstr("Removes hooks for: Stop\n"));

    // Codex approves hooks by their place: the user's approved hooks that move are named.
    deletion.agent = AgentKind::codex;
    deletion.movedApprovedHooks = {"Stop: notify-send done"};
    text = describeChange(deletion, plain);
    EXPECT_THAT(text, HasSubstr("These hooks of yours move, so Codex will ask you to approve them "
                                "again (type /hooks in Codex):\n  Stop: notify-send done\n"));

    // Colour only on a terminal, and never when NO_COLOR is set at all.
    EXPECT_EQ(Terminal::colourFor(true, nullptr), ColourMode::on);
    EXPECT_EQ(Terminal::colourFor(false, nullptr), ColourMode::off);
    EXPECT_EQ(Terminal::colourFor(true, ""), ColourMode::off);
}

TEST(ChangeView, ConfirmAcceptsOnlyYes) {
    const std::pair<const char*, bool> answers[] = {
        {"y\n", true}, {" YES \n", true}, {"Yes", true}, {"n\n", false},
        {"\n", false}, {"yep\n", false},  {"", false}};
    for (auto [answer, expected] : answers) {
        SCOPED_TRACE(answer);
        std::istringstream in(answer);
        std::ostringstream out;
        Terminal terminal(in, out, out, ColourMode::off, true);
        EXPECT_EQ(terminal.confirm("Apply these changes? [y/N]"), expected);
        EXPECT_EQ(out.str(), "Apply these changes? [y/N] \n");
    }
}

TEST(ChangeView, StatusLinesAndJSON) {
    std::istringstream in;
    std::ostringstream out;
    Terminal plain(in, out, out, ColourMode::off);
    ConnectionStatus codex{AgentKind::codex,
                           ConnectionState::needsReconnect({"Stop", "helper"}),
                           std::string("command /usr/bin/codex"),
                           "/h/.codex/hooks.json",
                           {"Codex needs your OK once."}};
    EXPECT_EQ(describeStatus(codex, plain), "codex       needs reconnect (missing: Stop, helper)  "
                                            "/h/.codex/hooks.json  (found: command "
                                            "/usr/bin/codex)  Note: Codex needs your OK once.");
    ConnectionStatus cursor{AgentKind::cursor,
                            ConnectionState::notInstalled(),
                            std::nullopt,
                            "/h/.cursor/hooks.json",
                            {}};
    EXPECT_EQ(describeStatus(cursor, plain),
              "cursor      not installed     /h/.cursor/hooks.json  (not found)");

    JSONValue json = JSONValue::parse(statusesAsJSON({codex, cursor}));
    EXPECT_EQ(
        json.arrayValue()->at(0).compact(),
        R"({"agent":"codex","name":"Codex","state":"needs reconnect","missing":["Stop","helper"],)"
        R"("configPath":"/h/.codex/hooks.json","evidence":"command /usr/bin/codex","notes":["Codex needs your OK once."]})");
    EXPECT_TRUE(json.arrayValue()->at(1).get("evidence")->isNull());
    ConnectionStatus off{
        AgentKind::claude, ConnectionState::hooksDisabled("Off."), std::nullopt, "/s", {}};
    EXPECT_EQ(*JSONValue::parse(statusesAsJSON({off})).arrayValue()->at(0).get("reason"),
              JSONValue("Off."));
}

} // namespace
} // namespace tidewick
