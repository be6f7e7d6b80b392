#include "adapters/CursorAdapter.h"

#include "adapters/AdapterTestSupport.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view cursorBase =
    R"({"conversation_id":"c-1","workspace_roots":["/w"],"cwd":"/cwd","transcript_path":"/t.jsonl","model":"gpt-5"})";

TEST(CursorAdapter, ParsesAndAnswersEveryRowOfTheTable) {
    const char* rm = R"({"command":"rm -rf /tmp/x"})";
    const std::string read = call("Read", R"({"path":"/a"})");
    // clang-format off
    // A shell command is held; its title is cut to 60 characters.
    auto shell = [](const std::string& command, const std::string& shown) {
        return Row{"beforeShellExecution", JSONValue(JSONValue::Object{{"command", command}}).compact(), permissionRequested, "Run " + shown, command, "run_command", permission};
    };
    const std::string a58(58, 'a'), a59(59, 'a'), ellipsis = "\u2026";
    const Row rows[] = {
        {"sessionStart", R"({"composer_mode":"agent"})", sessionStarted, {}, "agent", {}, none},
        {"sessionEnd", R"({"final_status":"error","error_message":"crashed","reason":"x"})", error, "Session ended with an error", "crashed", {}, none},
        {"sessionEnd", R"({"reason":"error"})", error, "Session ended with an error", "error", {}, none},
        {"sessionEnd", R"({"final_status":"completed","reason":"error"})", sessionEnded, {}, "error", {}, none},
        shell("git status\nnpm test", "git status npm test"),
        {"beforeMCPExecution", R"({"tool_name":"search","mcp_server_name":"github","tool_input":{"q":"bug","limit":5}})", permissionRequested, "Use search \u00B7 github", R"({"limit":5,"q":"bug"})", "mcp", permission},
        {"beforeMCPExecution", R"({"tool_input":"raw text"})", permissionRequested, "Use a tool", "raw text", "mcp", permission},
        {"beforeMCPExecution", call("t", "[1]"), permissionRequested, "Use t", {}, "mcp", permission},
        {"preToolUse", call("AskQuestion", R"({"title":"Proceed?","choices":["yes","no"]})"), notification, "Cursor is asking you a question", "Proceed?\n\u2022 yes\n\u2022 no", "question", none},
        {"preToolUse", call("Shell", R"({"command":"ls"})"), toolStarted, "Run ls", "ls", "Shell", none},
        {"postToolUse", call("Read", R"({"path":"/w/x.md"})"), toolFinished, "Read x.md", "/w/x.md", "Read", none},
        {"postToolUse", call("AskQuestion", R"({"title":"Proceed?"})"), toolFinished, "AskQuestion", R"({"title":"Proceed?"})", "AskQuestion", none},
        {"afterAgentResponse", R"({"text":"Done."})", message, {}, "Done.", {}, none},
        {"stop", R"({"status":"aborted"})", interrupted, "Stopped", {}, {}, none},
        {"stop", R"({"status":"error"})", error, "The agent hit an error", {}, {}, none},
        {"stop", R"({"status":"completed"})", turnFinished, "Finished the turn", {}, {}, reply},
        {"preCompact", R"({"trigger":"auto"})", compaction, "Compacting context", "auto", {}, none},
        {"preToolUse", call("AskQuestion", R"({"question":["Why?"],"choices":[[],{}]})"), toolStarted, "AskQuestion", R"({"choices":[[],{}],"question":["Why?"]})", "AskQuestion", none},
        shell(a58 + "bc", a58 + "bc"),
        shell(a59 + "bc", a59 + ellipsis),
        shell("make\r\nmake install", "make make install"), // CR LF is one line break
    };
    const Answer answers[] = {
        {"beforeShellExecution", rm, {Decision::allow()}, R"({"permission":"allow"})"},
        {"beforeShellExecution", rm, {Decision::deny("not now")}, R"({"permission":"deny","user_message":"not now","agent_message":"The user denied this command in Tidewick. Do not retry it; ask how to proceed."})"},
        {"beforeMCPExecution", "{}", {Decision::deny()}, R"({"permission":"deny","user_message":"Denied in Tidewick.","agent_message":"The user denied this command in Tidewick. Do not retry it; ask how to proceed."})"},
        {"beforeShellExecution", rm, withoutVerdict, R"({"permission":"ask"})"},
        {"stop", "{}", {Decision::reply("fix \"it\" please")}, R"({"followup_message":"fix \"it\" please"})"},
        {"stop", "{}", withoutReply, "{}"},
        {"stop", R"({"status":"aborted"})", {Decision::reply("x")}, "{}"},
        // A tool call that was only reported is let through.
        {"preToolUse", read, {std::nullopt, Decision::deny()}, R"({"permission":"allow"})"},
        {"postToolUse", read, {std::nullopt}, "{}"},
        {"sessionStart", "{}", {Decision::allow()}, "{}"},
    };
    // clang-format on
    expectRows(CursorAdapter(), cursorBase, {"c-1", "/w", "/t.jsonl", "gpt-5"}, rows);
    expectAnswers(CursorAdapter(), cursorBase, answers);
    // A held command keeps the command, for a lasting allow of its prefix.
    EXPECT_EQ(CursorAdapter().parse("beforeShellExecution", payload(cursorBase, rm))->call->command,
              "rm -rf /tmp/x");
}

// Mistyped roots, directory and command: the hostile input test.
TEST(CursorAdapter, FindsTheSessionAndProjectThroughFallbacks) {
    CursorAdapter cursor;
    auto project = [&](const char* extra) {
        return cursor.parse("stop", payload(cursorBase, extra))->event.projectPath;
    };
    EXPECT_EQ(project(R"({"workspace_roots":[]})"), "/cwd");
    EXPECT_EQ(project(R"({"workspace_roots":[3,"","/second"]})"), "/second");
    EXPECT_EQ(project(R"({"workspace_roots":"/not-an-array"})"), "/cwd");

    EXPECT_EQ(cursor.parse("stop", payload(R"({"session_id":"s-9"})"))->event.sessionId, "s-9");
    EXPECT_FALSE(cursor.parse("stop", payload(R"({"conversation_id":"","session_id":7})")));
    EXPECT_FALSE(cursor.parse("beforeReadFile", payload(cursorBase, R"({"file_path":"/w/a"})")));
    EXPECT_FALSE(cursor.parse("Stop", payload(cursorBase)));
    auto named = cursor.parse("whatever", payload(cursorBase, R"({"hook_event_name":"stop"})"));
    EXPECT_EQ(named->event.hookEvent, "stop");
}

} // namespace
} // namespace tidewick
