#include "foundation/Subprocess.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "testing/Eventually.h"
#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <csignal>
#include <pthread.h>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using Group = Subprocess::Group;
using ::testing::ThrowsMessage;

TEST(SubprocessTest, RunPassesExactlyWhatItIsGivenAndCollectsTheRest) {
    TemporaryDirectory folder;
    const std::string input(1 << 20, 'i'); // far more than a pipe holds
    struct Row {
        const char* name;
        Subprocess::Command command;
        int status;
        std::string out;
        std::string err;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"arguments reach it as they are, no shell in between",
         {.arguments = {"/usr/bin/printf", "%s|", "a b", "$HOME", ";", "*"}, .environment = std::vector<std::string>{}},
         0, "a b|$HOME|;|*|", ""},
        {"exactly the environment given",
         {.arguments = {"/usr/bin/env"}, .environment = std::vector<std::string>{"ONLY=this"}}, 0, "ONLY=this\n", ""},
        {"the folder given", {.arguments = {"/bin/pwd"}, .directory = folder.path()}, 0, folder.path() + "\n", ""},
        {"all of a large input", {.arguments = {"/bin/cat"}, .input = input}, 0, input, ""},
        {"errors and the exit status apart from the output",
         {.arguments = {"/bin/sh", "-c", "echo out; echo oops >&2; exit 3"}}, 3, "out\n", "oops\n"},
        {"a signal as 128 + its number", {.arguments = {"/bin/sh", "-c", "kill -TERM $$"}}, 128 + SIGTERM, "", ""},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Subprocess::Result result = Subprocess::run(row.command, Group::own, 60s);
        EXPECT_EQ(result.status, row.status);
        EXPECT_FALSE(result.timedOut);
        EXPECT_TRUE(result.out == row.out) << result.out.substr(0, 200);
        EXPECT_EQ(result.err, row.err);
    }
    // The programs' environment is this process's when none is given.
    ::setenv("TIDEWICK_SUBPROCESS_TEST", "inherited", 1);
    EXPECT_NE(Subprocess::run({.arguments = {"/usr/bin/env"}}, Group::shared, std::nullopt)
                  .out.find("TIDEWICK_SUBPROCESS_TEST=inherited\n"),
              std::string::npos);
    ::unsetenv("TIDEWICK_SUBPROCESS_TEST");
}

// Whether `pid` is gone or only waits to be reaped by whoever inherited it.
bool hasEnded(pid_t pid) {
    const std::string stat = "/proc/" + std::to_string(pid) + "/stat";
    return !File::exists(stat) || File::read(stat).find(") Z ") != std::string::npos;
}

TEST(SubprocessTest, ATimeLimitKillsTheProgramAndWhatItStarted) {
    // The shell prints its background child's pid, then both would sleep for minutes.
    const Subprocess::Result result = Subprocess::run(
        {.arguments = {"/bin/sh", "-c", "sleep 300 & echo $!; wait"}}, Group::own, 300ms);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.status, 128 + SIGKILL);
    const pid_t background = std::stoi(result.out);
    EXPECT_TRUE(testing::eventually([&] { return hasEnded(background); }))
        << "the background sleep outlived the time limit";
}

TEST(SubprocessTest, StartedProgramsRunOnInTheirOwnGroupWithOutputInFiles) {
    TemporaryDirectory folder;
    const std::string out = folder.path() + "/out", err = folder.path() + "/err";
    Subprocess echo = Subprocess::start(
        {.arguments = {"/bin/sh", "-c", "read line; echo \"$line\"; echo oops >&2"},
         .input = "typed\n"},
        out, err);
    EXPECT_EQ(::getpgid(echo.pid()), echo.pid());
    EXPECT_EQ(echo.wait(60s), 0);
    EXPECT_EQ(echo.wait(0ms), 0) << "the status is kept";
    EXPECT_EQ(File::read(out), "typed\n");
    EXPECT_EQ(File::read(err), "oops\n");

    const std::string both = folder.path() + "/both";
    Subprocess sleeper =
        Subprocess::start({.arguments = {"/bin/sh", "-c", "echo ready; exec sleep 300"}}, both,
                          both);
    EXPECT_TRUE(sleeper.isRunning());
    EXPECT_EQ(sleeper.wait(10ms), std::nullopt);
    sleeper.signal(SIGTERM);
    EXPECT_EQ(sleeper.wait(), 128 + SIGTERM);
    EXPECT_EQ(File::read(both), "ready\n");
    Subprocess moved = std::move(sleeper);
    EXPECT_FALSE(moved.isRunning());
}

// A signal mask a program's /proc status shows ("SigBlk:\t000...0\n"); all bits
// set when it is missing.
unsigned long long maskOf(const std::string& status, const std::string& name) {
    const auto at = status.find(name + ":\t");
    return at == std::string::npos ? ~0ULL
                                   : std::stoull(status.substr(at + name.size() + 2), nullptr, 16);
}

TEST(SubprocessTest, ProgramsStartWithNoSignalBlockedAndBrokenPipesNotIgnored) {
    // The application ignores SIGPIPE and its interface thread blocks the stop signals.
    auto previous = std::signal(SIGPIPE, SIG_IGN);
    sigset_t stop, old;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &stop, &old), 0);
    const Subprocess::Result result = Subprocess::run(
        {.arguments = {"/bin/grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"}}, Group::shared,
        60s);
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
    std::signal(SIGPIPE, previous);
    EXPECT_EQ(maskOf(result.out, "SigBlk"), 0u) << result.out;
    EXPECT_EQ(maskOf(result.out, "SigIgn") & (1ULL << (SIGPIPE - 1)), 0u) << result.out;
}

TEST(SubprocessTest, AProgramThatCannotStartIsAnErrorNamingTheCall) {
    TemporaryDirectory folder;
    const std::vector<std::pair<Subprocess::Command, std::string>> rows = {
        {{.arguments = {folder.path() + "/missing"}},
         "posix_spawn(" + folder.path() + "/missing): No such file or directory"},
        {{.arguments = {"/bin/true"}, .directory = folder.path() + "/gone"},
         "posix_spawn(/bin/true in " + folder.path() + "/gone): No such file or directory"},
        {{}, "posix_spawn(): Invalid argument"},
    };
    for (const auto& [command, message] : rows) {
        SCOPED_TRACE(message);
        EXPECT_THAT([&] { (void)Subprocess::run(command, Group::shared, 60s); },
                    ThrowsMessage<SystemError>(message));
        const std::string out = folder.path() + "/out";
        EXPECT_THAT([&] { (void)Subprocess::start(command, out, out); },
                    ThrowsMessage<SystemError>(message));
    }
}

} // namespace
} // namespace tidewick
