#include "adapters/ClaudeAdapter.h"
#include "adapters/CodexAdapter.h"

#include "adapters/AdapterTestSupport.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view base =
    R"({"session_id":"s-1","cwd":"/home/dev/proj","transcript_path":"/t/s-1.jsonl","model":"opus"})";

TEST(ClaudeStyleAdapter, ParsesEveryEventOfTheTable) {
    const Row rows[] = {
        {"SessionStart", R"({"session_title":"Fix login","source":"resume"})",
         EventKind::sessionStarted, "Fix login", "resume", std::nullopt, HoldKind::none},
        {"SessionEnd", R"({"reason":"logout"})", EventKind::sessionEnded, std::nullopt, "logout",
         std::nullopt, HoldKind::none},
        {"PreToolUse",
         R"({"tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"Which DB?",
             "options":[{"label":"Postgres"},{"label":"SQLite"}]}]}})",
         EventKind::notification, "Claude Code is asking you a question",
         "Which DB?\n\u2022 Postgres\n\u2022 SQLite", "question", HoldKind::none},
        {"PreToolUse",
         R"({"tool_name":"request_permissions","tool_input":{"reason":"Needs network"}})",
         EventKind::notification, "Claude Code is asking for your permission", "Needs network",
         "question", HoldKind::none},
        {"PreToolUse",
         R"({"tool_name":"mcp__hub__call","tool_input":{"tool_name":"ask_permission","arguments":{"action":"deploy"}}})",
         EventKind::notification, "Claude Code is asking for your permission",
         "Wants permission for deploy", "question", HoldKind::none},
        {"PreToolUse", R"({"tool_name":"Bash","tool_input":{"command":"npm test"}})",
         EventKind::toolStarted, "Run npm test", "npm test", "Bash", HoldKind::none},
        {"PostToolUse", R"({"tool_name":"Read","tool_input":{"file_path":"/p/a.txt"}})",
         EventKind::toolFinished, "Read a.txt", "/p/a.txt", "Read", HoldKind::none},
        {"PermissionRequest",
         R"({"tool_name":"Bash","tool_input":{"command":"rm -rf build","description":"Delete the build"}})",
         EventKind::permissionRequested, "Run rm -rf build", "rm -rf build\n\nDelete the build",
         "Bash", HoldKind::permission},
        {"PermissionRequest",
         R"({"tool_name":"Edit","tool_input":{"file_path":"/p/a.c","description":"Fix it"}})",
         EventKind::permissionRequested, "Edit a.c", "/p/a.c", "Edit", HoldKind::permission},
        {"PermissionRequest",
         R"({"tool_name":"Bash","tool_input":{"command":"ls","description":""}})",
         EventKind::permissionRequested, "Run ls", "ls", "Bash", HoldKind::permission},
        {"UserPromptSubmit", R"({"prompt":"clean the build"})", EventKind::userPrompt, "You",
         "clean the build", std::nullopt, HoldKind::none},
        {"Stop", R"({"last_assistant_message":"All done."})", EventKind::turnFinished,
         "Finished the turn", "All done.", std::nullopt, HoldKind::reply},
        {"Stop", "{}", EventKind::turnFinished, "Finished the turn", std::nullopt, std::nullopt,
         HoldKind::reply},
        {"Notification", R"({"title":"Waiting","message":"Needs your input"})",
         EventKind::notification, "Waiting", "Needs your input", std::nullopt, HoldKind::none},
        {"PreCompact", R"({"trigger":"auto","matcher":"manual"})", EventKind::compaction,
         "Compacting context", "auto", std::nullopt, HoldKind::none},
        {"PostCompact", R"({"matcher":"manual"})", EventKind::compaction, "Context compacted",
         "manual", std::nullopt, HoldKind::none},
        {"Interrupt", "{}", EventKind::interrupted, "Interrupted", std::nullopt, std::nullopt,
         HoldKind::none},
    };
    ClaudeAdapter claude;
    for (const Row& row : rows)
        expectRow(claude, base, row);

    auto parsed = claude.parse("Stop", payload(base));
    EXPECT_EQ(parsed->event.sessionId, "s-1");
    EXPECT_EQ(parsed->event.projectPath, "/home/dev/proj");
    EXPECT_EQ(parsed->event.transcriptPath, "/t/s-1.jsonl");
    EXPECT_EQ(parsed->event.model, "opus");
}

