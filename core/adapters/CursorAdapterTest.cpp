#include "adapters/CursorAdapter.h"

#include "adapters/AdapterTestSupport.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view base =
    R"({"conversation_id":"c-1","workspace_roots":["/w"],"cwd":"/cwd","transcript_path":"/t.jsonl","model":"gpt-5"})";

TEST(CursorAdapter, ParsesEveryEventOfTheTable) {
    const Row rows[] = {
        {"sessionStart", R"({"composer_mode":"agent"})", EventKind::sessionStarted, std::nullopt,
         "agent", std::nullopt, HoldKind::none},
        {"sessionEnd", R"({"final_status":"error","error_message":"crashed","reason":"x"})",
         EventKind::error, "Session ended with an error", "crashed", std::nullopt, HoldKind::none},
        {"sessionEnd", R"({"reason":"error"})", EventKind::error, "Session ended with an error",
         "error", std::nullopt, HoldKind::none},
        {"sessionEnd", R"({"final_status":"completed","reason":"error"})", EventKind::sessionEnded,
         std::nullopt, "error", std::nullopt, HoldKind::none},
        {"sessionEnd", R"({"reason":"user_close"})", EventKind::sessionEnded, std::nullopt,
         "user_close", std::nullopt, HoldKind::none},
        {"beforeShellExecution", R"({"command":"git status\nnpm test"})",
         EventKind::permissionRequested, "Run git status npm test", "git status\nnpm test",
         "run_command", HoldKind::permission},
        {"beforeMCPExecution",
         R"({"tool_name":"search","mcp_server_name":"github","tool_input":{"q":"bug","limit":5}})",
         EventKind::permissionRequested, "Use search \u00B7 github", R"({"limit":5,"q":"bug"})",
         "mcp", HoldKind::permission},
        {"beforeMCPExecution", R"({"tool_input":"raw text"})", EventKind::permissionRequested,
         "Use a tool", "raw text", "mcp", HoldKind::permission},
        {"beforeMCPExecution", R"({"tool_name":"t","tool_input":[1]})",
         EventKind::permissionRequested, "Use t", std::nullopt, "mcp", HoldKind::permission},
        {"preToolUse",
         R"({"tool_name":"AskQuestion","tool_input":{"title":"Proceed?","choices":["yes","no"]}})",
         EventKind::notification, "Cursor is asking you a question",
         "Proceed?\n\u2022 yes\n\u2022 no", "question", HoldKind::none},
        {"preToolUse", R"({"tool_name":"Shell","tool_input":{"command":"ls"}})",
         EventKind::toolStarted, "Run ls", "ls", "Shell", HoldKind::none},
        {"postToolUse", R"({"tool_name":"Read","tool_input":{"path":"/w/x.md"}})",
         EventKind::toolFinished, "Read x.md", "/w/x.md", "Read", HoldKind::none},
        {"postToolUse", R"({"tool_name":"AskQuestion","tool_input":{"title":"Proceed?"}})",
         EventKind::toolFinished, "AskQuestion", R"({"title":"Proceed?"})", "AskQuestion",
         HoldKind::none},
        {"afterAgentResponse", R"({"text":"Done."})", EventKind::message, std::nullopt, "Done.",
         std::nullopt, HoldKind::none},
        {"stop", R"({"status":"aborted"})", EventKind::interrupted, "Stopped", std::nullopt,
         std::nullopt, HoldKind::none},
        {"stop", R"({"status":"error"})", EventKind::error, "The agent hit an error", std::nullopt,
         std::nullopt, HoldKind::none},
        {"stop", R"({"status":"completed"})", EventKind::turnFinished, "Finished the turn",
         std::nullopt, std::nullopt, HoldKind::reply},
        {"stop", "{}", EventKind::turnFinished, "Finished the turn", std::nullopt, std::nullopt,
         HoldKind::reply},
        {"preCompact", R"({"trigger":"auto"})", EventKind::compaction, "Compacting context", "auto",
         std::nullopt, HoldKind::none},
    };
    CursorAdapter cursor;
    for (const Row& row : rows)
        expectRow(cursor, base, row);

    auto event = cursor.parse("stop", payload(base))->event;
    EXPECT_EQ(event.sessionId, "c-1");
    EXPECT_EQ(event.projectPath, "/w");
    EXPECT_EQ(event.transcriptPath, "/t.jsonl");
    EXPECT_EQ(event.model, "gpt-5");
}

TEST(CursorAdapter, FindsTheSessionAndProjectThroughFallbacks) {
    CursorAdapter cursor;
    auto project = [&](const char* extra) {
        return cursor.parse("stop", payload(base, extra))->event.projectPath;
    };
    EXPECT_EQ(project(R"({"workspace_roots":[]})"), "/cwd");
    EXPECT_EQ(project(R"({"workspace_roots":[3,"","/second"]})"), "/second");
    EXPECT_EQ(project(R"({"workspace_roots":"/not-an-array"})"), "/cwd");
    EXPECT_EQ(project(R"({"workspace_roots":null,"cwd":null})"), std::nullopt);

    auto session = cursor.parse("stop", payload(R"({"session_id":"s-9"})"));
    EXPECT_EQ(session->event.sessionId, "s-9");
    EXPECT_FALSE(cursor.parse("stop", payload(R"({"conversation_id":"","session_id":7})")));
    EXPECT_FALSE(cursor.parse("beforeShellExecution", payload(base)));
    EXPECT_FALSE(cursor.parse("beforeReadFile", payload(base, R"({"file_path":"/w/a"})")));
    EXPECT_FALSE(cursor.parse("Stop", payload(base)));
    EXPECT_EQ(
        cursor.parse("whatever", payload(base, R"({"hook_event_name":"stop"})"))->event.hookEvent,
        "stop");
}

