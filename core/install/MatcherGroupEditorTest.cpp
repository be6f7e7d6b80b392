#include "install/MatcherGroupEditor.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

const std::string helper = "/home/me/Library/Application Support/Tidewick/bin/tidewick-hook";

CommandBuilder builder(AgentKind agent) {
    return [agent](const std::string& event) { return HookCatalog::command(helper, agent, event); };
}

// A settings file as a user keeps it: their own hooks, permissions, status
// line and keys in no particular order.
const char* userSettings = R"json({
  "statusLine": {"type": "command", "command": "~/.claude/statusline.sh", "padding": 0},
  "permissions": {
    "allow": ["Bash(npm run lint)", "Read(~/.zshrc)"],
    "deny": ["Read(./.env)"]
  },
  "model": "opus",
  "hooks": {
    "PreToolUse": [
      {"matcher": "Bash", "hooks": [{"type": "command", "command": "~/bin/check-bash.sh", "timeout": 5}]}
    ],
    "Stop": [{"hooks": [{"type": "command", "command": "say done"}]}]
  },
  "env": {"DISABLE_TELEMETRY": "1", "TIMEOUT": 1.50},
  "includeCoAuthoredBy": false
})json";

std::vector<std::string> keys(const JSONValue& object) {
    std::vector<std::string> names;
    for (const auto& pair : *object.objectPairs())
        names.push_back(pair.first);
    return names;
}

JSONValue handler(AgentKind agent, const std::string& event, int timeout) {
    return JSONValue(JSONValue::Object{{"type", "command"},
                                       {"command", HookCatalog::command(helper, agent, event)},
                                       {"timeout", JSONValue::integer(timeout)}});
}

JSONValue ourGroup(AgentKind agent, const std::string& event, int timeout) {
    return JSONValue(
        JSONValue::Object{{"hooks", JSONValue(JSONValue::Array{handler(agent, event, timeout)})}});
}

TEST(MatcherGroupEditor, InstallsIntoAUsersClaudeSettingsWithoutDisturbingThem) {
    MatcherGroupEditor editor(MatcherGroupEditor::Flavor::claudeCode);
    const JSONValue original = JSONValue::parse(userSettings);
    const auto specs = HookCatalog::specs(AgentKind::claude, GateCommands::off);
    JSONValue installed = editor.install(original, specs, builder(AgentKind::claude));

    // The user's keys keep their order and their values.
    EXPECT_EQ(keys(installed), keys(original));
    for (const char* key : {"statusLine", "permissions", "model", "env", "includeCoAuthoredBy"})
        EXPECT_EQ(*installed.get(key), *original.get(key)) << key;
    EXPECT_NE(installed.pretty().find("\"TIMEOUT\": 1.50"), std::string::npos);

    // The user's events come first, in their order, then the new ones in catalog order.
    const JSONValue& hooks = *installed.get("hooks");
    EXPECT_EQ(keys(hooks),
              (std::vector<std::string>{"PreToolUse", "Stop", "SessionStart", "UserPromptSubmit",
                                        "SessionEnd", "PostToolUse", "PermissionRequest",
                                        "Notification", "PreCompact", "PostCompact"}));
    // The user's own group stays first; Tidewick's is appended after it.
    const JSONValue::Array& pre = *hooks.get("PreToolUse")->arrayValue();
    ASSERT_EQ(pre.size(), 2u);
    EXPECT_EQ(pre[0], (*original.get("hooks")->get("PreToolUse")->arrayValue())[0]);
    EXPECT_EQ(pre[1], ourGroup(AgentKind::claude, "PreToolUse", 10));
    EXPECT_EQ(*hooks.get("Stop"),
              JSONValue(JSONValue::Array{(*original.get("hooks")->get("Stop")->arrayValue())[0],
                                         ourGroup(AgentKind::claude, "Stop", 90000)}));
    EXPECT_EQ(*hooks.get("SessionEnd"),
              JSONValue(JSONValue::Array{ourGroup(AgentKind::claude, "SessionEnd", 5)}));
    // The handler's keys are type, command, timeout, in that order.
    EXPECT_EQ(keys((*(*hooks.get("SessionEnd")->arrayValue())[0].get("hooks")->arrayValue())[0]),
              (std::vector<std::string>{"type", "command", "timeout"}));

    EXPECT_EQ(editor.installedEvents(installed), HookCatalog::installedEvents(AgentKind::claude));
    EXPECT_TRUE(editor.installedEvents(original).empty());

    // Installing twice is installing once.
    JSONValue again = editor.install(installed, specs, builder(AgentKind::claude));
    EXPECT_EQ(again.pretty(), installed.pretty());

    // Removing gives back the user's own file, in meaning and order.
    JSONValue removed = editor.remove(installed);
    EXPECT_EQ(removed, original);
    EXPECT_EQ(removed.pretty(), original.pretty());
    EXPECT_FALSE(editor.isEmptyShell(removed));
}

