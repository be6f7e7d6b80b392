#include "install/HookConfigEditor.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"
#include "install/MatcherGroupEditor.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

const std::string helper = "/home/me/Library/Application Support/Tidewick/bin/tidewick-hook";

CommandBuilder builder(AgentKind agent) {
    return [agent](const std::string& event) { return HookCatalog::command(helper, agent, event); };
}

JSONValue install(AgentKind agent, const std::optional<JSONValue>& document,
                  GateCommands gate = GateCommands::off) {
    return HookConfigEditor::forAgent(agent)->install(document, HookCatalog::specs(agent, gate),
                                                      builder(agent));
}

std::vector<std::string> keys(const JSONValue& object) {
    std::vector<std::string> names;
    for (const auto& pair : *object.objectPairs())
        names.push_back(pair.first);
    return names;
}

JSONValue ourGroup(AgentKind agent, const std::string& event, std::int64_t timeout) {
    return JSONValue(
        JSONValue::Object{{"hooks", JSONValue(JSONValue::Array{JSONValue(JSONValue::Object{
                                        {"type", "command"},
                                        {"command", HookCatalog::command(helper, agent, event)},
                                        {"timeout", JSONValue::integer(timeout)}})})}});
}

// A settings file as a user keeps it: their own hooks, permissions, status
// line and keys in no particular order.
const char* userSettings = R"json({
  "statusLine": {"type": "command", "command": "~/.claude/statusline.sh", "padding": 0},
  "permissions": {"allow": ["Bash(npm run lint)", "Read(~/.zshrc)"], "deny": ["Read(./.env)"]},
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

const char* cursorFile = R"({"hooks": {"afterFileEdit": [{"command": "./hooks/format.sh"}],
  "stop": [{"command": "./hooks/audit.sh", "timeout": 30}]}, "comment": "team hooks"})";

const char* antigravityFile = R"({
  "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
  "tidewick": {"enabled": true, "Stale": [{"type": "command", "command": "/old/tidewick-hook"}]},
  "zeta": 1})";

TEST(HookConfigEditor, InstallTwiceIsOnceAndRemoveGivesTheUsersFileBack) {
    struct Row {
        AgentKind agent;
        GateCommands gate;
        const char* original;
        const char* removed; // null: the original, in meaning and order
    };
    const std::vector<Row> rows = {
        {AgentKind::claude, GateCommands::off, userSettings, nullptr},
        {AgentKind::codex, GateCommands::off,
         R"({"hooks": {"Stop": [{"hooks": [{"type": "command", "command": "notify-send"}]}]}})",
         nullptr},
        // Removal keeps the "version" Tidewick added, but nothing else of its own.
        {AgentKind::cursor, GateCommands::on, cursorFile,
         R"({"version": 1, "hooks": {"afterFileEdit": [{"command": "./hooks/format.sh"}],
           "stop": [{"command": "./hooks/audit.sh", "timeout": 30}]}, "comment": "team hooks"})"},
        {AgentKind::antigravity, GateCommands::off, antigravityFile,
         R"({"linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
           "zeta": 1})"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(rawValue(row.agent));
        auto editor = HookConfigEditor::forAgent(row.agent);
        const JSONValue original = JSONValue::parse(row.original);
        JSONValue installed = install(row.agent, original, row.gate);
        std::set<std::string> events;
        for (const HookSpec& spec : HookCatalog::specs(row.agent, row.gate))
            events.insert(spec.event);
        EXPECT_EQ(editor->installedEvents(installed), events);
        EXPECT_EQ(install(row.agent, installed, row.gate).pretty(), installed.pretty());

        JSONValue removed = editor->remove(installed);
        EXPECT_EQ(removed.pretty(),
                  JSONValue::parse(row.removed ? row.removed : row.original).pretty());
        EXPECT_TRUE(editor->installedEvents(removed).empty());
        EXPECT_FALSE(editor->isEmptyShell(removed));
        // What Tidewick created alone leaves nothing but scaffolding behind.
        EXPECT_TRUE(
            editor->isEmptyShell(editor->remove(install(row.agent, std::nullopt, row.gate))));
    }
}

