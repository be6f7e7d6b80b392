#include "install/HookCatalog.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

// The table in writing order, one row per entry: "event timeout", plus
// " waits" where the agent is held, a matcher after "~" and the extra pairs.
std::string table(AgentKind agent, GateCommands gate) {
    std::string out;
    for (const HookSpec& spec : HookCatalog::specs(agent, gate)) {
        out += (out.empty() ? "" : ", ") + spec.event + " " + std::to_string(spec.timeoutSeconds);
        out += spec.waitsForUser ? " waits" : "";
        out += spec.matcher ? " ~" + *spec.matcher : "";
        for (const auto& [key, value] : spec.extra)
            out += " " + key + "=" + value.compact();
    }
    return out;
}

TEST(HookCatalog, EveryAgentsTableRowByRowInWritingOrder) {
    for (GateCommands gate : {GateCommands::off, GateCommands::on}) {
        EXPECT_EQ(table(AgentKind::claude, gate),
                  "SessionStart 10, UserPromptSubmit 10, SessionEnd 5, PreToolUse 10, "
                  "PostToolUse 10, PermissionRequest 90000 waits, Stop 90000 waits, "
                  "Notification 10, PreCompact 10, PostCompact 10");
        EXPECT_EQ(table(AgentKind::codex, gate),
                  "SessionStart 10, UserPromptSubmit 10, SessionEnd 2, PreToolUse 10, "
                  "PostToolUse 10, PermissionRequest 90000 waits, Stop 90000 waits, "
                  "PreCompact 10, PostCompact 10, Interrupt 2");
        EXPECT_EQ(table(AgentKind::antigravity, gate),
                  "SessionStart 10, PreInvocation 10, PostToolUse 10, Stop 90000 waits");
    }
    EXPECT_EQ(table(AgentKind::cursor, GateCommands::off),
              "sessionStart 10, sessionEnd 5, postToolUse 10, afterAgentResponse 10, "
              "preCompact 10, preToolUse 10, stop 90000 waits loop_limit=null");
    EXPECT_EQ(table(AgentKind::cursor, GateCommands::on),
              "sessionStart 10, sessionEnd 5, beforeShellExecution 90000 waits, "
              "beforeMCPExecution 90000 waits, postToolUse 10, afterAgentResponse 10, "
              "preCompact 10, preToolUse 10, stop 90000 waits loop_limit=null");
}

// A path with blanks is shown quoted by the editor tests' literal documents.
TEST(HookCatalog, CommandQuotesThePathForAShell) {
    EXPECT_EQ(HookCatalog::command("/tmp/it's/tidewick-hook", AgentKind::cursor, "stop"),
              "'/tmp/it'\\''s/tidewick-hook' --agent cursor --event stop");
    // Nothing else is escaped: the quotes already protect $, \ and blanks.
    EXPECT_EQ(HookCatalog::command("/a b/$x\\y", AgentKind::antigravity, "Stop"),
              "'/a b/$x\\y' --agent antigravity --event Stop");
}

TEST(HookCatalog, IsOursLooksForTheMarkerInAStringCommand) {
    for (const char* ours : {R"({"command":"/usr/local/bin/tidewick-hook-old --x"})",
                             R"({"type":"command","command":"'/x/tidewick-hook' --agent claude"})"})
        EXPECT_TRUE(isOurs(JSONValue::parse(ours))) << ours;
    // Case matters: only the exact file name is ours.
    for (const char* other :
         {R"({"command":42})", R"({"cmd":"tidewick-hook"})", R"({"command":"~/bin/lint.sh"})",
          R"(["tidewick-hook"])", R"("tidewick-hook")", R"({"command":"Tidewick-Hook"})"})
        EXPECT_FALSE(isOurs(JSONValue::parse(other))) << other;
}

} // namespace
} // namespace tidewick
