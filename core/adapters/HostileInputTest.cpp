// Whatever an agent (or anyone else) writes to the hook, the adapters neither
// crash nor throw: mistyped values are absent, deep values are survivable.
#include "adapters/Adapters.h"

#include "adapters/AdapterTestSupport.h"

#include <vector>

namespace tidewick {
namespace {

using namespace tidewick::testing;

enum class Detail { absent, any };

struct Case {
    const char* event;
    bool reported;
    MaybeText title;
    MaybeText toolName;
    Detail detail;
};

// Nested arrays just inside the parser's depth limit, wrapped in an object.
std::string deepObject() {
    return R"({"x":)" + std::string(900, '[') + std::string(900, ']') + "}";
}

// JSON text nested far beyond the parser's limit, as a string value.
std::string deepText() {
    return JSONValue::quote(std::string(5000, '[') + std::string(5000, ']'));
}

// A payload whose every key but the session is of the wrong type.
// `closing` ends any object that `keys` left open around the input.
std::string hostile(std::string_view sessionKey, std::string_view keys, const std::string& input,
                    std::string_view closing) {
    return "{\"" + std::string(sessionKey) + R"(":"s-1",)" + std::string(keys) + input +
           std::string(closing) + "}";
}

void expectSurvives(AgentKind kind, std::string_view sessionKey, std::string_view keys,
                    const std::vector<Case>& cases, std::string_view closing = "") {
    auto adapter = Adapters::adapter(kind);
    for (const std::string& input : {deepObject(), deepText()}) {
        Payload payload(JSONValue::parse(hostile(sessionKey, keys, input, closing)));
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(rawValue(kind)) + " " + c.event);
            std::optional<ParsedHook> parsed;
            ASSERT_NO_THROW(parsed = adapter->parse(c.event, payload));
            ASSERT_EQ(parsed.has_value(), c.reported);
            if (!parsed)
                continue;
            const AgentEvent& event = parsed->event;
            EXPECT_EQ(event.sessionId, "s-1");
            EXPECT_EQ(event.hookEvent, c.event);
            EXPECT_EQ(event.projectPath, std::nullopt);
            EXPECT_EQ(event.transcriptPath, std::nullopt);
            EXPECT_EQ(event.model, std::nullopt);
            EXPECT_EQ(event.title, c.title);
            EXPECT_EQ(event.toolName, c.toolName);
            if (c.detail == Detail::absent) {
                EXPECT_EQ(event.detail, std::nullopt);
            }
            for (auto decision : {std::optional(Decision::allow()), std::optional(Decision::deny()),
                                  std::optional(Decision::reply("r")), std::optional<Decision>()})
                EXPECT_NO_THROW((void)adapter->output(*parsed, decision));
        }
        // A payload that is not an object at all names no session.
        for (const char* root : {"[1,2]", "\"text\"", "null", "42"})
            EXPECT_FALSE(adapter->parse(cases.front().event, Payload(JSONValue::parse(root))));
    }
}

TEST(HostileInput, ClaudeStylePayloadsWithWrongTypes) {
    const char* keys =
        R"("hook_event_name":7,"cwd":["/p"],"transcript_path":{"p":1},"model":3.5,"tool_name":{"n":"Bash"},
           "prompt":[],"last_assistant_message":false,"title":1,"message":{},"trigger":[],"matcher":null,
           "session_title":2,"source":[],"reason":{},"tool_input":)";
    const std::vector<Case> cases = {
        {"SessionStart", true, std::nullopt, std::nullopt, Detail::absent},
        {"SessionEnd", true, std::nullopt, std::nullopt, Detail::absent},
        {"PreToolUse", true, "tool", std::nullopt, Detail::any},
        {"PostToolUse", true, "tool", std::nullopt, Detail::any},
        {"PermissionRequest", true, "tool", std::nullopt, Detail::any},
        {"UserPromptSubmit", true, "You", std::nullopt, Detail::absent},
        {"Stop", true, "Finished the turn", std::nullopt, Detail::absent},
        {"Notification", true, std::nullopt, std::nullopt, Detail::absent},
        {"PreCompact", true, "Compacting context", std::nullopt, Detail::absent},
        {"Interrupt", true, "Interrupted", std::nullopt, Detail::absent},
    };
    expectSurvives(AgentKind::claude, "session_id", keys, cases);
    expectSurvives(AgentKind::codex, "session_id", keys, cases);
}

