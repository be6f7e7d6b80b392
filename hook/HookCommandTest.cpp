#include "HookCommand.h"

#include "FakeProcessTable.h"

#include "wire/RecordingServer.h"

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
                          const FakeProcessTable& table,
                          const std::vector<std::string>& extra = {}) {
        Environment environment(app_.environment(extra));
        DescriptorInput input(inputFd);
        return HookCommand::run({
            .arguments = {"tidewick-hook", "--agent", std::string(rawValue(agent)), "--event",
                          event},
            .environment = environment,
            .input = input,
            .pid = 100,
            .processes = table,
        });
    }

    testing::RecordingServer app_;
};

TEST_F(HookCommandRun, AScriptedAgentRunIsNeverHeld) {
    for (bool scripted : {true, false}) {
        const FakeProcessTable chain = FakeProcessTable::chainWith(
            "claude", scripted ? std::vector<std::string>{"claude", "-p", "fix it"}
                               : std::vector<std::string>{"claude"});
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        ASSERT_EQ(::write(fds[1], "{\"session_id\":\"s\"}", 18), 18);
        ::close(fds[1]);
        EXPECT_EQ(run(AgentKind::claude, "Stop", fds[0], chain,
                      {"TMUX=/tmp/tmux-0/default,77,0", "TMUX_PANE=%5"}),
                  (HookCommand::Exit{"answer to Stop\n", 0}));
        ::close(fds[0]);
        ASSERT_FALSE(app_.requests().empty()) << scripted;
        EXPECT_EQ(app_.requests().back().agentPid, 98) << scripted;
        EXPECT_EQ(app_.requests().back().noHold, scripted);
        EXPECT_EQ(app_.requests().back().tmuxPane, "%5");
        EXPECT_EQ(app_.requests().back().tmuxSocket, "/tmp/tmux-0/default");
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
