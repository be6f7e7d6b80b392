#include "install/HookConfigEditor.h"
#include "foundation/Text.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"
#include "install/MatcherGroupEditor.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using ::testing::ThrowsMessage;

const std::string helper = "/h/App Support/tidewick-hook";

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

// Tidewick's matcher group for `event`.
JSONValue ourGroup(AgentKind agent, const std::string& event, std::int64_t timeout) {
    return JSONValue::parse(R"({"hooks": [{"type": "command", "command": )" +
                            JSONValue::quote(HookCatalog::command(helper, agent, event)) +
                            R"(, "timeout": )" + std::to_string(timeout) + "}]}");
}

// A settings file as a user keeps it: their own hooks, permissions, status
// line and keys in no particular order.
const char* userSettings = R"json({
  "statusLine": {"type": "command", "command": "~/.claude/statusline.sh", "padding": 0},
  "permissions": {"allow": ["Bash(npm run lint)", "Read(~/.zshrc)"], "deny": ["Read(./.env)"]},
  "model": "opus", "hooks": {"PreToolUse": [{"matcher": "Bash", "hooks":
      [{"type": "command", "command": "~/bin/check-bash.sh", "timeout": 5}]}],
    "Stop": [{"hooks": [{"type": "command", "command": "say done"}]}]},
  "env": {"DISABLE_TELEMETRY": "1", "TIMEOUT": 1.50}, "includeCoAuthoredBy": false
})json";

const char* cursorFile = R"({"hooks": {"afterFileEdit": [{"command": "./hooks/format.sh"}],
  "stop": [{"command": "./hooks/audit.sh", "timeout": 30}]}, "comment": "team hooks"})";

const char* antigravityFile = R"({
  "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
  "tidewick": {"enabled": true, "Stale": [{"type": "command", "command": "/old/tidewick-hook"}]},
  "zeta": 1})";

// Removal giving back the user's file to the byte also shows that install kept
// every key, value and number spelling of theirs where it was.
TEST(HookConfigEditor, InstallTwiceIsOnceAndRemoveGivesTheUsersFileBack) {
    // Agent, gating, the user's file, and what removal gives back (null: the same file).
    const std::vector<std::tuple<AgentKind, GateCommands, const char*, const char*>> rows = {
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
    for (const auto& [agent, gate, original, removed] : rows) {
        SCOPED_TRACE(rawValue(agent));
        auto editor = HookConfigEditor::forAgent(agent);
        JSONValue installed = install(agent, JSONValue::parse(original), gate);
        std::set<std::string> events;
        for (const HookSpec& spec : HookCatalog::specs(agent, gate))
            events.insert(spec.event);
        EXPECT_EQ(editor->installedEvents(installed), events);
        EXPECT_EQ(install(agent, installed, gate).pretty(), installed.pretty());
        // Tidewick's events keep their places, before one the user added later.
        if (installed.get("hooks")) {
            JSONValue later = installed;
            later.get("hooks")->set("Later", JSONValue(JSONValue::Array{}));
            EXPECT_EQ(install(agent, later, gate), later);
        }

        JSONValue rest = editor->remove(installed);
        EXPECT_EQ(rest.pretty(), JSONValue::parse(removed ? removed : original).pretty());
        EXPECT_FALSE(editor->isEmptyShell(rest));
        // What Tidewick created alone leaves nothing but scaffolding behind.
        EXPECT_TRUE(editor->isEmptyShell(editor->remove(install(agent, std::nullopt, gate))));
    }
}

TEST(HookConfigEditor, ClaudeSettingsKeepTheUsersKeysEventsAndGroups) {
    const JSONValue original = JSONValue::parse(userSettings);
    JSONValue installed = install(AgentKind::claude, original);
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

    // Without a status line of the user's own, Tidewick's is set, and an old one
    // of Tidewick's is refreshed in place; removal takes it out. Codex has none.
    JSONValue refreshed = install(AgentKind::claude, JSONValue::parse(R"({"statusLine":
        {"type": "command", "command": "/old/tidewick-hook"}, "model": "x"})"));
    EXPECT_EQ(keys(refreshed), (std::vector<std::string>{"statusLine", "model", "hooks"}));
    EXPECT_EQ(refreshed.get("statusLine")->compact(),
              R"({"type":"command","command":"'/h/App Support/tidewick-hook' --agent claude )"
              R"(--event StatusLine"})");
    EXPECT_EQ(HookConfigEditor::forAgent(AgentKind::claude)->remove(refreshed),
              JSONValue::parse(R"({"model": "x"})"));
    EXPECT_EQ(keys(install(AgentKind::codex, std::nullopt)), std::vector<std::string>{"hooks"});
}

