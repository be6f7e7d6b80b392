#include "adapters/Adapters.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(Adapters, EachAgentGetsAFreshAdapterOfItsOwnDialect) {
    for (AgentKind kind : allAgentKinds) {
        auto first = Adapters::adapter(kind);
        auto second = Adapters::adapter(kind);
        ASSERT_TRUE(first && second);
        EXPECT_EQ(first->kind(), kind);
        EXPECT_NE(first.get(), second.get());
    }
    // The fail-safe answer tells the dialects apart.
    EXPECT_EQ(Adapters::adapter(AgentKind::claude)->failSafe("PreToolUse").stdoutText, "");
    EXPECT_EQ(Adapters::adapter(AgentKind::codex)->failSafe("PreToolUse").stdoutText, "");
    EXPECT_EQ(Adapters::adapter(AgentKind::cursor)->failSafe("preToolUse").stdoutText,
              R"({"permission":"ask"})");
    EXPECT_EQ(Adapters::adapter(AgentKind::antigravity)->failSafe("PreToolUse").stdoutText,
              R"({"decision":"ask"})");
}

} // namespace
} // namespace tidewick
