// A real Claude Code session continued and ended from Tidewick: `tidewick reply`
// resumes a finished print-mode session with the agent's own program, `tidewick
// end` interrupts a long tool call, and an agent killed outright is noticed.
// Claude Code comes from the npm registry (test only) and talks to a model
// stand-in on loopback; every other address it might try is a closed loopback port.
#include "RealAgents.h"
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"
#include "testing/BackgroundProgram.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

namespace tidewick {
namespace {

using testing::BackgroundProgram;
using testing::runProgram;
namespace RealAgents = testing::RealAgents;
using Clock = std::chrono::steady_clock;

class ClaudeCodeSessions : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        python = RealAgents::python();
        if (python.empty())
            GTEST_SKIP() << "python3 is needed for the model stand-in";
        auto install = RealAgents::install("install-claude-code.sh", "TIDEWICK_CLAUDE_CODE_DIR",
                                           "claude-code");
        if (install.status == 77)
            GTEST_SKIP() << "Claude Code could not be installed from npm: " << install.error;
        ASSERT_EQ(install.status, 0) << install.error;
        claude = install.command;
        run.setVariable("PATH", File::parent(claude) + ":" + File::parent(python) + ":/usr/bin:/bin");
        auto connect = run.tidewick({"connect", "claude", "--yes"});
        ASSERT_EQ(connect.status, 0) << connect.out << connect.err;
        std::filesystem::create_directories(work);
    }

    // The stand-in playing `scenario` on a free loopback port; the application and
    // everything it starts reach it through the environment.
    void startStandIn(const std::string& scenario) {
        const std::string file = File::join(run.home(), "scenario.json");
        File::writeAtomically(file, scenario, 0600);
        standIn = std::make_unique<BackgroundProgram>(
            std::vector<std::string>{python,
                                     std::string(TIDEWICK_SOURCE_DIR) + "/app/testing/claude_stand_in.py",
                                     "0", "--scenario", file, "--log", run.home() + "/stand-in.log",
                                     "--requests", requests},
            std::vector<std::string>{"PATH=/usr/bin:/bin"}, "", run.home() + "/stand-in",
            run.home());
        std::string port;
        for (auto until = Clock::now() + std::chrono::seconds(20);
             port.empty() && Clock::now() < until;
             std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            port = standIn->out().substr(0, standIn->out().find('\n'));
        ASSERT_FALSE(port.empty()) << standIn->err();
        for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
                 {"ANTHROPIC_BASE_URL", "http://127.0.0.1:" + port},
                 {"ANTHROPIC_API_KEY", "test-key"},
                 {"HTTPS_PROXY", "http://127.0.0.1:9"},
                 {"NO_PROXY", "127.0.0.1"},
                 {"DISABLE_AUTOUPDATER", "1"},
                 {"DISABLE_TELEMETRY", "1"},
                 {"CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC", "1"},
                 {"CLAUDE_CODE_DISABLE_OFFICIAL_MARKETPLACE_AUTOINSTALL", "1"}})
            run.setVariable(name, value);
        ASSERT_TRUE(run.startApp()) << run.appErrors();
    }

    // The one session the application lists, once `ready` holds for it (90 s at most).
    JSONValue sessionWhen(const std::function<bool(const JSONValue&)>& ready) {
        JSONValue last;
        for (auto until = Clock::now() + std::chrono::seconds(90); Clock::now() < until;
             std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
            const JSONValue list = run.listing("sessions");
            if (list.arrayValue() && list.arrayValue()->size() == 1) {
                last = (*list.arrayValue())[0];
                if (ready(last))
                    return last;
            }
        }
        ADD_FAILURE() << "the session never got there: " << last.compact();
        return last;
    }
    static std::string text(const JSONValue& value, std::string_view key) {
        const JSONValue* member = value.get(key);
        return member && member->stringValue() ? *member->stringValue() : "";
    }
    static std::vector<std::string> timeline(const JSONValue& session) {
        std::vector<std::string> texts;
        for (const JSONValue& item : *session.get("timeline")->arrayValue())
            texts.push_back(text(item, "text"));
        return texts;
    }

    BackgroundProgram& startClaude(const std::string& prompt) {
        agents.push_back(std::make_unique<BackgroundProgram>(
            std::vector<std::string>{claude, "--allowedTools", "Bash(./wait-long.sh)", "-p", "--", prompt},
            run.environment, "", run.home() + "/agent" + std::to_string(agents.size()), work));
        return *agents.back();
    }

    testing::TidewickPrograms run;
    std::string claude, python;
    const std::string work = File::join(run.home(), "work");
    const std::string requests = File::join(run.home(), "requests.jsonl");
    std::unique_ptr<BackgroundProgram> standIn;
    std::vector<std::unique_ptr<BackgroundProgram>> agents;
};

