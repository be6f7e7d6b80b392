// `tidewick demo` against a real headless application, answered through the
// control commands; and what each agent's answer is taken to mean.
#include "DemoCommand.h"
#include "testing/ProgramRun.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::ProgramResult;
using testing::runProgram;

const std::string tidewick = std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick";

/// `tidewick app --headless` in `home`, stopped with SIGTERM at the end.
class HeadlessApp {
public:
    explicit HeadlessApp(const std::string& home) {
        pid_ = ::fork();
        if (pid_ == 0) {
            const std::string variable = "TIDEWICK_HOME=" + home;
            char* const environment[] = {const_cast<char*>(variable.c_str()), nullptr};
            const int devNull = ::open("/dev/null", O_WRONLY);
            ::dup2(devNull, STDOUT_FILENO);
            ::execle(tidewick.c_str(), tidewick.c_str(), "app", "--headless",
                     static_cast<char*>(nullptr), environment);
            ::_exit(127);
        }
    }
    ~HeadlessApp() {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }

private:
    pid_t pid_ = -1;
};

class DemoCommand : public ::testing::Test {
protected:
    ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), tidewick);
        return runProgram(arguments, {"TIDEWICK_HOME=" + home.path()}, {}, {},
                          std::chrono::seconds(120));
    }
    /// Polls `tidewick pending` until `count` requests are held.
    bool waitForHeld(std::size_t count) {
        for (int i = 0; i < 300; ++i) {
            const ProgramResult pending = run({"pending", "--json"});
            if (pending.status == 0) {
                auto list = JSONValue::parse(pending.out);
                if (list.arrayValue() && list.arrayValue()->size() == count)
                    return true;
            }
            std::this_thread::sleep_for(100ms);
        }
        return false;
    }
    TemporaryDirectory home;
};

TEST_F(DemoCommand, SaysHowToStartTheAppWhenNoneRuns) {
    const ProgramResult demo = run({"demo"});
    EXPECT_EQ(demo.status, 3);
    EXPECT_EQ(demo.err, "Tidewick isn't running. Start it in another terminal with `tidewick "
                        "app`, then run `tidewick demo` again.\n");
    EXPECT_EQ(demo.out, "");
}

TEST_F(DemoCommand, EveryAgentPrintsTheAnswerGivenInTidewick) {
    HeadlessApp app(home.path());
    for (int i = 0; i < 100 && run({"sessions"}).status != 0; ++i)
        std::this_thread::sleep_for(100ms);
    auto demo = std::async(std::launch::async, [this] { return run({"demo"}); });
    ASSERT_TRUE(waitForHeld(4)) << run({"pending"}).out;

    const ProgramResult sessions = run({"sessions", "--json"});
    for (const char* agent : {"claude", "codex", "cursor", "antigravity"})
        EXPECT_NE(sessions.out.find(std::string("demo-") + agent + "-"), std::string::npos)
            << agent;
    EXPECT_EQ(run({"allow", "demo-claude"}).status, 0);
    EXPECT_EQ(run({"reply", "demo-codex", "Update the docs too."}).status, 0);
    EXPECT_EQ(run({"deny", "demo-cursor", "-m", "Not on main"}).status, 0);
    EXPECT_EQ(run({"deny", "demo-antigravity"}).status, 0);

    ASSERT_EQ(demo.wait_for(60s), std::future_status::ready);
    const ProgramResult result = demo.get();
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string& out = result.out;
    for (const std::string line : {
             "[Cursor] answer: {\"permission\":\"allow\"} → allowed\n",
             "[Claude Code] answer: {\"hookSpecificOutput\":{\"hookEventName\":"
             "\"PermissionRequest\",\"decision\":{\"behavior\":\"allow\"}}} → allowed\n",
             "[Codex] answer: {\"decision\":\"block\",\"reason\":\"Message from the user, sent via "
             "Tidewick: Update the docs too.\"} → reply: Update the docs too.\n",
             "→ denied: Not on main\n",
             "[Antigravity] answer: {\"decision\":\"deny\",\"reason\":\"Denied in Tidewick.\"} → "
             "denied: Denied in Tidewick.\n",
             "[Claude Code] asks to run `rm -rf build && npm run build`",
         })
        EXPECT_NE(out.find(line), std::string::npos) << line << "\nin:\n" << out;
    EXPECT_TRUE(out.ends_with("The demo is over. Its sessions stay in Tidewick's list until they "
                              "age out.\n"));
}

TEST(DemoAnswers, DescribeEachDialect) {
    EXPECT_EQ(describeAnswer(AgentKind::claude, "PermissionRequest", ""),
              "no answer from Tidewick, so Claude Code asks in its own window");
    EXPECT_EQ(
        describeAnswer(AgentKind::codex, "PermissionRequest",
                       R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":"no"}}})"),
        "denied: no");
    EXPECT_EQ(describeAnswer(AgentKind::codex, "Stop", ""), "it stops");
    EXPECT_EQ(describeAnswer(AgentKind::cursor, "beforeShellExecution", R"({"permission":"ask"})"),
              "no answer from Tidewick, so Cursor asks in its own window");
    EXPECT_EQ(describeAnswer(AgentKind::cursor, "stop", R"({"followup_message":"go on"})"),
              "reply: go on");
    EXPECT_EQ(
        describeAnswer(AgentKind::antigravity, "PreToolUse",
                       R"({"decision":"ask","reason":"Tidewick did not get an answer in time."})"),
        "no answer from Tidewick, so Antigravity asks in its own window");
    EXPECT_EQ(describeAnswer(AgentKind::antigravity, "Stop", R"({"decision":"stop"})"), "it stops");
    EXPECT_EQ(describeAnswer(AgentKind::claude, "Stop", "not json"),
              "an answer Tidewick does not recognise");
}

TEST(DemoScripts, CoverTheFourAgentsWithDistinctSessions) {
    const auto scripts = demoScripts("/home/ana", "abc");
    ASSERT_EQ(scripts.size(), 4u);
    std::set<AgentKind> agents;
    for (const DemoScript& script : scripts) {
        agents.insert(script.agent);
        EXPECT_TRUE(script.sessionId.ends_with("-abc"));
        for (const DemoStep& step : script.steps)
            EXPECT_TRUE(JSONValue::parse(step.payload).isObject()) << step.payload;
    }
    EXPECT_EQ(agents.size(), 4u);
}

} // namespace
} // namespace tidewick
