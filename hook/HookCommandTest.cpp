#include "HookCommand.h"

#include "FakeProcessTable.h"

#include "RecordingServer.h"

#include <gtest/gtest.h>

#include <pty.h>

namespace tidewick {
namespace {

using testing::FakeProcessTable;

// The in-process run against a real server, with a hand-made process list
// and input: what the program tests cannot arrange, an agent as parent and
// a terminal as standard input.
class HookCommandRun : public ::testing::Test {
protected:
    void SetUp() override { app_.start(); }

    HookCommand::Exit run(AgentKind agent, const std::string& event, int inputFd,
                          const FakeProcessTable& table) {
        Environment environment(app_.environment());
        DescriptorInput input(inputFd);
        return HookCommand::run({
            .arguments = {"tidewick-hook", "--agent", std::string(rawValue(agent)), "--event",
                          event},
            .environment = environment,
            .input = input,
            .pid = 500,
            .processes = table,
        });
    }

    testing::RecordingServer app_;
};

TEST_F(HookCommandRun, AScriptedAgentRunIsNeverHeld) {
    const std::string cli = "/usr/lib/node_modules/@anthropic-ai/claude-code/cli.js";
    struct Row {
        AgentKind hookFor;
        std::vector<std::string> agentCommand;
        std::optional<std::int32_t> agentPid;
        bool noHold;
    };
    const Row rows[] = {
        {AgentKind::claude, {"node", cli, "--model", "opus", "-p", "fix it"}, 300, true},
        {AgentKind::claude, {"node", cli, "--model", "opus"}, 300, false},
    };
    for (const Row& row : rows) {
        // hook 500 <- sh 400 <- claude (run by node) 300 <- terminal 200
        FakeProcessTable chain({
            {500, {400, "tidewick-hook", {"tidewick-hook"}}},
            {400, {300, "sh", {"/bin/sh", "-c", "tidewick-hook"}}},
            {300, {200, "node", row.agentCommand}},
            {200, {1, "kitty", {"kitty"}}},
            {1, {0, "init", {"/sbin/init"}}},
        });
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        ASSERT_EQ(::write(fds[1], "{\"session_id\":\"s\"}", 18), 18);
        ::close(fds[1]);
        EXPECT_EQ(run(row.hookFor, "Stop", fds[0], chain),
                  (HookCommand::Exit{"answer to Stop\n", 0}));
        ::close(fds[0]);
        const std::string name = ::testing::PrintToString(row.agentCommand);
        ASSERT_FALSE(app_.requests().empty()) << name;
        EXPECT_EQ(app_.requests().back().agentPid, row.agentPid) << name;
        EXPECT_EQ(app_.requests().back().noHold, row.noHold) << name;
    }
}

TEST_F(HookCommandRun, AnInteractiveTerminalIsNotRead) {
    int controller = -1, terminal = -1;
    ASSERT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    // Reading would block forever as nothing is typed; no input is no JSON.
    EXPECT_EQ(run(AgentKind::cursor, "beforeShellExecution", terminal, FakeProcessTable({})),
              (HookCommand::Exit{"{\"permission\":\"ask\"}\n", 0}));
    EXPECT_TRUE(app_.requests().empty());
    ::close(controller);
    ::close(terminal);
}

} // namespace
} // namespace tidewick