TEST(HookConfigEditor, ClaudeSettingsKeepTheUsersKeysEventsAndGroups) {
    const JSONValue original = JSONValue::parse(userSettings);
    JSONValue installed = install(AgentKind::claude, original);

    EXPECT_EQ(keys(installed), keys(original));
    for (const char* key : {"statusLine", "permissions", "model", "env", "includeCoAuthoredBy"})
        EXPECT_EQ(*installed.get(key), *original.get(key)) << key;
    EXPECT_NE(installed.pretty().find("\"TIMEOUT\": 1.50"), std::string::npos);

    // The user's events come first, in their order, then the new ones in catalog
    // order; in each list the user's groups stay first and Tidewick's follows.
    const JSONValue& hooks = *installed.get("hooks");
    EXPECT_EQ(keys(hooks),
              (std::vector<std::string>{"PreToolUse", "Stop", "SessionStart", "UserPromptSubmit",
                                        "SessionEnd", "PostToolUse", "PermissionRequest",
                                        "Notification", "PreCompact", "PostCompact"}));
    for (const HookSpec& spec : HookCatalog::specs(AgentKind::claude, GateCommands::off)) {
        const JSONValue* mine = original.get("hooks")->get(spec.event);
        JSONValue::Array expected = mine ? *mine->arrayValue() : JSONValue::Array{};
        expected.push_back(ourGroup(AgentKind::claude, spec.event, spec.timeoutSeconds));
        EXPECT_EQ(*hooks.get(spec.event), JSONValue(expected)) << spec.event;
    }
}

TEST(HookConfigEditor, ASharedGroupKeepsTheUsersHandlersOnly) {
    auto editor = HookConfigEditor::forAgent(AgentKind::claude);
    JSONValue installed = install(AgentKind::claude, JSONValue::parse(R"({"hooks": {"PreToolUse": [
      {"matcher": "Edit|Write", "hooks": [{"type": "command", "command": "prettier --write"},
        {"type": "command", "command": "'/old/bin/tidewick-hook' --agent claude --event PreToolUse"},
        "not even an object", {"type": "command", "command": 7}]},
      "a stray string", {"matcher": "Bash"}]}})"));
    EXPECT_EQ(*installed.get("hooks")->get("PreToolUse"),
              JSONValue(JSONValue::Array{JSONValue::parse(R"({"matcher": "Edit|Write", "hooks": [
          {"type": "command", "command": "prettier --write"}, "not even an object",
          {"type": "command", "command": 7}]})"),
                                         JSONValue("a stray string"),
                                         JSONValue::parse(R"({"matcher": "Bash"})"),
                                         ourGroup(AgentKind::claude, "PreToolUse", 10)}));

    // A group of nothing but an old Tidewick handler goes, and its list and
    // "hooks" with it; unknown shapes and a user's empty lists stay.
    const std::vector<std::pair<const char*, const char*>> removals = {
        {R"({"hooks": {"Stop": [{"hooks": [{"command": "/x/tidewick-hook"}]}], "Custom": {"k": 1}}})",
         R"({"hooks": {"Custom": {"k": 1}}})"},
        {R"({"hooks": {"Stop": [{"hooks": [{"command": "tidewick-hook"}]}]}})", "{}"},
        {"[1]", "[1]"},
        {R"({"hooks": 3})", R"({"hooks": 3})"},
        {R"({"hooks": {"Stop": []}})", R"({"hooks": {"Stop": []}})"},
        {R"({"hooks": {}})", R"({"hooks": {}})"},
    };
    for (const auto& [before, after] : removals)
        EXPECT_EQ(editor->remove(JSONValue::parse(before)), JSONValue::parse(after)) << before;
    // Once Tidewick has filled a user's empty list, removal cannot tell it was
    // theirs: it goes with the key, which means the same to the agent.
    EXPECT_EQ(
        editor->remove(install(AgentKind::claude, JSONValue::parse(R"({"hooks": {"Stop": []}})"))),
        JSONValue(JSONValue::Object{}));
}