TEST(HookConfigEditor, CodexKeepsTidewicksGroupsWhereTheyStand) {
    // The user added a Stop group behind Tidewick's; an older hook command is refreshed in
    // place, a stray second handler of Tidewick's goes, and Claude Code's file is refilled
    // at the end as before.
    const std::string file = R"({"hooks": {"Stop": [
        {"hooks": [{"type": "command", "command": "'/old/tidewick-hook' --agent codex --event Stop", "timeout": 5}]},
        {"hooks": [{"type": "command", "command": "notify-send done"}]},
        {"matcher": "x", "hooks": [{"command": "say hi"}, {"command": "/older/tidewick-hook"}]}]}})";
    const JSONValue mine =
        JSONValue::parse(R"({"hooks": [{"type": "command", "command": "notify-send done"}]})");
    const JSONValue shared =
        JSONValue::parse(R"({"matcher": "x", "hooks": [{"command": "say hi"}]})");
    const JSONValue stop = ourGroup(AgentKind::codex, "Stop", HookCatalog::userWaitTimeout);
    EXPECT_EQ(*install(AgentKind::codex, JSONValue::parse(file)).get("hooks")->get("Stop"),
              JSONValue(JSONValue::Array{stop, mine, shared}));
    EXPECT_EQ(
        *install(AgentKind::claude, JSONValue::parse(file)).get("hooks")->get("Stop"),
        JSONValue(JSONValue::Array{
            mine, shared, ourGroup(AgentKind::claude, "Stop", HookCatalog::userWaitTimeout)}));
}

TEST(HookConfigEditor, ASharedGroupKeepsTheUsersHandlersOnly) {
    // A group keeps its other members and handlers; one of nothing but an old
    // Tidewick handler goes, and its list and "hooks" with it; unknown shapes
    // and a user's empty lists stay.
    const std::vector<std::pair<const char*, const char*>> removals = {
        {R"({"hooks": {"PreToolUse": [{"matcher": "Edit", "hooks": [{"command": "prettier"},
           {"command": "'/old/tidewick-hook' --event PreToolUse"}, "text", {"command": 7}]},
           "a stray string", {"matcher": "Bash"}]}})",
         R"({"hooks": {"PreToolUse": [{"matcher": "Edit", "hooks": [{"command": "prettier"},
           "text", {"command": 7}]}, "a stray string", {"matcher": "Bash"}]}})"},
        {R"({"hooks": {"Stop": [{"hooks": [{"command": "/x/tidewick-hook"}]}], "Custom": {"k": 1}}})",
         R"({"hooks": {"Custom": {"k": 1}}})"},
        {R"({"hooks": {"Stop": [{"hooks": [{"command": "tidewick-hook"}]}]}})", "{}"},
        {"[1]", "[1]"},
        {R"({"hooks": 3})", R"({"hooks": 3})"},
        {R"({"hooks": {"Stop": []}})", R"({"hooks": {"Stop": []}})"},
        {R"({"hooks": {}})", R"({"hooks": {}})"},
    };
    auto editor = HookConfigEditor::forAgent(AgentKind::claude);
    for (const auto& [before, after] : removals)
        EXPECT_EQ(editor->remove(JSONValue::parse(before)), JSONValue::parse(after)) << before;
    // Once Tidewick has filled a user's empty list, removal cannot tell it was
    // theirs: it goes with the key, which means the same to the agent.
    EXPECT_EQ(
        editor->remove(install(AgentKind::claude, JSONValue::parse(R"({"hooks": {"Stop": []}})"))),
        JSONValue(JSONValue::Object{}));
}

