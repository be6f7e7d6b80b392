#include "agents/AgentCommand.h"
#include "agents/FakeProcesses.h"

#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

using namespace tidewick;
using tidewick::testing::FakeProcesses;
using Words = std::vector<std::string>;

TEST(AgentCommandTest, TheProgramComesFromTheProcessThenThePathThenTheSetting) {
    FakeProcesses processes;
    processes.add(10, {7, "/opt/cc/bin/claude.exe", {"/usr/local/bin/claude", "--resume", "x"}});
    processes.add(11,
                  {7, "/usr/bin/node", {"node", "--no-warnings", "/n/@openai/codex/bin/codex.js"}});
    processes.add(12, {7, "/usr/bin/node", {"node", "relative/claude.js"}});
    processes.add(13, {7, "/Applications/Cursor", {"Cursor"}});
    processes.add(14, {7, "/v/codex-x86_64-unknown-linux-musl", {"codex", "exec"}});

    struct Row {
        const char* what;
        AgentKind agent;
        std::int32_t pid;
        std::optional<std::int64_t> startTime;
        std::optional<Words> program;
    };
    // clang-format off
    const Row rows[] = {
        {"a native build", AgentKind::claude, 10, 7, Words{"/opt/cc/bin/claude.exe"}},
        {"no start time recorded", AgentKind::claude, 10, std::nullopt, Words{"/opt/cc/bin/claude.exe"}},
        {"the pid went to another program", AgentKind::claude, 10, 8, std::nullopt},
        {"a script of a runtime", AgentKind::codex, 11, 7, Words{"/usr/bin/node", "/n/@openai/codex/bin/codex.js"}},
        {"a relative script cannot be found again", AgentKind::claude, 12, 7, std::nullopt},
        {"an editor hosting the agent", AgentKind::cursor, 13, 7, std::nullopt},
        {"Codex's target-named build", AgentKind::codex, 14, 7, Words{"/v/codex-x86_64-unknown-linux-musl"}},
        {"no such process", AgentKind::claude, 99, std::nullopt, std::nullopt},
        {"an agent without a command", AgentKind::antigravity, 10, 7, std::nullopt},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(AgentCommand::fromProcess(row.agent, row.pid, row.startTime, processes),
                  row.program);
    }

    TemporaryDirectory folder;
    const std::string first = folder.path() + "/first", second = folder.path() + "/second";
    tidewick::testing::put(first + "/codex", "not executable");
    tidewick::testing::put(second + "/codex", "#!/bin/sh\n", 0700);
    tidewick::testing::put(second + "/claude", "#!/bin/sh\n", 0700);
    const std::string path = ":.:" + first + ":" + second;
    EXPECT_EQ(AgentCommand::findOnPath("codex", path), second + "/codex");
    EXPECT_EQ(AgentCommand::findOnPath("cursor-agent", path), std::nullopt);

    const std::string configured = second + "/claude";
    AgentCommand::Sources sources{10, 7, path, configured};
    EXPECT_EQ(AgentCommand::resolve(AgentKind::claude, sources, processes),
              Words{"/opt/cc/bin/claude.exe"});
    sources.pid = 13;
    EXPECT_EQ(AgentCommand::resolve(AgentKind::claude, sources, processes), (Words{configured}))
        << "found on the path once the process is no help";
    sources.searchPath = first;
    sources.configured = second + "/codex";
    EXPECT_EQ(AgentCommand::resolve(AgentKind::codex, sources, processes), Words{second + "/codex"})
        << "the setting, when nothing on the path will run";
    sources.configured = first + "/codex";
    EXPECT_EQ(AgentCommand::resolve(AgentKind::codex, sources, processes), std::nullopt);
    EXPECT_EQ(AgentCommand::resolve(AgentKind::antigravity, sources, processes), std::nullopt);
}

TEST(AgentCommandTest, TheTextStaysOneWordAfterTheOptions) {
    const std::string text = "--help; rm -rf / && echo $(x) `y` \"q\"";
    EXPECT_EQ(AgentCommand::continuation(AgentKind::claude, {"/c"}, "s-1", text),
              (Words{"/c", "--resume", "s-1", "-p", "--", text}));
    EXPECT_EQ(AgentCommand::continuation(AgentKind::cursor, {"/a"}, "chat", "hi"),
              (Words{"/a", "--resume", "chat", "-p", "--", "hi"}));
    EXPECT_EQ(
        AgentCommand::continuation(AgentKind::codex, {"/node", "/codex.js"}, "t", text),
        (Words{"/node", "/codex.js", "exec", "--skip-git-repo-check", "resume", "t", "--", text}));
}
