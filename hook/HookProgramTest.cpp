// Runs the real tidewick-hook program against a real HookServer (or a
// misbehaving stand-in) in a temporary TIDEWICK_HOME.
#include "HookCommand.h"
#include "foundation/File.h"
#include "foundation/Text.h"
#include "testing/BackgroundProgram.h"
#include "testing/Eventually.h"
#include "testing/ProgramRun.h"
#include "testing/TestFiles.h"
#include "wire/RecordingServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <map>
#include <thread>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
/// What a run printed and its exit status.
using Ending = std::pair<std::string, int>;

const std::string cursorAsk = "{\"permission\":\"ask\"}\n";
const std::string shellEvent = "beforeShellExecution";

std::vector<std::string> hookCommand(const std::string& agent, const std::string& event) {
    return {TIDEWICK_BINARY_DIR "/bin/tidewick-hook", "--agent", agent, "--event", event};
}

class HookProgram : public ::testing::Test {
protected:
    // A hook that stops reading its input must not end this program with
    // SIGPIPE; unlike SIG_IGN, a handler is reset in the child, which starts
    // with SIGPIPE at its default as under an agent.
    static void SetUpTestSuite() { std::signal(SIGPIPE, noteSignal); }
    static void noteSignal(int) {}

    /// Runs the program to its end; a run never writes to standard error.
    Ending run(const std::vector<std::string>& command, const std::string& input,
               const std::vector<std::string>& extraEnvironment = {},
               std::chrono::seconds bound = 60s) {
        auto result =
            testing::runProgram(command, app_.environment(extraEnvironment), input, {}, bound);
        EXPECT_EQ(result.err, "") << "standard error must stay empty";
        EXPECT_FALSE(result.timedOut);
        return {result.out, result.status};
    }

    testing::RecordingServer app_;
};

TEST_F(HookProgram, HeldAndFireAndForgetExchangesEndWithTheAnswersExitCode) {
    const std::map<std::string, HookOutput> answers = {
        {"Two", {"x", 2}}, {"Five", {"", 5}}, {"SessionEnd", {}}};
    app_.start([&](const HookRequest& request, const ClientProbe&) {
        if (request.event != shellEvent)
            return answers.at(request.event);
        // Longer than a fire-and-forget event would wait.
        std::this_thread::sleep_for(1300ms);
        return HookOutput{R"({"permission":"allow"})", 0};
    });
    const std::string input = R"({"conversation_id":"c1","command":"make test","n":1.50})";
    testing::BackgroundProgram held(hookCommand("cursor", shellEvent),
                                    app_.environment({"TERM_PROGRAM=iTerm.app"}), input,
                                    app_.home.path() + "/held");
    EXPECT_EQ(held.waitFor(60s), 0);
    EXPECT_EQ(held.out(), "{\"permission\":\"allow\"}\n");
    EXPECT_EQ(held.err(), "");
    ASSERT_EQ(app_.requests().size(), 1u);
    EXPECT_EQ(app_.requests()[0], (HookRequest{.agent = "cursor",
                                               .event = shellEvent,
                                               .payload = JSONValue::parse(input),
                                               .pid = held.pid(),
                                               .host = "iterm",
                                               .agentPid = std::nullopt}));

    // The answer's text gets a line feed; its exit code is kept, but 2 (which
    // agents read as "block") becomes 0.
    const std::tuple<const char*, const char*, Ending> rows[] = {
        {"claude", "Two", {"x\n", 0}},
        {"codex", "Five", {"", 5}},
        {"claude", "SessionEnd", {"", 0}}, // fire-and-forget
    };
    for (const auto& [agent, event, ending] : rows) {
        SCOPED_TRACE(event);
        EXPECT_EQ(run(hookCommand(agent, event), R"({"session_id":"s"})"), ending);
    }
    (void)run(hookCommand("claude", "SessionEnd"), "{}", {"TIDEWICK_NO_HOLD="});
    EXPECT_TRUE(app_.requests().back().noHold) << "set, even empty, counts";
    app_.stop(); // The handler uses this test's locals.
}

