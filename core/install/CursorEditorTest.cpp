#include "install/CursorEditor.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

CommandBuilder builder() {
    return [](const std::string& event) {
        return HookCatalog::command("/h/Library/Application Support/Tidewick/bin/tidewick-hook",
                                    AgentKind::cursor, event);
    };
}

std::vector<std::string> keys(const JSONValue& object) {
    std::vector<std::string> names;
    for (const auto& pair : *object.objectPairs())
        names.push_back(pair.first);
    return names;
}

TEST(CursorEditor, InstallsBesideTheUsersHandlers) {
    CursorEditor editor;
    const JSONValue original = JSONValue::parse(R"({
      "hooks": {
        "afterFileEdit": [{"command": "./hooks/format.sh"}],
        "stop": [{"command": "./hooks/audit.sh", "timeout": 30}]
      },
      "comment": "team hooks"
    })");
    const auto specs = HookCatalog::specs(AgentKind::cursor, GateCommands::off);
    JSONValue installed = editor.install(original, specs, builder());

    // "version" is put first, before the user's keys.
    EXPECT_EQ(keys(installed), (std::vector<std::string>{"version", "hooks", "comment"}));
    EXPECT_EQ(*installed.get("version"), JSONValue::integer(1));
    const JSONValue& hooks = *installed.get("hooks");
    EXPECT_EQ(keys(hooks), (std::vector<std::string>{
                               "afterFileEdit", "stop", "sessionStart", "sessionEnd", "postToolUse",
                               "afterAgentResponse", "preCompact", "preToolUse"}));
    const JSONValue::Array& stop = *hooks.get("stop")->arrayValue();
    ASSERT_EQ(stop.size(), 2u);
    EXPECT_EQ(stop[0], JSONValue::parse(R"({"command": "./hooks/audit.sh", "timeout": 30})"));
    EXPECT_EQ(
        stop[1].compact(),
        "{\"command\":\"'/h/Library/Application Support/Tidewick/bin/tidewick-hook' --agent cursor "
        "--event stop\",\"timeout\":90000,\"loop_limit\":null}");
    EXPECT_EQ(editor.installedEvents(installed),
              (std::set<std::string>{"sessionStart", "sessionEnd", "postToolUse",
                                     "afterAgentResponse", "preCompact", "preToolUse", "stop"}));

    EXPECT_EQ(editor.install(installed, specs, builder()).pretty(), installed.pretty());

    // Gating on, then off again: the gating hooks really go.
    JSONValue gated = editor.install(
        installed, HookCatalog::specs(AgentKind::cursor, GateCommands::on), builder());
    EXPECT_EQ(editor.installedEvents(gated), HookCatalog::installedEvents(AgentKind::cursor));
    JSONValue ungated = editor.install(gated, specs, builder());
    EXPECT_EQ(ungated.pretty(), installed.pretty());

    // Removal keeps the "version" Tidewick added but nothing else of its own.
    JSONValue removed = editor.remove(gated);
    EXPECT_EQ(removed, JSONValue::parse(R"({"version": 1, "hooks": {
        "afterFileEdit": [{"command": "./hooks/format.sh"}],
        "stop": [{"command": "./hooks/audit.sh", "timeout": 30}]}, "comment": "team hooks"})"));
    EXPECT_FALSE(editor.isEmptyShell(removed));
}

TEST(CursorEditor, EmptyShellAndWrongShapes) {
    CursorEditor editor;
    JSONValue fresh = editor.install(
        std::nullopt, HookCatalog::specs(AgentKind::cursor, GateCommands::on), builder());
    EXPECT_EQ(keys(fresh), (std::vector<std::string>{"version", "hooks"}));
    EXPECT_TRUE(editor.isEmptyShell(fresh));
    EXPECT_TRUE(editor.isEmptyShell(editor.remove(fresh)));
    EXPECT_EQ(editor.remove(fresh), JSONValue::parse(R"({"version": 1, "hooks": {}})"));
    EXPECT_TRUE(editor.isEmptyShell(JSONValue::parse(R"({"version": 1})")));
    EXPECT_FALSE(editor.isEmptyShell(JSONValue::parse(R"({"version": 1, "hooks": {"stop": []}})")));
    EXPECT_FALSE(editor.isEmptyShell(JSONValue::parse(R"({"version": 1, "mine": true})")));
    // A user's own version is kept where it is.
    JSONValue mine =
        editor.install(JSONValue::parse(R"({"hooks": {}, "version": 2})"),
                       HookCatalog::specs(AgentKind::cursor, GateCommands::off), builder());
    EXPECT_EQ(keys(mine), (std::vector<std::string>{"hooks", "version"}));
    EXPECT_EQ(*mine.get("version"), JSONValue::integer(2));

    auto sentence = [&](const char* text) {
        try {
            (void)editor.install(JSONValue::parse(text),
                                 HookCatalog::specs(AgentKind::cursor, GateCommands::off),
                                 builder());
        } catch (const HookConfigError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(sentence("[]"),
              "hooks.json is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_EQ(sentence(R"({"version": 1, "hooks": [1]})"),
              "The \"hooks\" section is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_FALSE(editor.disabledReason(fresh));
}

} // namespace
} // namespace tidewick
