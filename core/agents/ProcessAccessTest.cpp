#include "agents/ProcessAccess.h"

#include "foundation/Subprocess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

using namespace tidewick;

TEST(ProcessAccessTest, ReadsLiveProcessesAndTellsEndedOnesApart) {
    const ProcessAccess& system = ProcessAccess::system();
    const std::int32_t self = ::getpid();
    ASSERT_TRUE(system.startTime(self));
    EXPECT_TRUE(system.isSameProcess(self, system.startTime(self)));
    EXPECT_FALSE(system.isSameProcess(self, *system.startTime(self) + 1));
    EXPECT_TRUE(system.executable(self)->ends_with("/agentsTests"));
    EXPECT_TRUE(system.commandLine(self).at(0).ends_with("agentsTests"));

    Subprocess child = Subprocess::start({{"/bin/sleep", "30"}}, "/dev/null", "/dev/null");
    const std::int32_t pid = child.pid();
    const std::optional<std::int64_t> started = system.startTime(pid);
    ASSERT_TRUE(started);
    EXPECT_GE(*started, *system.startTime(self));
    EXPECT_TRUE(system.signal(pid, SIGKILL));
    // Killed but not yet reaped: it no longer runs.
    for (int i = 0; i < 10000 && system.startTime(pid); ++i)
        ::usleep(1000);
    EXPECT_FALSE(system.startTime(pid));
    EXPECT_EQ(child.wait(), 128 + SIGKILL);
    EXPECT_FALSE(system.signal(pid, 0));
    EXPECT_FALSE(system.startTime(-1));
}
