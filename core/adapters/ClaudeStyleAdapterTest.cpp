#include "adapters/ClaudeAdapter.h"
#include "adapters/CodexAdapter.h"

#include "adapters/AdapterTestSupport.h"
#include "events/PermissionUpdates.h"
#include "foundation/Text.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view claudeBase =
    R"({"session_id":"s-1","cwd":"/home/dev/proj","transcript_path":"/t/s-1.jsonl","model":"opus"})";

// The plain cases (a session's end, a prompt, a turn's last message, a tool before and after,
// a shell command's own explanation) are the recorded payloads' test.
TEST(ClaudeStyleAdapter, ParsesAndAnswersEveryRowOfTheTable) {
    const std::string bash = call("Bash", R"({"command":"ls"})");
    // clang-format off
    const char* askDB = R"({"questions":[{"question":"Which DB?","options":[{"label":"Postgres"},{"label":"SQLite"}]}]})";
    const char* askTwo = R"({"questions":[{"question":"Which colour?","header":"Colour","multiSelect":false,"options":[{"label":"Red","description":"Warm"},{"label":"Blue"}]},{"question":"Which features?","header":"Features","multiSelect":true,"options":[{"label":"Search"},{"label":"Sync"}],"preview":"x"}]})";
    const char* suggested = R"({"tool_name":"Bash","tool_input":{"command":"npm test -- --watch","description":"Test"},"permission_suggestions":[{"type":"setMode","mode":"acceptEdits","destination":"session"},7]})";
    const Row rows[] = {
        {"SessionStart", R"({"session_title":"Fix login","source":"resume"})", sessionStarted, "Fix login", "resume", {}, none},
        {"PreToolUse", call("AskUserQuestion", askDB), notification, "Claude Code is asking you a question", "Which DB?\n\u2022 Postgres\n\u2022 SQLite", "question", none},
        {"PreToolUse", call("mcp__hub__call", R"({"tool_name":"ask_permission","arguments":{"action":"deploy"}})"), notification, "Claude Code is asking for your permission", "Wants permission for deploy", "question", none},
        {"PermissionRequest", call("Edit", R"({"file_path":"/p/a.c","description":"Fix it"})"), permissionRequested, "Edit a.c", "/p/a.c", "Edit", permission},
        {"PermissionRequest", call("Bash", R"({"command":"ls","description":""})"), permissionRequested, "Run ls", "ls", "Bash", permission},
        // An interactive session asks its questions through a permission request of the question tool.
        {"PermissionRequest", call("AskUserQuestion", askTwo), permissionRequested, "Claude Code is asking you a question", "Which colour?\n\u2022 Red\n\u2022 Blue\n\nWhich features?\n\u2022 Search\n\u2022 Sync", "question", permission},
        {"Notification", R"({"title":"Waiting","message":"Needs your input"})", notification, "Waiting", "Needs your input", {}, none},
        {"PreCompact", R"({"trigger":"auto","matcher":"manual"})", compaction, "Compacting context", "auto", {}, none},
        {"PostCompact", R"({"matcher":"manual"})", compaction, "Context compacted", "manual", {}, none},
        {"Interrupt", "{}", interrupted, "Interrupted", {}, {}, none},
        // A question tool without a readable question is reported as the tool call it is.
        {"PreToolUse", call("AskUserQuestion", R"({"questions":[{"question":5,"options":"x"}]})"), toolStarted, "AskUserQuestion", R"({"questions":[{"options":"x","question":5}]})", "AskUserQuestion", none},
    };
    const Answer answers[] = {
        {"PermissionRequest", bash, {Decision::allow(), Decision::allow(std::nullopt, {})}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})"},
        {"PermissionRequest", bash, {Decision::deny("no")}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"no"}}})"},
        {"PermissionRequest", bash, {Decision::deny(), Decision::deny("")}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"Denied from Tidewick."}}})"},
        {"PermissionRequest", bash, withoutVerdict, ""},
        {"PreToolUse", bash, everyDecision, ""},
        {"Stop", "{}", {Decision::reply("say \"hi\"\n")}, R"({"decision":"block","reason":"Message from the user, sent via Tidewick: say \"hi\"\n"})"},
        {"Stop", "{}", withoutReply, ""},
        {"Notification", "{}", {Decision::reply("x")}, ""},
    };
    // clang-format on
    const Common common{"s-1", "/home/dev/proj", "/t/s-1.jsonl", "opus"};
    ClaudeAdapter claude;
    expectRows(claude, claudeBase, common, rows);
    expectAnswers(claude, claudeBase, answers);
    // Codex speaks the same dialect; only the name inside titles differs.
    std::vector<Row> codex(std::begin(rows), std::end(rows));
    for (Row& row : codex)
        row.title = row.title ? Text::replacingAll(*row.title, "Claude Code", "Codex") : row.title;
    expectRows(CodexAdapter(), claudeBase, common, codex);
    expectAnswers(CodexAdapter(), claudeBase, answers);

    // An allow may carry the tool's new input and lasting permissions; Codex refuses every
    // answer that does, so it gets the plain allow.
    const JSONValue answered =
        JSONValue::parse(R"({"questions":[],"answers":{"Which colour?":"Blue"}})");
    const Decision lasting =
        Decision::allow(std::nullopt, {PermissionUpdates::allowRule("Bash", "npm test:*")});
    const Decision both = Decision::allow(answered, {PermissionUpdates::allowRule("Edit", "")});
    // clang-format off
    const Answer richer[] = {
        {"PermissionRequest", bash, {lasting}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow","updatedPermissions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}],"behavior":"allow","destination":"localSettings"}]}}})"},
        {"PermissionRequest", bash, {Decision::allow(answered, {})}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow","updatedInput":{"questions":[],"answers":{"Which colour?":"Blue"}}}}})"},
        {"PermissionRequest", bash, {both}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow","updatedInput":{"questions":[],"answers":{"Which colour?":"Blue"}},"updatedPermissions":[{"type":"addRules","rules":[{"toolName":"Edit"}],"behavior":"allow","destination":"localSettings"}]}}})"},
        {"Stop", "{}", {lasting}, ""},
    };
    expectAnswers(claude, claudeBase, richer);
    const Answer plain[] = {{"PermissionRequest", bash, {lasting, both}, R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})"}};
    // clang-format on
    expectAnswers(CodexAdapter(), claudeBase, plain);

    // A held request keeps the call it is about: the command, the agent's suggestions
    // (objects only) and a question tool's questions.
    auto held = claude.parse("PermissionRequest", payload(claudeBase, suggested));
    ASSERT_TRUE(held && held->call);
    EXPECT_EQ(held->call->tool, "Bash");
    EXPECT_EQ(held->call->command, "npm test -- --watch");
    EXPECT_EQ(JSONValue(held->call->suggestions).compact(),
              R"([{"type":"setMode","mode":"acceptEdits","destination":"session"}])");
    EXPECT_TRUE(held->call->questions.empty());
    auto asked = claude.parse("PermissionRequest", payload(claudeBase, call("AskUserQuestion", askTwo)));
    ASSERT_TRUE(asked && asked->call);
    EXPECT_EQ(asked->call->input, JSONValue::parse(askTwo));
    ASSERT_EQ(asked->call->questions.size(), 2u);
    EXPECT_TRUE(asked->call->questions[1].multiSelect);
    EXPECT_EQ(asked->call->questions[0].options[0], (QuestionOption{"Red", "Warm"}));
    EXPECT_FALSE(claude.parse("PreToolUse", payload(claudeBase, bash))->call);

    // The payload names the event; without a session or for an unknown event nothing is reported.
    auto named = claude.parse("Stop", payload(claudeBase, R"({"hook_event_name":"Interrupt"})"));
    EXPECT_EQ(named->event.kind, EventKind::interrupted);
    EXPECT_EQ(named->event.hookEvent, "Interrupt");
    EXPECT_FALSE(claude.parse("Stop", payload(R"({"session_id":""})")));
    EXPECT_FALSE(claude.parse("Stop", payload(R"({"cwd":"/p"})")));
    EXPECT_FALSE(claude.parse("stop", payload(claudeBase)));
    EXPECT_FALSE(claude.parse("MessageDisplay", payload(claudeBase)));
    // The question was reported when asked; its answer is not a tool call.
    for (const char* tool : {"AskUserQuestion", "ask_question", "Request_Permissions"})
        EXPECT_FALSE(claude.parse("PostToolUse", payload(claudeBase, call(tool, "{}")))) << tool;
}

} // namespace
} // namespace tidewick
