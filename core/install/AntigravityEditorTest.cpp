#include "install/AntigravityEditor.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

CommandBuilder builder() {
    return [](const std::string& event) {
        return HookCatalog::command("/h/tidewick-hook", AgentKind::antigravity, event);
    };
}

TEST(AntigravityEditor, OwnsOneBlockAndLeavesOtherToolsAlone) {
    AntigravityEditor editor;
    const JSONValue original = JSONValue::parse(R"({
      "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
      "tidewick": {"enabled": true, "Stale": [{"type": "command", "command": "/old/tidewick-hook"}]},
      "zeta": 1
    })");
    const auto specs = HookCatalog::specs(AgentKind::antigravity, GateCommands::off);
    JSONValue installed = editor.install(original, specs, builder());

    EXPECT_EQ(*installed.get("linter"), *original.get("linter"));
    // The block is replaced in place, "enabled" first, then one list per event.
    EXPECT_EQ(installed.pretty(), JSONValue::parse(R"({
      "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
      "tidewick": {
        "enabled": true,
        "SessionStart": [{"type": "command", "command": "'/h/tidewick-hook' --agent antigravity --event SessionStart", "timeout": 10}],
        "PreInvocation": [{"type": "command", "command": "'/h/tidewick-hook' --agent antigravity --event PreInvocation", "timeout": 10}],
        "PostToolUse": [{"matcher": "*", "hooks": [{"type": "command", "command": "'/h/tidewick-hook' --agent antigravity --event PostToolUse", "timeout": 10}]}],
        "Stop": [{"type": "command", "command": "'/h/tidewick-hook' --agent antigravity --event Stop", "timeout": 90000}]
      },
      "zeta": 1
    })")
                                      .pretty());
    EXPECT_EQ(editor.installedEvents(installed),
              (std::set<std::string>{"SessionStart", "PreInvocation", "PostToolUse", "Stop"}));
    EXPECT_EQ(editor.installedEvents(original), (std::set<std::string>{"Stale"}));
    EXPECT_EQ(editor.install(installed, specs, builder()), installed);

    JSONValue removed = editor.remove(installed);
    EXPECT_EQ(
        removed,
        JSONValue::parse(
            R"({"linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]}, "zeta": 1})"));
    EXPECT_FALSE(editor.isEmptyShell(removed));
    EXPECT_TRUE(editor.isEmptyShell(editor.remove(editor.install(std::nullopt, specs, builder()))));
}

TEST(AntigravityEditor, SwitchAndWrongShape) {
    AntigravityEditor editor;
    EXPECT_EQ(editor.disabledReason(JSONValue::parse(R"({"tidewick": {"enabled": false}})")),
              "Tidewick's hooks are switched off in Antigravity's hooks.json (enabled: false).");
    EXPECT_FALSE(editor.disabledReason(JSONValue::parse(R"({"tidewick": {"enabled": true}})")));
    EXPECT_FALSE(editor.disabledReason(JSONValue::parse(R"({"other": {"enabled": false}})")));
    try {
        (void)editor.install(JSONValue::parse("[]"),
                             HookCatalog::specs(AgentKind::antigravity, GateCommands::off),
                             builder());
        FAIL() << "an array root was accepted";
    } catch (const HookConfigError& error) {
        EXPECT_STREQ(error.what(),
                     "hooks.json is not the shape Tidewick expects, so it was left untouched.");
    }
}

} // namespace
} // namespace tidewick
