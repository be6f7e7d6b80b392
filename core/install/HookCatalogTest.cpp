#include "install/HookCatalog.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

// One row per entry, in writing order: "event timeout", plus " waits" for the
// entries that hold the agent, a matcher after "~" and the extra pairs.
std::vector<std::string> rows(AgentKind agent, GateCommands gate) {
    std::vector<std::string> out;
    for (const HookSpec& spec : HookCatalog::specs(agent, gate)) {
        std::string row = spec.event + " " + std::to_string(spec.timeoutSeconds);
        row += spec.waitsForUser ? " waits" : "";
        row += spec.matcher ? " ~" + *spec.matcher : "";
        for (const auto& [key, value] : spec.extra)
            row += " " + key + "=" + value.compact();
        out.push_back(row);
    }
    return out;
}

TEST(HookCatalog, EveryAgentsTableRowByRowInWritingOrder) {
    using Rows = std::vector<std::string>;
    const Rows claude = {"SessionStart 10",  "UserPromptSubmit 10", "SessionEnd 5",
                         "PreToolUse 10",    "PostToolUse 10",      "PermissionRequest 90000 waits",
                         "Stop 90000 waits", "Notification 10",     "PreCompact 10",
                         "PostCompact 10"};
    const Rows codex = {"SessionStart 10",  "UserPromptSubmit 10", "SessionEnd 2",
                        "PreToolUse 10",    "PostToolUse 10",      "PermissionRequest 90000 waits",
                        "Stop 90000 waits", "PreCompact 10",       "PostCompact 10",
                        "Interrupt 2"};
    const Rows antigravity = {"SessionStart 10", "PreInvocation 10", "PostToolUse 10",
                              "Stop 90000 waits"};
    for (GateCommands gate : {GateCommands::off, GateCommands::on}) {
        EXPECT_EQ(rows(AgentKind::claude, gate), claude);
        EXPECT_EQ(rows(AgentKind::codex, gate), codex);
        EXPECT_EQ(rows(AgentKind::antigravity, gate), antigravity);
    }
    EXPECT_EQ(rows(AgentKind::cursor, GateCommands::off),
              (Rows{"sessionStart 10", "sessionEnd 5", "postToolUse 10", "afterAgentResponse 10",
                    "preCompact 10", "preToolUse 10", "stop 90000 waits loop_limit=null"}));
    EXPECT_EQ(rows(AgentKind::cursor, GateCommands::on),
              (Rows{"sessionStart 10", "sessionEnd 5", "beforeShellExecution 90000 waits",
                    "beforeMCPExecution 90000 waits", "postToolUse 10", "afterAgentResponse 10",
                    "preCompact 10", "preToolUse 10", "stop 90000 waits loop_limit=null"}));

    // Every event ever installed, gating included.
    for (AgentKind agent : allAgentKinds) {
        std::set<std::string> events;
        for (const HookSpec& spec : HookCatalog::specs(agent, GateCommands::on))
            events.insert(spec.event);
        EXPECT_EQ(HookCatalog::installedEvents(agent), events) << rawValue(agent);
    }
}

TEST(HookCatalog, CommandQuotesThePathForAShell) {
    EXPECT_EQ(HookCatalog::command("/Users/me/Application Support/tidewick-hook", AgentKind::claude,
                                   "PreToolUse"),
              "'/Users/me/Application Support/tidewick-hook' --agent claude --event PreToolUse");
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