TEST_F(ClaudeCodeSessions, AFinishedSessionIsContinuedThroughTidewickReply) {
    startStandIn(R"({"steps": [], "final_text": "Done: answered."})");
    auto first = runProgram({claude, "-p", "start here"}, run.environment, {}, work,
                            std::chrono::seconds(90));
    ASSERT_EQ(first.status, 0) << first.out << first.err;
    const JSONValue finished = sessionWhen([](const JSONValue& s) {
        return text(s, "status") == "ended";
    });
    const std::string id = text(*finished.get("key"), "sessionId");

    // Options and shell syntax alike reach the model as typed.
    const std::string reply = "-p --help; echo $(id) `x` \"q\" > f * done";
    auto replied = run.tidewick({"reply", id, "--", reply});
    ASSERT_EQ(replied.status, 0) << replied.err;
    const std::string log =
        TidewickPaths(run.home()).appSupport() + "/Logs/continue-claude-" + id + ".log";
    EXPECT_NE(replied.out.find(log), std::string::npos) << replied.out;

    const JSONValue resumed = sessionWhen([](const JSONValue& s) {
        const std::vector<std::string> texts = timeline(s);
        const auto you = std::find(texts.begin(), texts.end(), "You replied");
        return std::find(you, texts.end(), "Finished the turn") != texts.end() &&
               text(s, "status") == "ended";
    });
    const std::vector<std::string> texts = timeline(resumed);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "Session started"), 2)
        << "the resumed run reports to the same session";
    const std::string sent = File::read(requests);
    EXPECT_NE(sent.find(JSONValue::quote(reply)), std::string::npos)
        << "the model never received the reply";
    EXPECT_NE(sent.find(JSONValue::quote("start here")), std::string::npos)
        << "the resumed conversation carries the first prompt";
    EXPECT_TRUE(File::exists(log));
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(ClaudeCodeSessions, ALongToolCallIsEndedAndAKilledAgentIsNoticed) {
    // Claude Code refuses a plain long sleep; a script of the project's may take its time.
    File::writeAtomically(work + "/wait-long.sh", "#!/bin/sh\nsleep 120\n", 0700);
    startStandIn(R"({"steps": [{"bash": "./wait-long.sh"}, {"bash": "./wait-long.sh"}],
                     "final_text": "Done."})");
    auto working = [](const JSONValue& s) {
        return text(s, "status") == "working" && s.get("currentAction") != nullptr;
    };

    BackgroundProgram& ended = startClaude("wait a while");
    const std::string id = text(*sessionWhen(working).get("key"), "sessionId");
    auto end = run.tidewick({"end", id});
    ASSERT_EQ(end.status, 0) << end.err;
    EXPECT_NE(end.out.find("interrupted Claude Code"), std::string::npos) << end.out;
    EXPECT_TRUE(ended.waitFor(std::chrono::seconds(30))) << "Claude Code still runs";
    JSONValue session = sessionWhen([](const JSONValue& s) { return text(s, "status") == "ended"; });
    EXPECT_TRUE(session.get("endedByYouAt")) << session.compact();
    EXPECT_EQ(session.get("userMessagesAtEnd")->compact(), "1") << session.compact();

    // The same session resumed by hand, then killed: nothing tells Tidewick but the process.
    agents.push_back(std::make_unique<BackgroundProgram>(
        std::vector<std::string>{claude, "--allowedTools", "Bash(./wait-long.sh)", "--resume", id, "-p",
                                 "--", "wait again"},
        run.environment, "", run.home() + "/killed", work));
    BackgroundProgram& killed = *agents.back();
    session = sessionWhen(working);
    EXPECT_FALSE(session.get("endedByYouAt")) << "working again clears the mark";
    killed.signal(SIGKILL);
    const auto killedAt = Clock::now();
    EXPECT_EQ(killed.waitFor(std::chrono::seconds(10)), 128 + SIGKILL);
    session = sessionWhen([](const JSONValue& s) {
        const std::vector<std::string> texts = timeline(s);
        return text(s, "status") == "ended" &&
               std::find(texts.begin(), texts.end(), "The agent exited") != texts.end();
    });
    RecordProperty("seconds_to_notice_a_killed_agent",
                   std::to_string(std::chrono::duration<double>(Clock::now() - killedAt).count()));
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

} // namespace
} // namespace tidewick
