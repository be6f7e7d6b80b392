// A real, interactive Claude Code in tmux, held by Tidewick and answered from the
// command line with more than yes or no: "always allow" becomes a rule Claude Code
// keeps in the project's local settings, and its questions get their answers.
// Claude Code comes from the npm registry (test only); the model is the loopback
// stand-in, and everything runs in a network namespace with loopback only.
#include "RealAgents.h"
#include "TidewickPrograms.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace tidewick {
namespace {

using testing::runProgram;
namespace RealAgents = testing::RealAgents;

std::vector<JSONValue> jsonLines(const std::string& path) {
    std::vector<JSONValue> records;
    if (!File::exists(path))
        return records;
    std::istringstream lines(File::read(path));
    for (std::string line; std::getline(lines, line);)
        if (!line.empty())
            records.push_back(JSONValue::parse(line));
    return records;
}

// The texts of every tool result the model received, in the order of the requests.
std::vector<std::string> toolResults(const std::string& requestsLog) {
    std::vector<std::string> texts;
    for (const JSONValue& request : jsonLines(requestsLog)) {
        const JSONValue* messages = request.get("body") ? request.get("body")->get("messages") : nullptr;
        if (!messages || !messages->arrayValue() || messages->arrayValue()->empty())
            continue;
        const JSONValue* content = messages->arrayValue()->back().get("content");
        if (!content || !content->arrayValue())
            continue;
        for (const JSONValue& block : *content->arrayValue()) {
            if (!block.get("type") || *block.get("type") != JSONValue("tool_result"))
                continue;
            const JSONValue* result = block.get("content");
            if (result && result->stringValue())
                texts.push_back(*result->stringValue());
            else if (result && result->arrayValue())
                for (const JSONValue& part : *result->arrayValue())
                    if (part.get("text") && part.get("text")->stringValue())
                        texts.push_back(*part.get("text")->stringValue());
        }
    }
    return texts;
}

class ClaudeCodeAnswers : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        if (RealAgents::python().empty() || !File::isExecutableFile("/usr/bin/tmux") ||
            !RealAgents::canIsolateNetwork())
            GTEST_SKIP() << "python3, tmux and a private network namespace are needed";
        auto install = RealAgents::install("install-claude-code.sh", "TIDEWICK_CLAUDE_CODE_DIR",
                                           "claude-code");
        if (install.status == 77)
            GTEST_SKIP() << "Claude Code could not be installed from npm: " << install.error;
        ASSERT_EQ(install.status, 0) << install.error;
        claude = install.command;
        run.setVariable("PATH", File::parent(claude) + ":/usr/bin:/bin");
        auto connect = run.tidewick({"connect", "claude", "--yes"});
        ASSERT_EQ(connect.status, 0) << connect.out << connect.err;
        work = File::join(run.home(), "work");
        std::filesystem::create_directories(work);
        // What reached Tidewick at all, whether held or not.
        run.recordHookCalls();
        ASSERT_TRUE(run.startApp());
    }

    // Plays the session of `mode` (see claude-interactive.sh); its exit status.
    testing::ProgramResult play(const std::string& mode) {
        return runProgram(
            {"/usr/bin/unshare", "-n", "/bin/bash",
             std::string(TIDEWICK_SOURCE_DIR) + "/app/testing/claude-interactive.sh", mode, claude,
             std::string(TIDEWICK_SOURCE_DIR) + "/app/testing/claude_stand_in.py",
             testing::TidewickPrograms::tidewickPath, run.home(), work, run.home()},
            {"PATH=" + File::parent(RealAgents::python()) + ":" + File::parent(claude) + ":/usr/sbin:/usr/bin:/bin"},
            {}, run.home(), std::chrono::seconds(240));
    }

    std::string requestsLog() const { return File::join(run.home(), "requests.jsonl"); }

    testing::TidewickPrograms run;
    std::string claude, work;
};

TEST_F(ClaudeCodeAnswers, AlwaysAllowLeavesARuleSoTheSameCommandNeverAsksAgain) {
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
    for (const std::string& result : toolResults(requestsLog()))
        EXPECT_EQ(result.find("needs approval"), std::string::npos) << result;

    const JSONValue sessions = run.listing("sessions");
    ASSERT_EQ(sessions.arrayValue()->size(), 1u);
    const auto timeline = run.timeline(*(*sessions.arrayValue())[0].get("key")->get("sessionId")->stringValue());
    EXPECT_NE(std::find(timeline.begin(), timeline.end(), "Always allowed"), timeline.end());
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

TEST_F(ClaudeCodeAnswers, AQuestionAnsweredFromTheCommandLineReachesTheModel) {
    auto session = play("question");
    ASSERT_EQ(session.status, 0) << session.out << session.err;
    EXPECT_EQ(run.hookCalls("PermissionRequest").size(), 1u);
    const std::vector<std::string> results = toolResults(requestsLog());
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0], "Your questions have been answered: \"Which colour should the button "
                          "be?\"=\"Blue\". You can now continue with these answers in mind.");
    EXPECT_EQ(run.stopApp(), 0) << run.appErrors();
}

} // namespace
} // namespace tidewick
