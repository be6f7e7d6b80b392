#include "adapters/AntigravityAdapter.h"

#include "adapters/AdapterTestSupport.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view base =
    R"({"conversationId":"g-1","workspacePaths":["/ws"],"transcriptPath":"/t.pb","modelName":"gemini"})";
constexpr const char* runTests =
    R"({"toolCall":{"name":"run_command","args":{"CommandLine":"npm test"}}})";

TEST(AntigravityAdapter, ParsesAndAnswersEveryRowOfTheTable) {
    const char* read = R"({"toolCall":{"name":"view_file","args":{"AbsolutePath":"/a"}}})";
    // clang-format off
    const Row rows[] = {
        {"SessionStart", "{}", sessionStarted, {}, {}, {}, none},
        {"PreInvocation", "{}", working, {}, {}, {}, none},
        {"PreToolUse", R"({"toolCall":{"name":"view_file","args":{"AbsolutePath":"/ws/a.py"}}})", toolStarted, "Read a.py", "/ws/a.py", "view_file", none},
        {"PreToolUse", runTests, permissionRequested, "Run npm test", "npm test", "run_command", permission},
        // A missing tool call, or one that is no object, is a tool nobody can name.
        {"PreToolUse", "{}", toolStarted, "tool", {}, {}, none},
        {"PreToolUse", R"({"toolCall":"run_command"})", toolStarted, "tool", {}, {}, none},
        {"PostToolUse", runTests, toolFinished, "Run npm test", "npm test", "run_command", none},
        {"PostToolUse", R"({"toolCall":{"name":"run_command","args":{"CommandLine":"npm test"}},"error":"exit 1"})", toolFinished, "Run npm test failed", "exit 1", "run_command", none},
        {"Stop", R"({"terminationReason":"error"})", error, "The agent hit an error", {}, {}, none},
        {"Stop", R"({"terminationReason":"cancelled","error":"quota exceeded"})", error, "The agent hit an error", "quota exceeded", {}, none},
        {"Stop", R"({"terminationReason":"USER_CANCELED","fullyIdle":true})", interrupted, "Stopped", {}, {}, none},
        {"Stop", R"({"terminationReason":"Interrupted","fullyIdle":false})", interrupted, "Stopped", {}, {}, none},
        {"Stop", R"({"fullyIdle":false})", working, "Finished a step", {}, {}, none},
        {"Stop", R"({"fullyIdle":true,"terminationReason":"completed"})", turnFinished, "Finished the turn", {}, {}, reply},
        // The payload's own event name is not consulted.
        {"Stop", R"({"hook_event_name":"PreToolUse"})", turnFinished, "Finished the turn", {}, {}, reply},
    };
    const Answer answers[] = {
        {"PreToolUse", runTests, {Decision::allow()}, R"({"decision":"allow"})"},
        {"PreToolUse", runTests, {Decision::deny("too risky")}, R"({"decision":"deny","reason":"too risky"})"},
        {"PreToolUse", runTests, {Decision::deny()}, R"({"decision":"deny","reason":"Denied in Tidewick."})"},
        {"PreToolUse", runTests, withoutVerdict, R"({"decision":"ask","reason":"Tidewick did not get an answer in time."})"},
        {"PreToolUse", read, {std::nullopt, Decision::allow()}, R"({"decision":"ask"})"},
        {"Stop", "{}", {Decision::reply("use \"pnpm\"")}, R"({"decision":"continue","reason":"The user replied through Tidewick. Their new message: \"use \"pnpm\"\". Answer it directly, then carry on."})"},
        {"Stop", "{}", withoutReply, R"({"decision":"stop"})"},
        {"Stop", R"({"fullyIdle":false})", {Decision::reply("x")}, R"({"decision":"stop"})"},
        {"PostToolUse", runTests, everyDecision, "{}"},
        {"SessionStart", "{}", {std::nullopt}, "{}"},
        {"PreInvocation", "{}", {Decision::reply("x")}, "{}"},
    };
    // clang-format on
    AntigravityAdapter antigravity;
    expectRows(antigravity, base, {"g-1", "/ws", "/t.pb", "gemini"}, rows);
    expectAnswers(antigravity, base, answers);
    EXPECT_EQ(antigravity.parse("PreToolUse", payload(base, runTests))->call->command, "npm test");

    EXPECT_FALSE(antigravity.parse("Stop", payload(R"({"session_id":"s"})")));
    EXPECT_FALSE(antigravity.parse("PostInvocation", payload(base)));
    EXPECT_FALSE(antigravity.parse("stop", payload(base)));
    auto project = antigravity.parse("Stop", payload(base, R"({"workspacePaths":[null,"/b"]})"));
    EXPECT_EQ(project->event.projectPath, "/b");
}

} // namespace
} // namespace tidewick