TEST(MatcherGroupEditor, ASharedGroupKeepsTheUsersHandlerOnly) {
    MatcherGroupEditor editor(MatcherGroupEditor::Flavor::claudeCode);
    JSONValue document = JSONValue::parse(R"({"hooks": {"PreToolUse": [
      {"matcher": "Edit|Write", "hooks": [
        {"type": "command", "command": "prettier --write"},
        {"type": "command", "command": "'/old/bin/tidewick-hook' --agent claude --event PreToolUse"},
        "not even an object",
        {"type": "command", "command": 7}
      ]},
      "a stray string",
      {"matcher": "Bash"}
    ]}})");
    JSONValue installed =
        editor.install(document, HookCatalog::specs(AgentKind::claude, GateCommands::off),
                       builder(AgentKind::claude));
    const JSONValue::Array& groups = *installed.get("hooks")->get("PreToolUse")->arrayValue();
    ASSERT_EQ(groups.size(), 4u);
    EXPECT_EQ(*groups[0].get("matcher"), JSONValue("Edit|Write"));
    EXPECT_EQ(*groups[0].get("hooks"),
              JSONValue::parse(R"([{"type": "command", "command": "prettier --write"},
        "not even an object", {"type": "command", "command": 7}])"));
    EXPECT_EQ(keys(groups[0]), (std::vector<std::string>{"matcher", "hooks"}));
    EXPECT_EQ(groups[1], JSONValue("a stray string"));
    EXPECT_EQ(groups[2], JSONValue::parse(R"({"matcher": "Bash"})"));
    EXPECT_EQ(groups[3], ourGroup(AgentKind::claude, "PreToolUse", 10));

    // A group that held nothing but an old Tidewick handler disappears entirely on removal.
    JSONValue onlyOurs = JSONValue::parse(
        R"({"hooks": {"Stop": [{"hooks": [{"command": "/x/tidewick-hook --event Stop"}]}], "Custom": {"keep": true}}})");
    EXPECT_EQ(editor.remove(onlyOurs),
              JSONValue::parse(R"({"hooks": {"Custom": {"keep": true}}})"));
    EXPECT_EQ(editor.remove(JSONValue::parse(
                  R"({"hooks": {"Stop": [{"hooks": [{"command": "tidewick-hook"}]}]}})")),
              JSONValue(JSONValue::Object{}));
}

TEST(MatcherGroupEditor, StatusLineBelongsToTheUserUnlessItIsOurs) {
    MatcherGroupEditor editor(MatcherGroupEditor::Flavor::claudeCode);
    const auto specs = HookCatalog::specs(AgentKind::claude, GateCommands::off);
    JSONValue fresh = editor.install(std::nullopt, specs, builder(AgentKind::claude));
    EXPECT_EQ(keys(fresh), (std::vector<std::string>{"hooks", "statusLine"}));
    EXPECT_EQ(*fresh.get("statusLine"),
              JSONValue(JSONValue::Object{
                  {"type", "command"},
                  {"command", HookCatalog::command(helper, AgentKind::claude, "StatusLine")}}));
    // An old Tidewick status line is refreshed in place; removal takes it out.
    JSONValue stale = JSONValue::parse(
        R"({"statusLine": {"type": "command", "command": "/old/tidewick-hook"}, "model": "x"})");
    JSONValue refreshed = editor.install(stale, specs, builder(AgentKind::claude));
    EXPECT_EQ(keys(refreshed), (std::vector<std::string>{"statusLine", "model", "hooks"}));
    EXPECT_TRUE(isOurs(*refreshed.get("statusLine")));
    EXPECT_EQ(editor.remove(refreshed), JSONValue::parse(R"({"model": "x"})"));
    EXPECT_TRUE(editor.isEmptyShell(editor.remove(fresh)));

    // Codex has no status line at all.
    MatcherGroupEditor codex(MatcherGroupEditor::Flavor::codex);
    JSONValue codexFile =
        codex.install(std::nullopt, HookCatalog::specs(AgentKind::codex, GateCommands::off),
                      builder(AgentKind::codex));
    EXPECT_EQ(keys(codexFile), (std::vector<std::string>{"hooks"}));
    EXPECT_EQ(*codexFile.get("hooks")->get("Interrupt"),
              JSONValue(JSONValue::Array{ourGroup(AgentKind::codex, "Interrupt", 2)}));
    EXPECT_EQ(codex.installedEvents(codexFile), HookCatalog::installedEvents(AgentKind::codex));
    EXPECT_TRUE(codex.isEmptyShell(codex.remove(codexFile)));
}