// The answers themselves are the adapters' to test, and the ways an application can fail
// the client are the client's; here, that the program picks the fail-safe answer by its
// arguments (and exits silently without a known agent and event) when nothing answers.
TEST_F(HookProgram, WithoutAnAnswerEachAgentGetsItsFailSafeAnswer) {
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"--agent", "cursor", "--event", "beforeReadFile"}, "{\"permission\":\"allow\"}\n"},
        {{"--agent", "antigravity", "--event", "Stop"}, "{\"decision\":\"stop\"}\n"},
        {{}, ""},
        {{"--agent"}, ""},
        {{"--agent", "cursor"}, ""},
        {{"--agent", "cursor-agent", "--event", "stop"}, ""},
        {{"--agent=cursor", "--event", "stop"}, ""},
    };
    for (const auto& [arguments, out] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        std::vector<std::string> command{TIDEWICK_BINARY_DIR "/bin/tidewick-hook"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        // Nothing listens: not waited for, so well below a hold.
        EXPECT_EQ(run(command, R"({"session_id":"s"})", {}, 10s), Ending(out, 0));
    }
    // An application that never answers is waited for a second on a fire-and-forget event.
    app_.start([](const HookRequest&, const ClientProbe& probe) {
        while (!probe.isDisconnected())
            std::this_thread::sleep_for(10ms);
        return HookOutput{"too late", 0};
    });
    EXPECT_EQ(run(hookCommand("cursor", "sessionEnd"), R"({"conversation_id":"c"})", {}, 10s),
              Ending("{}\n", 0));
    EXPECT_EQ(app_.requests().size(), 1u);
}

// Unreadable input or no usable secret: the fail-safe answer; the status line needs no answer.
TEST_F(HookProgram, SendsNothingItCannotOrNeedNotSend) {
    app_.start();
    for (const std::string& input :
         {std::string(), std::string("[1,2]"), std::string("\"text\""), std::string("{\"a\":"),
          // A valid object larger than the read bound is cut at the bound,
          // and what was read is no longer JSON.
          "{\"blob\":\"" + std::string(HookCommand::inputLimit + (1 << 20), 'z') + "\"}"}) {
        SCOPED_TRACE(input.substr(0, 20));
        EXPECT_EQ(run(hookCommand("cursor", shellEvent), input), Ending(cursorAsk, 0));
    }
    File::writeAtomically(app_.paths.secretFile(), std::string(31, 'k') + "\n", 0600);
    EXPECT_EQ(run(hookCommand("cursor", shellEvent), "{}").first, cursorAsk);
    ::unlink(app_.paths.secretFile().c_str());
    EXPECT_EQ(run(hookCommand("cursor", shellEvent), "{}").first, cursorAsk);
    EXPECT_TRUE(app_.requests().empty());
    File::writeAtomically(app_.paths.secretFile(), app_.secret + "\n", 0600);
    EXPECT_EQ(run(hookCommand("cursor", shellEvent), "{}").first, "answer to " + shellEvent + "\n");
    // The status line is recorded, never sent (what is recorded is the recorder's to test).
    EXPECT_EQ(run(hookCommand("claude", "StatusLine"),
                  R"({"rate_limits":{"five_hour":{"used_percentage":12.5}}})"),
              Ending("", 0));
    EXPECT_TRUE(File::exists(app_.paths.claudeLimitsFile()));
    EXPECT_EQ(app_.requests().size(), 1u);
}

