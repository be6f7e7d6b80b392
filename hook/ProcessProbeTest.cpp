#include "ProcessProbe.h"

#include "FakeProcessTable.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace tidewick {
namespace {

using testing::FakeProcessTable;

// hook 100 <- sh 99 <- <agent> 98 <- shell 97 <- terminal 96 <- init 1
FakeProcessTable chainWith(std::string name, std::vector<std::string> commandLine) {
    return FakeProcessTable({
        {100, {99, "tidewick-hook", {"tidewick-hook"}}},
        {99, {98, "sh", {"sh", "-c", "tidewick-hook"}}},
        {98, {97, std::move(name), std::move(commandLine)}},
        {97, {96, "zsh", {"-zsh"}}},
        {96, {1, "ghostty", {"ghostty"}}},
        {1, {0, "systemd", {"/sbin/init"}}},
    });
}

TEST(ProcessProbe, RecognisesEachAgentNativeOrScripted) {
    struct Case {
        AgentKind agent;
        std::string name;
        std::vector<std::string> commandLine;
    };
    const std::vector<Case> found = {
        {AgentKind::claude, "claude", {"/home/u/.local/bin/claude"}},
        {AgentKind::claude,
         "node",
         {"node", "/usr/lib/node_modules/@anthropic-ai/claude-code/cli.js"}},
        {AgentKind::claude, "node", {"/usr/bin/node", "--no-warnings", "/opt/bin/claude"}},
        {AgentKind::codex, "codex", {"codex"}},
        {AgentKind::codex, "codex-x86_64-un", {"/x/codex-x86_64-unknown-linux-musl", "exec"}},
        {AgentKind::codex, "node", {"node", "/usr/lib/node_modules/@openai/codex/bin/codex.js"}},
        {AgentKind::cursor, "cursor-agent", {"cursor-agent"}},
        {AgentKind::cursor, "Cursor", {"/opt/Cursor/cursor", "--type=utility"}},
        {AgentKind::cursor,
         "node",
         {"node", "/home/u/.local/share/cursor-agent/versions/1/index.js"}},
        {AgentKind::antigravity, "antigravity", {"/usr/share/antigravity/antigravity"}},
    };
    for (const Case& c : found) {
        auto table = chainWith(c.name, c.commandLine);
        EXPECT_EQ(ProcessProbe::agentAncestor(100, c.agent, 8, table), 98)
            << rawValue(c.agent) << " as " << c.name;
    }
    // Near misses are not agents.
    const std::vector<Case> missed = {
        {AgentKind::claude, "claude-helper", {"claude-helper"}},
        {AgentKind::claude, "node", {"node", "/srv/app/server.js"}},
        {AgentKind::claude, "python3", {"python3", "/opt/claude/cli.py"}},
        {AgentKind::codex, "claude", {"claude"}},
        {AgentKind::cursor, "cursorless", {"cursorless"}},
        {AgentKind::antigravity, "node", {"node"}},
    };
    for (const Case& c : missed) {
        auto table = chainWith(c.name, c.commandLine);
        EXPECT_FALSE(ProcessProbe::agentAncestor(100, c.agent, 8, table))
            << rawValue(c.agent) << " as " << c.name;
    }
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
    auto headless = [](AgentKind agent, std::vector<std::string> commandLine) {
        FakeProcessTable table({{5, {1, "x", std::move(commandLine)}}});
        return ProcessProbe::isHeadless(5, agent, table);
    };
    EXPECT_TRUE(headless(AgentKind::claude, {"claude", "-p", "fix the tests"}));
    EXPECT_TRUE(headless(AgentKind::claude, {"claude", "--model", "opus", "--print", "x"}));
    EXPECT_TRUE(headless(AgentKind::claude, {"node", "/x/claude-code/cli.js", "-p", "x"}));
    EXPECT_FALSE(headless(AgentKind::claude, {"claude"}));
    EXPECT_FALSE(headless(AgentKind::claude, {"claude", "--resume", "abc"}));
    EXPECT_FALSE(headless(AgentKind::claude, {"claude", "--", "-p"})) << "after -- it is a prompt";
    EXPECT_FALSE(headless(AgentKind::claude, {"node", "-p", "/x/cli.js"}))
        << "options of the runtime are not the agent's";
    EXPECT_TRUE(headless(AgentKind::codex, {"codex", "exec", "write docs"}));
    EXPECT_TRUE(headless(AgentKind::codex, {"codex", "-m", "o3", "exec", "x"}));
    EXPECT_TRUE(headless(AgentKind::codex, {"codex", "e", "x"}));
    EXPECT_FALSE(headless(AgentKind::codex, {"codex", "resume", "e"}));
    EXPECT_FALSE(headless(AgentKind::codex, {"codex"}));
    EXPECT_TRUE(headless(AgentKind::cursor, {"cursor-agent", "-p", "x"}));
    EXPECT_FALSE(headless(AgentKind::cursor, {"cursor-agent", "chat"}));
    EXPECT_FALSE(headless(AgentKind::antigravity, {"antigravity", "-p"}));
    EXPECT_FALSE(headless(AgentKind::claude, {})) << "unreadable";
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