TEST(HostileInput, CursorPayloadsWithWrongTypes) {
    const char* keys =
        R"("hook_event_name":["x"],"workspace_roots":[1,{"a":"/x"},["/y"],null],"cwd":5,"transcript_path":[],
           "model":{},"composer_mode":1,"final_status":[],"reason":2,"error_message":{},"command":["ls"],
           "tool_name":3,"mcp_server_name":[],"text":false,"status":{},"trigger":0,"tool_input":)";
    expectSurvives(AgentKind::cursor, "conversation_id", keys,
                   {
                       {"sessionStart", true, std::nullopt, std::nullopt, Detail::absent},
                       {"sessionEnd", true, std::nullopt, std::nullopt, Detail::absent},
                       {"beforeShellExecution", false, std::nullopt, std::nullopt, Detail::absent},
                       {"beforeMCPExecution", true, "Use a tool", "mcp", Detail::any},
                       {"preToolUse", true, "tool", std::nullopt, Detail::any},
                       {"postToolUse", true, "tool", std::nullopt, Detail::any},
                       {"afterAgentResponse", true, std::nullopt, std::nullopt, Detail::absent},
                       {"stop", true, "Finished the turn", std::nullopt, Detail::absent},
                       {"preCompact", true, "Compacting context", std::nullopt, Detail::absent},
                   });
}

TEST(HostileInput, AntigravityPayloadsWithWrongTypes) {
    const char* keys =
        R"("workspacePaths":{"0":"/x"},"transcriptPath":1,"modelName":[],"terminationReason":{"r":"error"},
           "error":["boom"],"fullyIdle":"false","toolCall":{"name":["run_command"],"args":)";
    expectSurvives(AgentKind::antigravity, "conversationId", keys,
                   {
                       {"SessionStart", true, std::nullopt, std::nullopt, Detail::absent},
                       {"PreInvocation", true, std::nullopt, std::nullopt, Detail::absent},
                       {"PreToolUse", true, "tool", std::nullopt, Detail::any},
                       {"PostToolUse", true, "tool", std::nullopt, Detail::any},
                       {"Stop", true, "Finished the turn", std::nullopt, Detail::absent},
                   },
                   "}");
}

TEST(HostileInput, QuestionToolsWithMistypedQuestions) {
    for (AgentKind kind : {AgentKind::claude, AgentKind::cursor}) {
        auto adapter = Adapters::adapter(kind);
        const char* event = kind == AgentKind::claude ? "PreToolUse" : "preToolUse";
        for (const char* input :
             {R"({"questions":[{"question":5,"options":"x"}]})",
              R"({"questions":{"question":"?"}})", R"({"question":["Why?"],"choices":[[],{}]})",
              R"("{\"question\":7}")", "[]"}) {
            SCOPED_TRACE(input);
            Payload payload(JSONValue::parse(
                R"({"session_id":"s","tool_name":"AskUserQuestion","tool_input":)" +
                std::string(input) + "}"));
            std::optional<ParsedHook> parsed;
            ASSERT_NO_THROW(parsed = adapter->parse(event, payload));
            ASSERT_TRUE(parsed);
            // No readable question: reported as the tool call it is.
            EXPECT_EQ(parsed->event.kind, EventKind::toolStarted);
            EXPECT_EQ(parsed->event.title, "AskUserQuestion");
        }
    }
}

} // namespace
} // namespace tidewick
