#include "install/HookCatalog.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

struct Row {
    const char* event;
    std::int64_t timeout;
    bool waits;
};

void expectTable(const std::vector<HookSpec>& specs, const std::vector<Row>& rows) {
    ASSERT_EQ(specs.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].event);
        EXPECT_EQ(specs[i].event, rows[i].event);
        EXPECT_EQ(specs[i].timeoutSeconds, rows[i].timeout);
        EXPECT_EQ(specs[i].waitsForUser, rows[i].waits);
        EXPECT_FALSE(specs[i].matcher);
        if (specs[i].event != "stop") {
            EXPECT_TRUE(specs[i].extra.empty());
        }
    }
}

TEST(HookCatalog, EveryAgentsTableInWritingOrder) {
    const std::vector<Row> claude = {
        {"SessionStart", 10, false}, {"UserPromptSubmit", 10, false},
        {"SessionEnd", 5, false},    {"PreToolUse", 10, false},
        {"PostToolUse", 10, false},  {"PermissionRequest", 90000, true},
        {"Stop", 90000, true},       {"Notification", 10, false},
        {"PreCompact", 10, false},   {"PostCompact", 10, false}};
    const std::vector<Row> codex = {{"SessionStart", 10, false}, {"UserPromptSubmit", 10, false},
                                    {"SessionEnd", 2, false},    {"PreToolUse", 10, false},
                                    {"PostToolUse", 10, false},  {"PermissionRequest", 90000, true},
                                    {"Stop", 90000, true},       {"PreCompact", 10, false},
                                    {"PostCompact", 10, false},  {"Interrupt", 2, false}};
    const std::vector<Row> cursor = {{"sessionStart", 10, false}, {"sessionEnd", 5, false},
                                     {"postToolUse", 10, false},  {"afterAgentResponse", 10, false},
                                     {"preCompact", 10, false},   {"preToolUse", 10, false},
                                     {"stop", 90000, true}};
    const std::vector<Row> gatedCursor = {{"sessionStart", 10, false},
                                          {"sessionEnd", 5, false},
                                          {"beforeShellExecution", 90000, true},
                                          {"beforeMCPExecution", 90000, true},
                                          {"postToolUse", 10, false},
                                          {"afterAgentResponse", 10, false},
                                          {"preCompact", 10, false},
                                          {"preToolUse", 10, false},
                                          {"stop", 90000, true}};
    const std::vector<Row> antigravity = {{"SessionStart", 10, false},
                                          {"PreInvocation", 10, false},
                                          {"PostToolUse", 10, false},
                                          {"Stop", 90000, true}};

    for (GateCommands gate : {GateCommands::off, GateCommands::on}) {
        expectTable(HookCatalog::specs(AgentKind::claude, gate), claude);
        expectTable(HookCatalog::specs(AgentKind::codex, gate), codex);
        expectTable(HookCatalog::specs(AgentKind::antigravity, gate), antigravity);
    }
    expectTable(HookCatalog::specs(AgentKind::cursor, GateCommands::off), cursor);
    expectTable(HookCatalog::specs(AgentKind::cursor, GateCommands::on), gatedCursor);

    // Cursor's stop entry writes "loop_limit": null after the standard keys.
    const HookSpec stop = HookCatalog::specs(AgentKind::cursor, GateCommands::off).back();
    ASSERT_EQ(stop.extra.size(), 1u);
    EXPECT_EQ(stop.extra[0].first, "loop_limit");
    EXPECT_TRUE(stop.extra[0].second.isNull());

    EXPECT_EQ(HookCatalog::installedEvents(AgentKind::claude).size(), 10u);
    EXPECT_EQ(HookCatalog::installedEvents(AgentKind::codex).size(), 10u);
    EXPECT_EQ(HookCatalog::installedEvents(AgentKind::cursor).size(), 9u);
    EXPECT_TRUE(HookCatalog::installedEvents(AgentKind::cursor).contains("beforeMCPExecution"));
    EXPECT_EQ(HookCatalog::installedEvents(AgentKind::antigravity).size(), 4u);
}

TEST(HookCatalog, SpecsAreEqualOnlyWhenEveryFieldIs) {
    HookSpec a{"stop", std::nullopt, 10, false, {{"loop_limit", nullptr}}};
    HookSpec b = a;
    EXPECT_EQ(a, b);
    b.extra[0].second = JSONValue::integer(3);
    EXPECT_NE(a, b);
    b = a;
    b.matcher = "Bash";
    EXPECT_NE(a, b);
}

TEST(HookCatalog, CommandQuotesThePathForAShell) {
    EXPECT_EQ(
        HookCatalog::command("/Users/me/Library/Application Support/Tidewick/bin/tidewick-hook",
                             AgentKind::claude, "PreToolUse"),
        "'/Users/me/Library/Application Support/Tidewick/bin/tidewick-hook' --agent claude "
        "--event PreToolUse");
    EXPECT_EQ(HookCatalog::command("/tmp/it's/tidewick-hook", AgentKind::cursor, "stop"),
              "'/tmp/it'\\''s/tidewick-hook' --agent cursor --event stop");
    // Nothing else is escaped: the quotes already protect $, \ and blanks.
    EXPECT_EQ(HookCatalog::command("/a b/$x\\y", AgentKind::antigravity, "Stop"),
              "'/a b/$x\\y' --agent antigravity --event Stop");
}

TEST(HookCatalog, IsOursLooksForTheMarkerInAStringCommand) {
    EXPECT_TRUE(isOurs(JSONValue::parse(R"({"command":"/usr/local/bin/tidewick-hook-old --x"})")));
    EXPECT_TRUE(isOurs(
        JSONValue::parse(R"({"type":"command","command":"'/x/tidewick-hook' --agent claude"})")));
    EXPECT_FALSE(isOurs(JSONValue::parse(R"({"command":42})")));
    EXPECT_FALSE(isOurs(JSONValue::parse(R"({"cmd":"tidewick-hook"})")));
    EXPECT_FALSE(isOurs(JSONValue::parse(R"({"command":"~/bin/lint.sh"})")));
    EXPECT_FALSE(isOurs(JSONValue::parse(R"(["tidewick-hook"])")));
    EXPECT_FALSE(isOurs(JSONValue("tidewick-hook")));
    // Case matters: only the exact file name is ours.
    EXPECT_FALSE(isOurs(JSONValue::parse(R"({"command":"Tidewick-Hook"})")));
}

} // namespace
} // namespace tidewick