TEST(MatcherGroupEditor, RefusesShapesItDoesNotKnow) {
    MatcherGroupEditor claude(MatcherGroupEditor::Flavor::claudeCode);
    MatcherGroupEditor codex(MatcherGroupEditor::Flavor::codex);
    const auto specs = HookCatalog::specs(AgentKind::claude, GateCommands::off);
    auto sentence = [&](const MatcherGroupEditor& editor, const char* text) {
        try {
            (void)editor.install(JSONValue::parse(text), specs, builder(AgentKind::claude));
        } catch (const HookConfigError& error) {
            EXPECT_EQ(error.errorCase(), HookConfigError::Case::notAnObject);
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(sentence(claude, "[]"),
              "settings.json is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_EQ(sentence(codex, "\"text\""),
              "hooks.json is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_EQ(sentence(claude, R"({"hooks": []})"),
              "The \"hooks\" section is not the shape Tidewick expects, so it was left untouched.");
    EXPECT_EQ(sentence(codex, R"({"hooks": null})"),
              "The \"hooks\" section is not the shape Tidewick expects, so it was left untouched.");

    // Removal leaves unknown shapes alone instead of failing.
    EXPECT_EQ(claude.remove(JSONValue::parse("[1]")), JSONValue::parse("[1]"));
    EXPECT_EQ(claude.remove(JSONValue::parse(R"({"hooks": 3})")),
              JSONValue::parse(R"({"hooks": 3})"));
    EXPECT_TRUE(claude.isEmptyShell(JSONValue::parse("[1]")));
    // A user's empty event list and empty hooks object are theirs to keep.
    EXPECT_EQ(claude.remove(JSONValue::parse(R"({"hooks": {"Stop": []}})")),
              JSONValue::parse(R"({"hooks": {"Stop": []}})"));
    EXPECT_EQ(claude.remove(JSONValue::parse(R"({"hooks": {}})")),
              JSONValue::parse(R"({"hooks": {}})"));
    // Once Tidewick has filled such a list, removal cannot tell it was the
    // user's: it goes with the key, which means the same to the agent.
    JSONValue filled = claude.install(JSONValue::parse(R"({"hooks": {"Stop": []}})"), specs,
                                      builder(AgentKind::claude));
    EXPECT_EQ(claude.remove(filled), JSONValue(JSONValue::Object{}));
}

TEST(MatcherGroupEditor, DisabledReasonOnlyForClaudeCodesSwitch) {
    MatcherGroupEditor claude(MatcherGroupEditor::Flavor::claudeCode);
    MatcherGroupEditor codex(MatcherGroupEditor::Flavor::codex);
    EXPECT_EQ(claude.disabledReason(JSONValue::parse(R"({"disableAllHooks": true})")),
              "Hooks are turned off in Claude Code's settings (disableAllHooks).");
    EXPECT_FALSE(claude.disabledReason(JSONValue::parse(R"({"disableAllHooks": false})")));
    EXPECT_FALSE(claude.disabledReason(JSONValue::parse(R"({"disableAllHooks": "true"})")));
    EXPECT_FALSE(codex.disabledReason(JSONValue::parse(R"({"disableAllHooks": true})")));
}

TEST(MatcherGroupEditor, SpecExtrasAndMatchersShapeTheGroup) {
    MatcherGroupEditor editor(MatcherGroupEditor::Flavor::codex);
    std::vector<HookSpec> specs = {
        HookSpec{"PreToolUse",
                 "Bash",
                 10,
                 false,
                 {{"timeout", JSONValue::integer(3)}, {"async", JSONValue::boolean(true)}}}};
    JSONValue out = editor.install(std::nullopt, specs, builder(AgentKind::codex));
    const JSONValue& group = (*out.get("hooks")->get("PreToolUse")->arrayValue())[0];
    EXPECT_EQ(keys(group), (std::vector<std::string>{"matcher", "hooks"}));
    const JSONValue& h = (*group.get("hooks")->arrayValue())[0];
    // An extra key that exists replaces the value in place; a new one is appended.
    EXPECT_EQ(keys(h), (std::vector<std::string>{"type", "command", "timeout", "async"}));
    EXPECT_EQ(*h.get("timeout"), JSONValue::integer(3));
}

} // namespace
} // namespace tidewick
