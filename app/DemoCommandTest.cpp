// `tidewick demo` against a real headless application, answered through the
// control commands; and what each agent's answer is taken to mean.
#include "DemoCommand.h"
#include "TidewickPrograms.h"

#include <future>

namespace tidewick {
namespace {

using testing::ProgramResult;

TEST(DemoCommand, EveryAgentPrintsTheAnswerGivenInTidewick) {
    testing::TidewickPrograms run;
    EXPECT_EQ(run.fails({"demo"}, 3),
              "Tidewick isn't running. Start it in another terminal with `tidewick app`, then "
              "run `tidewick demo` again.\n");

    ASSERT_TRUE(run.startApp());
    auto demo = std::async(std::launch::async, [&run] { return run.tidewick({"demo"}); });
    ASSERT_EQ(run.waitForHeld(4).size(), 4u);
    EXPECT_EQ(run.tidewick({"allow", "demo-claude"}).status, 0);
    EXPECT_EQ(run.tidewick({"reply", "demo-codex", "Update the docs too."}).status, 0);
    EXPECT_EQ(run.tidewick({"deny", "demo-cursor", "-m", "Not on main"}).status, 0);
    EXPECT_EQ(run.tidewick({"deny", "demo-antigravity"}).status, 0);

    ASSERT_EQ(demo.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    const ProgramResult result = demo.get();
    EXPECT_EQ(result.status, 0) << result.err;
    for (const std::string line : {
             "[Cursor] answer: {\"permission\":\"allow\"} → allowed\n",
             "[Claude Code] answer: {\"hookSpecificOutput\":{\"hookEventName\":"
             "\"PermissionRequest\",\"decision\":{\"behavior\":\"allow\"}}} → allowed\n",
             "[Codex] answer: {\"decision\":\"block\",\"reason\":\"Message from the user, sent via "
             "Tidewick: Update the docs too.\"} → reply: Update the docs too.\n",
             "→ denied: Not on main\n",
             "[Antigravity] answer: {\"decision\":\"deny\",\"reason\":\"Denied in Tidewick.\"} → "
             "denied: Denied in Tidewick.\n",
             "[Claude Code] asks to run `rm -rf build && npm run build`",
         })
        EXPECT_NE(result.out.find(line), std::string::npos) << line << "\nin:\n" << result.out;
    EXPECT_TRUE(result.out.ends_with(
        "The demo is over. Its sessions stay in Tidewick's list until they age out.\n"));
}

TEST(DemoAnswers, DescribeEachDialect) {
    const std::string asks = "no answer from Tidewick, so ";
    const struct {
        AgentKind agent;
        const char* event;
        const char* output;
        std::string meaning;
    } cases[] = {
        {AgentKind::claude, "PermissionRequest", "", asks + "Claude Code asks in its own window"},
        {AgentKind::codex, "PermissionRequest",
         R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"no"}}})", "denied: no"},
        {AgentKind::codex, "Stop", "", "it stops"},
        {AgentKind::cursor, "beforeShellExecution", R"({"permission":"ask"})",
         asks + "Cursor asks in its own window"},
        {AgentKind::cursor, "stop", R"({"followup_message":"go on"})", "reply: go on"},
        {AgentKind::antigravity, "PreToolUse", R"({"decision":"ask","reason":"Too late."})",
         asks + "Antigravity asks in its own window"},
        {AgentKind::antigravity, "Stop", R"({"decision":"stop"})", "it stops"},
        {AgentKind::claude, "Stop", "not json", "an answer Tidewick does not recognise"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(describeAnswer(each.agent, each.event, each.output), each.meaning)
            << cliName(each.agent) << " " << each.event << " " << each.output;
}

} // namespace
} // namespace tidewick
