#include "adapters/AntigravityAdapter.h"

#include "adapters/AdapterTestSupport.h"

namespace tidewick {
namespace {

using namespace tidewick::testing;

constexpr std::string_view base =
    R"({"conversationId":"g-1","workspacePaths":["/ws"],"transcriptPath":"/t.pb","modelName":"gemini"})";
constexpr const char* runTests =
    R"({"toolCall":{"name":"run_command","args":{"CommandLine":"npm test"}}})";

TEST(AntigravityAdapter, ParsesEveryEventOfTheTable) {
    const Row rows[] = {
        {"SessionStart", "{}", EventKind::sessionStarted, std::nullopt, std::nullopt, std::nullopt,
         HoldKind::none},
        {"PreInvocation", "{}", EventKind::working, std::nullopt, std::nullopt, std::nullopt,
         HoldKind::none},
        {"PreToolUse", R"({"toolCall":{"name":"view_file","args":{"AbsolutePath":"/ws/a.py"}}})",
         EventKind::toolStarted, "Read a.py", "/ws/a.py", "view_file", HoldKind::none},
        {"PreToolUse", runTests, EventKind::permissionRequested, "Run npm test", "npm test",
         "run_command", HoldKind::permission},
        {"PostToolUse", runTests, EventKind::toolFinished, "Run npm test", "npm test",
         "run_command", HoldKind::none},
        {"PostToolUse",
         R"({"toolCall":{"name":"run_command","args":{"CommandLine":"npm test"}},"error":"exit 1"})",
         EventKind::toolFinished, "Run npm test failed", "exit 1", "run_command", HoldKind::none},
        {"Stop", R"({"terminationReason":"error"})", EventKind::error, "The agent hit an error",
         std::nullopt, std::nullopt, HoldKind::none},
        {"Stop", R"({"terminationReason":"cancelled","error":"quota exceeded"})", EventKind::error,
         "The agent hit an error", "quota exceeded", std::nullopt, HoldKind::none},
        {"Stop", R"({"terminationReason":"USER_CANCELED","fullyIdle":true})",
         EventKind::interrupted, "Stopped", std::nullopt, std::nullopt, HoldKind::none},
        {"Stop", R"({"terminationReason":"Interrupted","fullyIdle":false})", EventKind::interrupted,
         "Stopped", std::nullopt, std::nullopt, HoldKind::none},
        {"Stop", R"({"fullyIdle":false})", EventKind::working, "Finished a step", std::nullopt,
         std::nullopt, HoldKind::none},
        {"Stop", R"({"fullyIdle":true,"terminationReason":"completed"})", EventKind::turnFinished,
         "Finished the turn", std::nullopt, std::nullopt, HoldKind::reply},
        {"Stop", "{}", EventKind::turnFinished, "Finished the turn", std::nullopt, std::nullopt,
         HoldKind::reply},
    };
    AntigravityAdapter antigravity;
    for (const Row& row : rows)
        expectRow(antigravity, base, row);

    auto event = antigravity.parse("Stop", payload(base))->event;
    EXPECT_EQ(event.sessionId, "g-1");
    EXPECT_EQ(event.projectPath, "/ws");
    EXPECT_EQ(event.transcriptPath, "/t.pb");
    EXPECT_EQ(event.model, "gemini");
}

TEST(AntigravityAdapter, TakesTheEventFromTheCommandLineAndCopesWithoutAToolCall) {
    AntigravityAdapter antigravity;
    EXPECT_FALSE(
        antigravity.parse("Stop", payload(R"({"session_id":"s","workspacePaths":["/ws"]})")));
    EXPECT_FALSE(antigravity.parse("PostInvocation", payload(base)));
    EXPECT_FALSE(antigravity.parse("stop", payload(base)));
    // The payload's own event name is not consulted.
    EXPECT_EQ(
        antigravity.parse("Stop", payload(base, R"({"hook_event_name":"PreToolUse"})"))->event.kind,
        EventKind::turnFinished);

    for (const char* extra :
         {"{}", R"({"toolCall":"run_command"})", R"({"toolCall":{"name":5,"args":[]}})"}) {
        auto parsed = antigravity.parse("PreToolUse", payload(base, extra));
        ASSERT_TRUE(parsed) << extra;
        EXPECT_EQ(parsed->event.title, "tool");
        EXPECT_EQ(parsed->event.toolName, std::nullopt);
        EXPECT_EQ(parsed->hold, HoldKind::none);
    }
    EXPECT_EQ(antigravity.parse("Stop", payload(base, R"({"workspacePaths":[null,"/b"]})"))
                  ->event.projectPath,
              "/b");
}

TEST(AntigravityAdapter, RendersEveryAnswerOfTheTable) {
    AntigravityAdapter antigravity;
    auto out = [&](const char* event, const char* extra, std::optional<Decision> decision) {
        return printed(antigravity, event, base, extra, decision);
    };
    EXPECT_EQ(out("PreToolUse", runTests, Decision::allow()), R"({"decision":"allow"})");
    EXPECT_EQ(out("PreToolUse", runTests, Decision::deny("too risky")),
              R"({"decision":"deny","reason":"too risky"})");
    EXPECT_EQ(out("PreToolUse", runTests, Decision::deny()),
              R"({"decision":"deny","reason":"Denied in Tidewick."})");
    for (auto decision : {std::optional(Decision::reply("x")), std::optional(Decision::letStop()),
                          std::optional(Decision::timeout()), std::optional<Decision>()})
        EXPECT_EQ(out("PreToolUse", runTests, decision),
                  R"({"decision":"ask","reason":"Tidewick did not get an answer in time."})");

    const char* read = R"({"toolCall":{"name":"view_file","args":{"AbsolutePath":"/a"}}})";
    EXPECT_EQ(out("PreToolUse", read, std::nullopt), R"({"decision":"ask"})");
    EXPECT_EQ(out("PreToolUse", read, Decision::allow()), R"({"decision":"ask"})");

    EXPECT_EQ(
        out("Stop", "{}", Decision::reply("use \"pnpm\"")),
        R"({"decision":"continue","reason":"The user replied through Tidewick. Their new message: \"use \"pnpm\"\". Answer it directly, then carry on."})");
    for (auto decision : {std::optional(Decision::letStop()), std::optional(Decision::timeout()),
                          std::optional(Decision::allow()), std::optional<Decision>()})
        EXPECT_EQ(out("Stop", "{}", decision), R"({"decision":"stop"})");
    EXPECT_EQ(out("Stop", R"({"fullyIdle":false})", Decision::reply("x")),
              R"({"decision":"stop"})");

    EXPECT_EQ(out("PostToolUse", runTests, Decision::allow()), "{}");
    EXPECT_EQ(out("SessionStart", "{}", std::nullopt), "{}");
    EXPECT_EQ(out("PreInvocation", "{}", Decision::reply("x")), "{}");
}

TEST(AntigravityAdapter, FailsSafeWithFixedAnswersAndNeverFiresAndForgets) {
    AntigravityAdapter antigravity;
    EXPECT_EQ(antigravity.failSafe("PreToolUse"), (HookOutput{R"({"decision":"ask"})", 0}));
    EXPECT_EQ(antigravity.failSafe("Stop"), (HookOutput{R"({"decision":"stop"})", 0}));
    for (const char* event : {"SessionStart", "PostToolUse", "stop", ""}) {
        EXPECT_EQ(antigravity.failSafe(event), (HookOutput{"{}", 0}));
        EXPECT_FALSE(antigravity.isFireAndForget(event));
    }
    EXPECT_FALSE(antigravity.isFireAndForget("Stop"));
}

} // namespace
} // namespace tidewick
