// A real Claude Code with what `tidewick connect claude` writes: a print-mode
// turn reaches the running application through the installed hook, `tidewick
// reply` resumes a finished session, `tidewick end` interrupts a long tool call,
// an agent killed outright is noticed, and an interactive session in tmux is
// answered from the command line with more than yes or no. Claude Code comes from
// the npm registry (test only) and talks to a model stand-in on loopback; every
// other address it might try is a closed loopback port.
#include "RealAgents.h"

#include "foundation/TidewickPaths.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace tidewick {
namespace {

using testing::agentScripts;
using testing::BackgroundProgram;
using testing::runProgram;
using testing::TidewickPrograms;
using Clock = std::chrono::steady_clock;

std::string text(const JSONValue& value, std::string_view key) {
    const JSONValue* member = value.get(key);
    return member && member->stringValue() ? *member->stringValue() : "";
}
bool has(const std::vector<std::string>& texts, const std::string& wanted) {
    return std::find(texts.begin(), texts.end(), wanted) != texts.end();
}

// The texts of every tool result the model received, in the order of the requests.
std::vector<std::string> toolResults(const std::string& requestsLog) {
    std::vector<std::string> texts;
    for (const JSONValue& request : testing::jsonLines(requestsLog)) {
        const JSONValue* messages =
            request.get("body") ? request.get("body")->get("messages") : nullptr;
        if (!messages || !messages->arrayValue() || messages->arrayValue()->empty())
            continue;
        const JSONValue* content = messages->arrayValue()->back().get("content");
        if (!content || !content->arrayValue())
            continue;
        for (const JSONValue& block : *content->arrayValue()) {
            if (text(block, "type") != "tool_result")
                continue;
            const JSONValue* result = block.get("content");
            if (result && result->stringValue())
                texts.push_back(*result->stringValue());
            else if (result && result->arrayValue())
                for (const JSONValue& part : *result->arrayValue())
                    if (!text(part, "text").empty())
                        texts.push_back(text(part, "text"));
        }
    }
    return texts;
}

// Claude Code installed on first use (into TIDEWICK_CLAUDE_CODE_DIR when set, so build
// trees can share it) and connected in a temporary home that serves as both HOME and
// TIDEWICK_HOME; every call of the hook is recorded, held or not.
class ClaudeCode : public testing::RealAgentTest {
protected:
    void SetUp() override {
        install("install-claude-code.sh", "TIDEWICK_CLAUDE_CODE_DIR", "claude-code");
        if (IsSkipped() || HasFatalFailure())
            return;
        // `connect` looks for Claude Code on the PATH.
        run.setVariable("PATH",
                        File::parent(agent) + ":" + File::parent(python) + ":/usr/bin:/bin");
        (void)run.succeeded({"connect", "claude", "--yes"});
        std::filesystem::create_directories(work);
        run.recordHookCalls();
    }

    // The stand-in playing `scenario` on a free loopback port, then the application;
    // both and everything they start reach it through the environment.
    void startModel(const std::string& scenario) {
        const std::string port =
            startStandIn(scenario, {python, agentScripts + "/claude_stand_in.py", "0", "--scenario",
                                    scenarioFile(), "--log", run.home() + "/stand-in.log",
                                    "--requests", requests});
        ASSERT_FALSE(port.empty());
        for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
                 {"ANTHROPIC_BASE_URL", "http://127.0.0.1:" + port},
                 {"ANTHROPIC_API_KEY", "test-key"},
                 {"HTTPS_PROXY", "http://127.0.0.1:9"},
                 {"HTTP_PROXY", "http://127.0.0.1:9"},
                 {"NO_PROXY", "127.0.0.1"},
                 {"DISABLE_AUTOUPDATER", "1"},
                 {"DISABLE_TELEMETRY", "1"},
                 {"CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC", "1"},
                 {"CLAUDE_CODE_DISABLE_OFFICIAL_MARKETPLACE_AUTOINSTALL", "1"}})
            run.setVariable(name, value);
        ASSERT_TRUE(run.startApp()) << run.appErrors();
    }

    BackgroundProgram& startClaude(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {agent, "--allowedTools", "Bash(./wait-long.sh)"});
        agents.push_back(std::make_unique<BackgroundProgram>(
            arguments, run.environment, "", run.home() + "/agent" + std::to_string(agents.size()),
            work));
        return *agents.back();
    }

    // Plays the interactive session of `mode` (see claude-interactive.sh) in a network
    // namespace with loopback only, after starting the application; its result.
    testing::ProgramResult play(const std::string& mode) {
        EXPECT_TRUE(run.startApp());
        return runProgram({"/usr/bin/unshare", "-n", "/bin/bash",
                           agentScripts + "/claude-interactive.sh", mode, agent,
                           agentScripts + "/claude_stand_in.py", TidewickPrograms::tidewickPath,
                           run.home(), work, run.home()},
                          {"PATH=" + File::parent(python) + ":" + File::parent(agent) +
                           ":/usr/sbin:/usr/bin:/bin"},
                          {}, run.home(), std::chrono::seconds(240));
    }
    static bool canPlayInteractively() {
        return File::isExecutableFile("/usr/bin/tmux") && testing::canIsolateNetwork();
    }

    const std::string work = File::join(run.home(), "work");
    const std::string requests = File::join(run.home(), "requests.jsonl");
    std::vector<std::unique_ptr<BackgroundProgram>> agents;
};

