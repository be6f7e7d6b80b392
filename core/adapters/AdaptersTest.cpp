#include "adapters/Adapters.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(Adapters, EachAgentsAdapterFailsSafeAndKnowsItsFireAndForgetEvents) {
    using enum AgentKind;
    const char *allow = R"({"permission":"allow"})", *ask = R"({"permission":"ask"})";
    // clang-format off
    const struct { AgentKind agent; const char* event; const char* failSafe; bool fireAndForget; } rows[] = {
        {claude, "PermissionRequest", "", false},
        {claude, "SessionEnd", "", true},
        {claude, "sessionEnd", "", false},
        {codex, "Interrupt", "", true},
        {cursor, "beforeReadFile", allow, false},
        {cursor, "subagentStart", allow, false},
        {cursor, "beforeShellExecution", ask, false},
        {cursor, "preToolUse", ask, false},
        {cursor, "beforeMCPExecution", ask, false},
        {cursor, "BeforeReadFile", "{}", false},
        {cursor, "stop", "{}", false},
        {cursor, "sessionEnd", "{}", true},
        {cursor, "SessionEnd", "{}", false},
        {antigravity, "PreToolUse", R"({"decision":"ask"})", false},
        {antigravity, "Stop", R"({"decision":"stop"})", false},
        {antigravity, "stop", "{}", false},
    };
    // clang-format on
    for (const auto& row : rows) {
        auto adapter = Adapters::adapter(row.agent);
        SCOPED_TRACE(std::string(rawValue(row.agent)) + " " + row.event);
        EXPECT_EQ(adapter->kind(), row.agent);
        EXPECT_EQ(adapter->failSafe(row.event), (HookOutput{row.failSafe, 0}));
        EXPECT_EQ(adapter->isFireAndForget(row.event), row.fireAndForget);
    }
}

} // namespace
} // namespace tidewick