// With the debug marker beside the socket, each payload is logged as it was received, then
// its long values are trimmed before it is sent.
TEST_F(HookProgram, PayloadsAreLoggedAsReceivedAndSentTrimmed) {
    app_.start();
    const std::string log = app_.paths.debugLogFile();
    (void)run(hookCommand("cursor", "stop"), "{}");
    EXPECT_FALSE(File::exists(log)) << "no marker, no log";
    File::writeAtomically(app_.paths.debugMarkerFile(), "", 0600);

    std::string accented;
    for (int i = 0; i < 2001; ++i)
        accented += "é";
    const std::string ellipsis(Text::ellipsis);
    // key -> (value sent, value expected at the application)
    const std::map<std::string, std::pair<std::string, std::string>> strings = {
        {"tool_response",
         {accented, accented.substr(0, 2000 * std::string("é").size()) + ellipsis}},
        {"output", {std::string(2000, 'o'), std::string(2000, 'o')}},
        {"tool_input", {std::string(2001, 'i'), std::string(2001, 'i')}}, // not tool output
        // Megabytes below the read bound still come through.
        {"prompt", {std::string(4 << 20, 'p'), std::string(50000, 'p') + ellipsis}},
    };
    JSONValue payload = JSONValue::parse(R"({"session_id":"s","n":12.50})");
    for (const auto& [key, values] : strings)
        payload.set(key, values.first);
    payload.set("tool_result", JSONValue::parse("{\"deep\":[{\"x\":\"" + std::string(2001, 'b') +
                                                "\"}],\"k\":5}"));
    payload.set("nested", JSONValue(JSONValue::Array{
                              JSONValue(JSONValue::Object{{"s", std::string(50001, 'd')}}),
                              JSONValue(std::string(50000, 'e'))}));
    EXPECT_EQ(run(hookCommand("claude", "PostToolUse"), payload.compact()).first,
              "answer to PostToolUse\n");
    (void)run(hookCommand("cursor", "stop"), "[not an object]");
    (void)run(hookCommand("cursor", "stop"), "{}");
    ASSERT_EQ(app_.requests().size(), 3u);
    const JSONValue sent = app_.requests()[1].payload;
    for (const auto& [key, values] : strings)
        EXPECT_EQ(*sent.get(key)->stringValue(), values.second) << key;
    EXPECT_EQ(sent.get("tool_result")->compact(),
              "{\"deep\":[{\"x\":\"" + std::string(2000, 'b') + ellipsis + "\"}],\"k\":5}");
    EXPECT_EQ(sent.get("nested")->compact(), "[{\"s\":\"" + std::string(50000, 'd') + ellipsis +
                                                 "\"},\"" + std::string(50000, 'e') + "\"]");
    EXPECT_EQ(*sent.get("n")->numberText(), "12.50");

    EXPECT_EQ(testing::modeOf(log), 0600);
    std::string content = File::read(log);
    size_t newline = content.find('\n');
    ASSERT_NE(newline, std::string::npos);
    ASSERT_EQ(content.find('\n', newline + 1), content.size() - 1) << "one line per parsed payload";
    JSONValue record = JSONValue::parse(content.substr(0, newline));
    EXPECT_EQ(*record.get("agent")->stringValue(), "claude");
    EXPECT_EQ(*record.get("event")->stringValue(), "PostToolUse");
    EXPECT_EQ(*record.get("payload"), payload) << "logged before trimming";
    EXPECT_NEAR(*record.get("time")->doubleValue(), secondsSince1970(now()), 120);
    EXPECT_NE(record.get("time")->numberText()->find('.'), std::string::npos) << "with fraction";
    EXPECT_EQ(*JSONValue::parse(content.substr(newline + 1)).get("agent")->stringValue(), "cursor");
}

TEST_F(HookProgram, AHookKilledWhileHeldIsNoticed) {
    // Static: a handler still running after a failed assertion finds them.
    static std::atomic<bool> holding, noticed;
    holding = noticed = false;
    app_.start([](const HookRequest&, const ClientProbe& probe) {
        holding = true;
        // The broker's rhythm: sleep in quarter-second slices, probing between them.
        for (int i = 0; i < 40 && !probe.isDisconnected(); ++i)
            std::this_thread::sleep_for(250ms);
        noticed = probe.isDisconnected();
        return HookOutput{"too late", 0};
    });
    testing::BackgroundProgram hook(hookCommand("claude", "PermissionRequest"), app_.environment(),
                                    R"({"session_id":"s"})", app_.home.path() + "/killed");
    ASSERT_TRUE(testing::eventually([] { return holding.load(); }));
    hook.signal(SIGKILL);
    EXPECT_TRUE(testing::eventually([] { return noticed.load(); }))
        << "the handler never saw the client go";
    EXPECT_EQ(hook.waitFor(10s), 128 + SIGKILL);
    EXPECT_EQ(hook.out(), "");
}

} // namespace
} // namespace tidewick
