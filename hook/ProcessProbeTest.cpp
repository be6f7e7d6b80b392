#include "ProcessProbe.h"

#include "FakeProcessTable.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace tidewick {
namespace {

using testing::FakeProcessTable;

TEST(ProcessProbe, RecognisesEachAgentNativeOrScripted) {
    struct Row {
        AgentKind agent;
        std::string name;
        std::vector<std::string> commandLine;
        bool found;
    };
    const std::string claudeCli = "/usr/lib/node_modules/@anthropic-ai/claude-code/cli.js";
    const Row rows[] = {
        {AgentKind::claude, "claude", {"/home/u/.local/bin/claude"}, true},
        {AgentKind::claude, "node", {"node", claudeCli}, true},
        {AgentKind::claude, "node", {"/usr/bin/node", "--no-warnings", "/opt/bin/claude"}, true},
        {AgentKind::codex, "codex-x86_64-un", {"/x/codex-x86_64-unknown-linux-musl"}, true},
        {AgentKind::codex, "node", {"node", "/lib/node_modules/@openai/codex/bin/x.js"}, true},
        {AgentKind::cursor, "cursor-agent", {"cursor-agent"}, true},
        {AgentKind::cursor, "Cursor", {"/opt/Cursor/cursor", "--type=utility"}, true},
        {AgentKind::cursor, "node", {"node", "/u/share/cursor-agent/1/index.js"}, true},
        {AgentKind::antigravity, "antigravity", {"/usr/share/antigravity/antigravity"}, true},
        // Near misses are not agents.
        {AgentKind::claude, "claude-helper", {"claude-helper"}, false},
        {AgentKind::claude, "node", {"node", "/srv/app/server.js"}, false},
        {AgentKind::claude, "python3", {"python3", "/opt/claude/cli.py"}, false},
        {AgentKind::codex, "claude", {"claude"}, false},
        {AgentKind::cursor, "cursorless", {"cursorless"}, false},
        {AgentKind::antigravity, "node", {"node"}, false},
    };
    for (const Row& row : rows)
        EXPECT_EQ(ProcessProbe::agentAncestor(
                      100, row.agent, 8, FakeProcessTable::chainWith(row.name, row.commandLine)),
                  row.found ? std::optional<std::int32_t>(98) : std::nullopt)
            << rawValue(row.agent) << " as " << ::testing::PrintToString(row.commandLine);
}

TEST(ProcessProbe, WalksAtMostTheGivenNumberOfParents) {
    // A chain of shells with the agent as the 8th ancestor, then as the 9th.
    for (int depth : {8, 9}) {
        std::map<std::int32_t, FakeProcessTable::Entry> entries;
        entries[1000] = {999, "tidewick-hook", {"tidewick-hook"}};
        for (int step = 1; step < depth; ++step)
            entries[1000 - step] = {1000 - step - 1, "sh", {"sh"}};
        entries[1000 - depth] = {1, "claude", {"claude"}};
        entries[1] = {0, "init", {"init"}};
        FakeProcessTable table(std::move(entries));
        EXPECT_EQ(ProcessProbe::agentAncestor(1000, AgentKind::claude, 8, table).has_value(),
                  depth == 8)
            << depth;
    }
    // The process itself is not its own ancestor, and a broken chain ends the walk.
    FakeProcessTable self({{10, {9, "claude", {"claude"}}}, {9, {1, "sh", {"sh"}}}});
    EXPECT_FALSE(ProcessProbe::agentAncestor(10, AgentKind::claude, 8, self));
    FakeProcessTable broken({{10, {9, "sh", {"sh"}}}});
    EXPECT_FALSE(ProcessProbe::agentAncestor(10, AgentKind::claude, 8, broken));
}

TEST(ProcessProbe, ScriptedRunsAreHeadless) {
    struct Row {
        AgentKind agent;
        std::vector<std::string> commandLine;
        bool headless;
    };
    const Row rows[] = {
        {AgentKind::claude, {"claude", "-p", "fix the tests"}, true},
        {AgentKind::claude, {"claude", "--model", "opus", "--print", "x"}, true},
        {AgentKind::claude, {"node", "/x/claude-code/cli.js", "-p", "x"}, true},
        {AgentKind::claude, {"claude", "--resume", "abc"}, false},
        {AgentKind::claude, {"claude", "--", "-p"}, false},      // after -- it is a prompt
        {AgentKind::claude, {"node", "-p", "/x/cli.js"}, false}, // the runtime's own option
        {AgentKind::claude, {}, false},                          // unreadable
        {AgentKind::codex, {"codex", "-m", "o3", "exec", "x"}, true},
        {AgentKind::codex, {"codex", "e", "x"}, true},
        {AgentKind::codex, {"codex", "resume", "e"}, false},
        {AgentKind::codex, {"codex"}, false},
        {AgentKind::cursor, {"cursor-agent", "-p", "x"}, true},
        {AgentKind::cursor, {"cursor-agent", "chat"}, false},
        {AgentKind::antigravity, {"antigravity", "-p"}, false},
    };
    for (const Row& row : rows)
        EXPECT_EQ(ProcessProbe::isHeadless(5, row.agent,
                                           FakeProcessTable({{5, {1, "x", row.commandLine}}})),
                  row.headless)
            << rawValue(row.agent) << " " << ::testing::PrintToString(row.commandLine);
}

TEST(ProcessProbe, ReadsTheLiveProcessList) {
    const ProcessTable& table = ProcessTable::system();
    auto self = table.record(::getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->parent, ::getppid());
    EXPECT_EQ(self->name, std::string("hookTests").substr(0, 15));
    auto arguments = table.commandLine(::getpid());
    ASSERT_FALSE(arguments.empty());
    EXPECT_NE(arguments[0].find("hookTests"), std::string::npos);
    EXPECT_FALSE(table.record(-5));
    EXPECT_TRUE(table.commandLine(-5).empty());
}

} // namespace
} // namespace tidewick