TEST(CursorAdapter, CutsLongCommandsBetweenWholeCharacters) {
    CursorAdapter cursor;
    auto title = [&](const std::string& command) {
        JSONValue object = JSONValue::parse(base);
        object.set("command", command);
        return cursor.parse("beforeShellExecution", Payload(object))->event.title.value();
    };
    EXPECT_EQ(title(std::string(60, 'a')), "Run " + std::string(60, 'a'));
    EXPECT_EQ(title(std::string(61, 'a')), "Run " + std::string(59, 'a') + "\u2026");

    // 61 characters whose 59th is a thumbs-up with a skin tone (two code points, eight bytes).
    const std::string thumbs = "\U0001F44D\U0001F3FD";
    EXPECT_EQ(title(std::string(58, 'a') + thumbs + "bc"),
              "Run " + std::string(58, 'a') + thumbs + "\u2026");
    // A flag that would be the 60th character is dropped whole, never split.
    const std::string flag = "\U0001F1EF\U0001F1F5";
    EXPECT_EQ(title(std::string(59, 'a') + flag + "b"), "Run " + std::string(59, 'a') + "\u2026");
    EXPECT_EQ(title(std::string(59, 'a') + flag), "Run " + std::string(59, 'a') + flag);
    // A CR LF pair is one line break.
    EXPECT_EQ(title("make\r\nmake install"), "Run make make install");
}

TEST(CursorAdapter, RendersEveryAnswerOfTheTable) {
    CursorAdapter cursor;
    auto out = [&](const char* event, const char* extra, std::optional<Decision> decision) {
        return printed(cursor, event, base, extra, decision);
    };
    const char* shell = R"({"command":"rm -rf /tmp/x"})";
    EXPECT_EQ(out("beforeShellExecution", shell, Decision::allow()), R"({"permission":"allow"})");
    EXPECT_EQ(
        out("beforeShellExecution", shell, Decision::deny("not now")),
        R"({"permission":"deny","user_message":"not now","agent_message":"The user denied this command in Tidewick. Do not retry it; ask how to proceed."})");
    EXPECT_EQ(
        out("beforeMCPExecution", "{}", Decision::deny()),
        R"({"permission":"deny","user_message":"Denied in Tidewick.","agent_message":"The user denied this command in Tidewick. Do not retry it; ask how to proceed."})");
    for (auto decision : {std::optional(Decision::reply("x")), std::optional(Decision::letStop()),
                          std::optional(Decision::timeout()), std::optional<Decision>()})
        EXPECT_EQ(out("beforeShellExecution", shell, decision), R"({"permission":"ask"})");

    EXPECT_EQ(out("stop", "{}", Decision::reply("fix \"it\" please")),
              R"({"followup_message":"fix \"it\" please"})");
    for (auto decision : {std::optional(Decision::letStop()), std::optional(Decision::timeout()),
                          std::optional(Decision::allow()), std::optional<Decision>()})
        EXPECT_EQ(out("stop", "{}", decision), "{}");

    const char* tool = R"({"tool_name":"Read","tool_input":{"path":"/a"}})";
    EXPECT_EQ(out("preToolUse", tool, std::nullopt), R"({"permission":"allow"})");
    EXPECT_EQ(out("preToolUse", tool, Decision::deny()), R"({"permission":"allow"})");
    EXPECT_EQ(out("postToolUse", tool, std::nullopt), "{}");
    EXPECT_EQ(out("sessionStart", "{}", Decision::allow()), "{}");
    EXPECT_EQ(out("stop", R"({"status":"aborted"})", Decision::reply("x")), "{}");
}

TEST(CursorAdapter, FailsSafeWithAnObjectForEveryEvent) {
    CursorAdapter cursor;
    for (const char* event : {"beforeReadFile", "subagentStart"})
        EXPECT_EQ(cursor.failSafe(event), (HookOutput{R"({"permission":"allow"})", 0}));
    for (const char* event : {"beforeShellExecution", "preToolUse", "beforeMCPExecution"})
        EXPECT_EQ(cursor.failSafe(event), (HookOutput{R"({"permission":"ask"})", 0}));
    for (const char* event : {"stop", "sessionEnd", "postToolUse", "BeforeReadFile", ""})
        EXPECT_EQ(cursor.failSafe(event), (HookOutput{"{}", 0}));
    EXPECT_EQ(CursorAdapter::permissionEvents().size(), 5u);
    EXPECT_TRUE(cursor.isFireAndForget("sessionEnd"));
    for (const char* event : {"SessionEnd", "stop", "beforeShellExecution", "sessionStart"})
        EXPECT_FALSE(cursor.isFireAndForget(event));
}

} // namespace
} // namespace tidewick