TEST(ClaudeStyleAdapter, IgnoresWhatItDoesNotReport) {
    ClaudeAdapter claude;
    EXPECT_FALSE(claude.parse("Stop", payload(R"({"session_id":""})")));
    EXPECT_FALSE(claude.parse("Stop", payload(R"({"cwd":"/p"})")));
    EXPECT_FALSE(claude.parse("stop", payload(base)));
    EXPECT_FALSE(claude.parse("MessageDisplay", payload(base)));
    for (const char* tool : {"AskUserQuestion", "ask_question", "Request_Permissions"})
        EXPECT_FALSE(claude.parse("PostToolUse",
                                  payload(base, R"({"tool_name":")" + std::string(tool) + R"("})")))
            << tool;
    // The payload's own event name wins over the command line's.
    auto parsed = claude.parse("Stop", payload(base, R"({"hook_event_name":"Interrupt"})"));
    EXPECT_EQ(parsed->event.kind, EventKind::interrupted);
    EXPECT_EQ(parsed->event.hookEvent, "Interrupt");
}

TEST(ClaudeStyleAdapter, CodexSpeaksTheSameDialectUnderItsOwnName) {
    const char* question =
        R"({"tool_name":"request_user_input","tool_input":{"question":"Ship?"}})";
    CodexAdapter codex;
    EXPECT_EQ(codex.kind(), AgentKind::codex);
    auto parsed = codex.parse("PreToolUse", payload(base, question));
    EXPECT_EQ(parsed->event.title, "Codex is asking you a question");
    EXPECT_EQ(parsed->event.agent, AgentKind::codex);
    EXPECT_EQ(ClaudeAdapter().parse("PreToolUse", payload(base, question))->event.title,
              "Claude Code is asking you a question");
    // The wrapper only forwards: apart from the time, the base adapter's event is identical.
    auto direct = ClaudeStyleAdapter(AgentKind::codex).parse("PreToolUse", payload(base, question));
    direct->event.receivedAt = parsed->event.receivedAt;
    EXPECT_EQ(direct, parsed);
}

TEST(ClaudeStyleAdapter, RendersEveryAnswerOfTheTable) {
    ClaudeAdapter claude;
    auto out = [&](const char* event, const char* extra, std::optional<Decision> decision) {
        return printed(claude, event, base, extra, decision);
    };
    const char* bash = R"({"tool_name":"Bash","tool_input":{"command":"ls"}})";
    EXPECT_EQ(
        out("PermissionRequest", bash, Decision::allow()),
        R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})");
    EXPECT_EQ(
        out("PermissionRequest", bash, Decision::deny("no")),
        R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"no"}}})");
    EXPECT_EQ(
        out("PermissionRequest", bash, Decision::deny()),
        R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"Denied from Tidewick."}}})");
    for (auto decision : {std::optional(Decision::reply("x")), std::optional(Decision::letStop()),
                          std::optional(Decision::timeout()), std::optional<Decision>()}) {
        EXPECT_EQ(out("PermissionRequest", bash, decision), "");
        EXPECT_EQ(out("PreToolUse", bash, decision), "");
    }
    EXPECT_EQ(
        out("Stop", "{}", Decision::reply("say \"hi\"\n")),
        R"({"decision":"block","reason":"Message from the user, sent via Tidewick: say \"hi\"\n"})");
    for (auto decision : {std::optional(Decision::allow()), std::optional(Decision::deny("no")),
                          std::optional(Decision::letStop()), std::optional(Decision::timeout()),
                          std::optional<Decision>()})
        EXPECT_EQ(out("Stop", "{}", decision), "");
    EXPECT_EQ(out("PreToolUse", bash, Decision::allow()), "");
    EXPECT_EQ(out("Notification", "{}", Decision::reply("x")), "");
}

TEST(ClaudeStyleAdapter, FailsSafeSilentlyAndWaitsBrieflyOnlyForEndings) {
    ClaudeAdapter claude;
    CodexAdapter codex;
    for (const char* event : {"PermissionRequest", "Stop", "SessionEnd", "", "whatever"}) {
        EXPECT_EQ(claude.failSafe(event), HookOutput::silent());
        EXPECT_EQ(codex.failSafe(event), HookOutput::silent());
    }
    EXPECT_TRUE(claude.isFireAndForget("SessionEnd"));
    EXPECT_TRUE(codex.isFireAndForget("Interrupt"));
    EXPECT_FALSE(claude.isFireAndForget("sessionEnd"));
    EXPECT_FALSE(claude.isFireAndForget("Stop"));
    EXPECT_FALSE(codex.isFireAndForget("PermissionRequest"));
}

} // namespace
} // namespace tidewick
