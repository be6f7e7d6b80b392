// Whatever an agent (or anyone else) writes to the hook, the adapters neither
// crash nor throw: mistyped values are absent, deep values are survivable.
#include "adapters/Adapters.h"

#include "adapters/AdapterTestSupport.h"
#include "foundation/Text.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

// A dialect's payload with every key but the session of the wrong type ("@" is the tool's
// input), the events it is fed to, and those that describe a tool call or are ignored.
struct Dialect {
    std::vector<AgentKind> agents;
    const char* keys;
    std::vector<std::string> events, toolCalls, ignored;
};

// clang-format off
const Dialect dialects[] = {
    {{AgentKind::claude, AgentKind::codex},
     R"({"session_id":"s-1","hook_event_name":7,"cwd":["/p"],"transcript_path":{"p":1},"model":3.5,"tool_name":{"n":"Bash"},
        "prompt":[],"last_assistant_message":false,"title":1,"message":{},"trigger":[],"matcher":null,"session_title":2,
        "source":[],"reason":{},"tool_input":@})",
     {"SessionStart", "SessionEnd", "UserPromptSubmit", "Stop", "Notification", "PreCompact", "Interrupt"},
     {"PreToolUse", "PostToolUse", "PermissionRequest"}, {}},
    {{AgentKind::cursor},
     R"({"conversation_id":"s-1","hook_event_name":["x"],"workspace_roots":[1,{"a":"/x"},["/y"],null],"cwd":5,
        "transcript_path":[],"model":{},"composer_mode":1,"final_status":[],"reason":2,"error_message":{},"command":["ls"],
        "tool_name":3,"mcp_server_name":[],"text":false,"status":{},"trigger":0,"tool_input":@})",
     {"sessionStart", "sessionEnd", "afterAgentResponse", "stop", "preCompact"},
     {"beforeMCPExecution", "preToolUse", "postToolUse"}, {"beforeShellExecution"}},
    {{AgentKind::antigravity},
     R"({"conversationId":"s-1","workspacePaths":{"0":"/x"},"transcriptPath":1,"modelName":[],
        "terminationReason":{"r":"error"},"error":["boom"],"fullyIdle":"false","toolCall":{"name":["run_command"],"args":@}})",
     {"SessionStart", "PreInvocation", "Stop"}, {"PreToolUse", "PostToolUse"}, {}},
};
// clang-format on

void expectSurvives(const AgentAdapter& adapter, const Dialect& dialect, const std::string& input) {
    Payload payload(JSONValue::parse(Text::replacingAll(dialect.keys, "@", input)));
    for (const auto* list : {&dialect.events, &dialect.toolCalls, &dialect.ignored}) {
        for (const std::string& name : *list) {
            SCOPED_TRACE(std::string(rawValue(adapter.kind())) + " " + name);
            std::optional<ParsedHook> parsed;
            ASSERT_NO_THROW(parsed = adapter.parse(name, payload));
            ASSERT_EQ(parsed.has_value(), list != &dialect.ignored);
            if (!parsed)
                continue;
            const AgentEvent& event = parsed->event;
            const bool mcp = name == "beforeMCPExecution";
            EXPECT_EQ(event.sessionId, "s-1");
            EXPECT_EQ(event.hookEvent, name);
            EXPECT_EQ(event.projectPath, std::nullopt);
            EXPECT_EQ(event.transcriptPath, std::nullopt);
            EXPECT_EQ(event.model, std::nullopt);
            EXPECT_EQ(event.toolName, mcp ? MaybeText("mcp") : std::nullopt);
            // A tool call names no tool, though its input may show as the detail.
            if (list == &dialect.toolCalls) {
                EXPECT_EQ(event.title, mcp ? "Use a tool" : "tool");
            } else {
                EXPECT_EQ(event.detail, std::nullopt);
            }
            for (const auto& decision : everyDecision)
                EXPECT_NO_THROW((void)adapter.output(*parsed, decision));
        }
    }
}

TEST(HostileInput, EveryDialectSurvivesWrongTypesAndDeepNesting) {
    // Nested arrays just inside the parser's depth limit, and JSON text nested far beyond it.
    const std::string deep[] = {R"({"x":)" + std::string(900, '[') + std::string(900, ']') + "}",
                                JSONValue::quote(std::string(5000, '[') + std::string(5000, ']'))};
    for (const Dialect& dialect : dialects)
        for (AgentKind agent : dialect.agents)
            for (const std::string& input : deep)
                expectSurvives(*Adapters::adapter(agent), dialect, input);
}

} // namespace
} // namespace tidewick