TEST(HookConfigEditor, StatusLineBelongsToTheUserUnlessItIsOurs) {
    auto editor = HookConfigEditor::forAgent(AgentKind::claude);
    JSONValue fresh = install(AgentKind::claude, std::nullopt);
    EXPECT_EQ(keys(fresh), (std::vector<std::string>{"hooks", "statusLine"}));
    EXPECT_EQ(*fresh.get("statusLine"),
              JSONValue(JSONValue::Object{
                  {"type", "command"},
                  {"command", HookCatalog::command(helper, AgentKind::claude, "StatusLine")}}));
    // An old Tidewick status line is refreshed in place; removal takes it out.
    JSONValue refreshed = install(
        AgentKind::claude,
        JSONValue::parse(
            R"({"statusLine": {"type": "command", "command": "/old/tidewick-hook"}, "model": "x"})"));
    EXPECT_EQ(keys(refreshed), (std::vector<std::string>{"statusLine", "model", "hooks"}));
    EXPECT_EQ(*refreshed.get("statusLine"), *fresh.get("statusLine"));
    EXPECT_EQ(editor->remove(refreshed), JSONValue::parse(R"({"model": "x"})"));

    // Codex has no status line at all.
    JSONValue codex = install(AgentKind::codex, std::nullopt);
    EXPECT_EQ(keys(codex), (std::vector<std::string>{"hooks"}));
    EXPECT_EQ(*codex.get("hooks")->get("Interrupt"),
              JSONValue(JSONValue::Array{ourGroup(AgentKind::codex, "Interrupt", 2)}));
}

TEST(HookConfigEditor, SpecMatchersAndExtrasShapeTheEntry) {
    MatcherGroupEditor editor(MatcherGroupEditor::Flavor::codex);
    std::vector<HookSpec> specs = {
        HookSpec{"PreToolUse",
                 "Bash",
                 10,
                 false,
                 {{"timeout", JSONValue::integer(3)}, {"async", JSONValue::boolean(true)}}}};
    JSONValue out = editor.install(std::nullopt, specs, builder(AgentKind::codex));
    // An extra key that exists replaces the value in place; a new one is appended.
    EXPECT_EQ(*out.get("hooks")->get("PreToolUse"),
              JSONValue(JSONValue::Array{JSONValue(JSONValue::Object{
                  {"matcher", "Bash"},
                  {"hooks", JSONValue(JSONValue::Array{JSONValue(JSONValue::Object{
                                {"type", "command"},
                                {"command", builder(AgentKind::codex)("PreToolUse")},
                                {"timeout", JSONValue::integer(3)},
                                {"async", JSONValue::boolean(true)}})})}})}));
}

TEST(HookConfigEditor, CursorVersionGatingAndEmptyShell) {
    auto editor = HookConfigEditor::forAgent(AgentKind::cursor);
    JSONValue installed = install(AgentKind::cursor, JSONValue::parse(cursorFile));
    EXPECT_EQ(keys(installed), (std::vector<std::string>{"version", "hooks", "comment"}));
    EXPECT_EQ(*installed.get("version"), JSONValue::integer(1));
    EXPECT_EQ(keys(*installed.get("hooks")),
              (std::vector<std::string>{"afterFileEdit", "stop", "sessionStart", "sessionEnd",
                                        "postToolUse", "afterAgentResponse", "preCompact",
                                        "preToolUse"}));
    EXPECT_EQ(installed.get("hooks")->get("stop")->compact(),
              "[{\"command\":\"./hooks/audit.sh\",\"timeout\":30},{\"command\":\"'/home/me/Library/"
              "Application Support/Tidewick/bin/tidewick-hook' --agent cursor --event "
              "stop\",\"timeout\":90000,\"loop_limit\":null}]");
    // Gating on, then off again: the gating hooks really go.
    JSONValue gated = install(AgentKind::cursor, installed, GateCommands::on);
    EXPECT_EQ(editor->installedEvents(gated), HookCatalog::installedEvents(AgentKind::cursor));
    EXPECT_EQ(install(AgentKind::cursor, gated).pretty(), installed.pretty());

    // A user's own version stays where it is, with its value.
    JSONValue mine = install(AgentKind::cursor, JSONValue::parse(R"({"hooks": {}, "version": 2})"));
    EXPECT_EQ(keys(mine), (std::vector<std::string>{"hooks", "version"}));
    EXPECT_EQ(*mine.get("version"), JSONValue::integer(2));

    EXPECT_EQ(editor->remove(install(AgentKind::cursor, std::nullopt)),
              JSONValue::parse(R"({"version": 1, "hooks": {}})"));
    EXPECT_TRUE(editor->isEmptyShell(install(AgentKind::cursor, std::nullopt)));
    EXPECT_TRUE(editor->isEmptyShell(JSONValue::parse(R"({"version": 1})")));
    EXPECT_FALSE(
        editor->isEmptyShell(JSONValue::parse(R"({"version": 1, "hooks": {"stop": []}})")));
    EXPECT_FALSE(editor->isEmptyShell(JSONValue::parse(R"({"version": 1, "mine": true})")));
}