TEST(HookConfigEditor, ExtraKeysReplaceTheEntrysValueInPlaceOrComeLast) {
    HookSpec spec{"PreToolUse", "Bash", 10, false, {}};
    spec.extra = {{"timeout", JSONValue::integer(3)}, {"async", JSONValue::boolean(true)}};
    JSONValue out = MatcherGroupEditor(MatcherGroupEditor::Flavor::codex)
                        .install(std::nullopt, {spec}, [](const std::string& e) { return e; });
    // An extra key that exists replaces the value in place; a new one is appended.
    EXPECT_EQ(out.compact(),
              R"({"hooks":{"PreToolUse":[{"matcher":"Bash","hooks":[)"
              R"({"type":"command","command":"PreToolUse","timeout":3,"async":true}]}]}})");

    // Cursor's stop hook: the user's handler stays first; Tidewick's follows, "loop_limit" last.
    JSONValue installed = install(AgentKind::cursor, JSONValue::parse(cursorFile));
    EXPECT_EQ(installed.get("hooks")->get("stop")->compact(),
              R"([{"command":"./hooks/audit.sh","timeout":30},{"command":"'/h/App Support/)"
              R"(tidewick-hook' --agent cursor --event stop","timeout":90000,"loop_limit":null}])");
}

TEST(HookConfigEditor, CursorGatingComesAndGoesAndTheVersionDecidesAnEmptyShell) {
    auto editor = HookConfigEditor::forAgent(AgentKind::cursor);
    JSONValue installed = install(AgentKind::cursor, JSONValue::parse(cursorFile));
    // Gating on, then off again: the gating hooks really go.
    JSONValue gated = install(AgentKind::cursor, installed, GateCommands::on);
    EXPECT_EQ(editor->installedEvents(gated), HookCatalog::installedEvents(AgentKind::cursor));
    EXPECT_EQ(install(AgentKind::cursor, gated).pretty(), installed.pretty());
    // A user's own version stays where it is, with its value.
    JSONValue mine = install(AgentKind::cursor, JSONValue::parse(R"({"hooks": {}, "version": 2})"));
    EXPECT_EQ(keys(mine), (std::vector<std::string>{"hooks", "version"}));
    EXPECT_EQ(*mine.get("version"), JSONValue::integer(2));

    for (const auto& [text, empty] : std::vector<std::pair<const char*, bool>>{
             {R"({"version": 1})", true},
             {R"({"version": 1, "hooks": {"stop": []}})", false},
             {R"({"version": 1, "mine": true})", false}})
        EXPECT_EQ(editor->isEmptyShell(JSONValue::parse(text)), empty) << text;
}

TEST(HookConfigEditor, AntigravityReplacesItsOwnBlockInPlace) {
    const JSONValue original = JSONValue::parse(antigravityFile);
    EXPECT_EQ(HookConfigEditor::forAgent(AgentKind::antigravity)->installedEvents(original),
              (std::set<std::string>{"Stale"}));
    // "enabled" first, then one list per event; tool events are matcher groups.
    const std::string expected =
        Text::replacingAll(R"({
      "linter": {"enabled": true, "PostToolUse": [{"type": "command", "command": "lint"}]},
      "tidewick": {"enabled": true,
        "SessionStart": [{"type": "command", "command": "@SessionStart", "timeout": 10}],
        "PreInvocation": [{"type": "command", "command": "@PreInvocation", "timeout": 10}],
        "PostToolUse": [{"matcher": "*", "hooks": [
          {"type": "command", "command": "@PostToolUse", "timeout": 10}]}],
        "Stop": [{"type": "command", "command": "@Stop", "timeout": 90000}]},
      "zeta": 1})",
                           "@", "'" + helper + "' --agent antigravity --event ");
    EXPECT_EQ(install(AgentKind::antigravity, original), JSONValue::parse(expected));
}

TEST(HookConfigEditor, WrongShapesAreRefusedWithTheSentence) {
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
    const std::string refused = " is not the shape Tidewick expects, so it was left untouched.";
    for (const auto& [agent, text, subject] : rows) {
        SCOPED_TRACE(std::string(rawValue(agent)) + " " + text);
        EXPECT_THAT([&] { (void)install(agent, JSONValue::parse(text)); },
                    ThrowsMessage<HookConfigError>(subject + refused));
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