// Then the finished session is continued through `tidewick reply`.
TEST_F(ClaudeCode, APrintModeTurnReachesTheRunningApplicationWithoutHoldingAndIsContinued) {
    RecordProperty("claude_code_version", runProgram({agent, "--version"}, run.environment).out);
    // A read-only command runs unasked; the second one asks for permission, which print
    // mode hands to the hooks too, yet nobody is there to answer it.
    startModel(R"({"steps": [{"bash": "echo tidewick-e2e"}, {"bash": "touch asked.txt"}],
                     "final_text": "Done: the marker command has run."})");
    auto turn = runProgram({agent, "-p", "say hi", "--output-format", "text"}, run.environment, {},
                           work, std::chrono::seconds(150));
    ASSERT_EQ(turn.status, 0) << turn.out << turn.err << "\nstand-in:\n" << standIn->err();
    EXPECT_NE(turn.out.find("Done: the marker command has run."), std::string::npos) << turn.out;

    const JSONValue list = run.listing("sessions");
    const std::string sessions = list.compact();
    ASSERT_EQ(list.arrayValue()->size(), 1u) << sessions;
    const JSONValue& session = (*list.arrayValue())[0];
    EXPECT_EQ(text(*session.get("key"), "agent"), "claude");
    EXPECT_EQ(text(session, "projectPath"), work);
    EXPECT_TRUE(session.get("pending")->arrayValue()->empty()) << "print mode holds nothing";
    EXPECT_EQ(text(session, "status"), "ended") << sessions;
    // The session is titled by its prompt.
    EXPECT_EQ(text(session, "title"), "say hi") << sessions;

    bool sawCommand = false;
    for (const JSONValue& item : *session.get("timeline")->arrayValue())
        sawCommand =
            sawCommand || (text(item, "kind") == "shell" &&
                           text(item, "detail").find("echo tidewick-e2e") != std::string::npos);
    EXPECT_TRUE(sawCommand) << sessions;
    // The installed hook ran for each of Claude Code's own events, from start to end.
    const std::vector<std::string> texts = TidewickPrograms::texts(session);
    EXPECT_TRUE(has(texts, "Session started")) << sessions;
    EXPECT_TRUE(has(texts, "Finished the turn")) << sessions;
    EXPECT_TRUE(has(texts, "Session ended")) << sessions;
    // Nothing was ever held, so nothing timed out or was withdrawn.
    for (const std::string& each : texts) {
        EXPECT_EQ(each.find("No answer"), std::string::npos);
        EXPECT_EQ(each.find("withdrawn"), std::string::npos);
    }
    // The permission request reached Tidewick, which left it to Claude Code: refused.
    const std::vector<JSONValue> asked = run.hookCalls("PermissionRequest");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(text(*asked[0].get("payload")->get("tool_input"), "command"), "touch asked.txt");
    EXPECT_FALSE(File::exists(File::join(work, "asked.txt")));

    // Options and shell syntax alike reach the model as typed.
    const std::string id = text(*session.get("key"), "sessionId");
    const std::string reply = "-p --help; echo $(id) `x` \"q\" > f * done";
    auto replied = run.succeeded({"reply", id, "--", reply});
    const std::string log =
        TidewickPaths(run.home()).appSupport() + "/Logs/continue-claude-" + id + ".log";
    EXPECT_NE(replied.out.find(log), std::string::npos) << replied.out;
    const JSONValue resumed = run.sessionWhen([](const JSONValue& s) {
        const std::vector<std::string> texts = TidewickPrograms::texts(s);
        const auto you = std::find(texts.begin(), texts.end(), "You replied");
        return std::find(you, texts.end(), "Finished the turn") != texts.end() &&
               text(s, "status") == "ended";
    });
    const std::vector<std::string> after = TidewickPrograms::texts(resumed);
    EXPECT_EQ(std::count(after.begin(), after.end(), "Session started"), 2)
        << "the resumed run reports to the same session";
    // The request that carries the reply carries the first prompt too: the conversation resumed.
    std::istringstream sent(File::read(requests));
    std::string request;
    while (std::getline(sent, request) &&
           request.find(JSONValue::quote(reply)) == std::string::npos) {
    }
    EXPECT_NE(request.find(JSONValue::quote(reply)), std::string::npos) << "the model never got it";
    EXPECT_NE(request.find(JSONValue::quote("say hi")), std::string::npos)
        << "the resumed conversation lacks the first prompt";
    EXPECT_TRUE(File::exists(log));
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(ClaudeCode, ALongToolCallIsEndedAndAKilledAgentIsNoticed) {
    // Claude Code refuses a plain long sleep; a script of the project's may take its time.
    File::writeAtomically(work + "/wait-long.sh", "#!/bin/sh\nsleep 120\n", 0700);
    startModel(R"({"steps": [{"bash": "./wait-long.sh"}, {"bash": "./wait-long.sh"}],
                     "final_text": "Done."})");
    auto working = [](const JSONValue& s) {
        return text(s, "status") == "working" && s.get("currentAction") != nullptr;
    };
    auto ended = [](const JSONValue& s) { return text(s, "status") == "ended"; };

    BackgroundProgram& interrupted = startClaude({"-p", "--", "wait a while"});
    const std::string id = text(*run.sessionWhen(working).get("key"), "sessionId");
    auto end = run.succeeded({"end", id});
    EXPECT_NE(end.out.find("interrupted Claude Code"), std::string::npos) << end.out;
    EXPECT_TRUE(interrupted.waitFor(std::chrono::seconds(30))) << "Claude Code still runs";
    JSONValue session = run.sessionWhen(ended);
    EXPECT_TRUE(session.get("endedByYouAt")) << session.compact();
    EXPECT_EQ(session.get("userMessagesAtEnd")->compact(), "1") << session.compact();

    // The same session resumed by hand, then killed: nothing tells Tidewick but the process.
    BackgroundProgram& killed = startClaude({"--resume", id, "-p", "--", "wait again"});
    (void)run.sessionWhen(working);
    killed.signal(SIGKILL);
    const auto killedAt = Clock::now();
    EXPECT_EQ(killed.waitFor(std::chrono::seconds(10)), 128 + SIGKILL);
    session = run.sessionWhen([&](const JSONValue& s) {
        return ended(s) && has(TidewickPrograms::texts(s), "The agent exited");
    });
    RecordProperty("seconds_to_notice_a_killed_agent",
                   std::to_string(std::chrono::duration<double>(Clock::now() - killedAt).count()));
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(ClaudeCode, AlwaysAllowLeavesARuleSoTheSameCommandNeverAsksAgain) {
    if (!canPlayInteractively())
        GTEST_SKIP() << "tmux and a private network namespace are needed";
    auto session = play("always");
    ASSERT_EQ(session.status, 0) << session.out << session.err;
    const std::string answer = File::read(File::join(run.home(), "answer.out"));
    EXPECT_NE(answer.find("Allow Bash(touch:*), kept in this project's local settings"),
              std::string::npos)
        << answer;

    // Only the first command was put to Tidewick; the second ran on the rule.
    EXPECT_EQ(run.hookCalls("PermissionRequest").size(), 1u);
    EXPECT_EQ(run.hookCalls("PostToolUse").size(), 2u);
    EXPECT_TRUE(File::exists(File::join(work, "first.txt")));
    EXPECT_TRUE(File::exists(File::join(work, "second.txt")));
    const std::string local = File::join(work, ".claude/settings.local.json");
    ASSERT_TRUE(File::exists(local));
    const JSONValue settings = JSONValue::parse(File::read(local));
    EXPECT_EQ(settings.get("permissions")->get("allow")->compact(), R"x(["Bash(touch:*)"])x");
    for (const std::string& result : toolResults(requests))
        EXPECT_EQ(result.find("needs approval"), std::string::npos) << result;
    EXPECT_TRUE(has(TidewickPrograms::texts(run.sessionWhen([](const JSONValue&) { return true; })),
                    "Always allowed"));
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(ClaudeCode, AQuestionAnsweredFromTheCommandLineReachesTheModel) {
    if (!canPlayInteractively())
        GTEST_SKIP() << "tmux and a private network namespace are needed";
    auto session = play("question");
    ASSERT_EQ(session.status, 0) << session.out << session.err;
    EXPECT_EQ(run.hookCalls("PermissionRequest").size(), 1u);
    const std::vector<std::string> results = toolResults(requests);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0], "Your questions have been answered: \"Which colour should the button "
                          "be?\"=\"Blue\". You can now continue with these answers in mind.");
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

} // namespace
} // namespace tidewick