TEST(HookConfigEditor, AntigravityReplacesItsOwnBlockInPlace) {
    const JSONValue original = JSONValue::parse(antigravityFile);
    EXPECT_EQ(HookConfigEditor::forAgent(AgentKind::antigravity)->installedEvents(original),
              (std::set<std::string>{"Stale"}));
    // "enabled" first, then one list per event; tool events are matcher groups.
    const std::string command = "'" + helper + "' --agent antigravity --event ";
    EXPECT_EQ(install(AgentKind::antigravity, original),
              JSONValue::parse(R"({
      "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
      "tidewick": {"enabled": true,
        "SessionStart": [{"type": "command", "command": ")" +
                               command + R"(SessionStart", "timeout": 10}],
        "PreInvocation": [{"type": "command", "command": ")" +
                               command + R"(PreInvocation", "timeout": 10}],
        "PostToolUse": [{"matcher": "*", "hooks": [{"type": "command", "command": ")" +
                               command + R"(PostToolUse", "timeout": 10}]}],
        "Stop": [{"type": "command", "command": ")" +
                               command + R"(Stop", "timeout": 90000}]},
      "zeta": 1})"));
}

TEST(HookConfigEditor, WrongShapesAreRefusedWithTheSentence) {
    const std::string wrong = " is not the shape Tidewick expects, so it was left untouched.";
    const std::string section = "The \"hooks\" section";
    const std::vector<std::tuple<AgentKind, const char*, std::string>> rows = {
        {AgentKind::claude, "[]", "settings.json"},
        {AgentKind::claude, R"({"hooks": []})", section},
        {AgentKind::codex, "\"text\"", "hooks.json"},
        {AgentKind::codex, R"({"hooks": null})", section},
        {AgentKind::cursor, "[]", "hooks.json"},
        {AgentKind::cursor, R"({"version": 1, "hooks": [1]})", section},
        {AgentKind::antigravity, "[]", "hooks.json"},
    };
    for (const auto& [agent, text, subject] : rows) {
        try {
            (void)install(agent, JSONValue::parse(text));
            ADD_FAILURE() << rawValue(agent) << " accepted " << text;
        } catch (const HookConfigError& error) {
            EXPECT_EQ(error.what(), subject + wrong) << rawValue(agent) << " " << text;
            EXPECT_EQ(error.errorCase(), HookConfigError::Case::notAnObject);
        }
    }
}

TEST(HookConfigEditor, DisabledReasonComesOnlyFromTheAgentsOwnSwitch) {
    const std::string claudeOff =
        "Hooks are turned off in Claude Code's settings (disableAllHooks).";
    const std::string antigravityOff =
        "Tidewick's hooks are switched off in Antigravity's hooks.json (enabled: false).";
    const std::vector<std::tuple<AgentKind, const char*, std::optional<std::string>>> rows = {
        {AgentKind::claude, R"({"disableAllHooks": true})", claudeOff},
        {AgentKind::claude, R"({"disableAllHooks": false})", std::nullopt},
        {AgentKind::claude, R"({"disableAllHooks": "true"})", std::nullopt},
        {AgentKind::codex, R"({"disableAllHooks": true})", std::nullopt},
        {AgentKind::cursor, R"({"disableAllHooks": true, "enabled": false})", std::nullopt},
        {AgentKind::antigravity, R"({"tidewick": {"enabled": false}})", antigravityOff},
        {AgentKind::antigravity, R"({"tidewick": {"enabled": true}})", std::nullopt},
        {AgentKind::antigravity, R"({"other": {"enabled": false}})", std::nullopt},
    };
    for (const auto& [agent, text, reason] : rows)
        EXPECT_EQ(HookConfigEditor::forAgent(agent)->disabledReason(JSONValue::parse(text)), reason)
            << rawValue(agent) << " " << text;
}

} // namespace
} // namespace tidewick
