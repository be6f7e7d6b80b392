// Runs the real tidewick-hook program against a real HookServer (or a
// misbehaving stand-in) in a temporary TIDEWICK_HOME.
#include "ChildProcess.h"
#include "HookCommand.h"
#include "foundation/File.h"
#include "foundation/Text.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookServer.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <pty.h>
#include <sys/stat.h>
#include <thread>

namespace tidewick {
namespace {

using testing::ChildProcess;
using testing::FakeServer;
using testing::TemporaryDirectory;

const std::string hookProgram = TIDEWICK_BINARY_DIR "/bin/tidewick-hook";
const std::string cursorAsk = "{\"permission\":\"ask\"}\n";

std::vector<std::string> hookArguments(const std::string& agent, const std::string& event) {
    return {"--agent", agent, "--event", event};
}

std::string repeated(const std::string& piece, size_t count) {
    std::string out;
    out.reserve(piece.size() * count);
    for (size_t i = 0; i < count; ++i)
        out += piece;
    return out;
}

class HookProgram : public ::testing::Test {
protected:
    using Answer = std::function<HookOutput(const HookRequest&, const ClientProbe&)>;

    // The server's threads use the members below; it goes first.
    void TearDown() override { server_.reset(); }

    void startServer(Answer answer = nullptr, std::string serverSecret = {}) {
        {
            std::lock_guard guard(mutex_);
            answer_ = std::move(answer);
        }
        server_ = std::make_unique<HookServer>(
            paths_.socketPath(), serverSecret.empty() ? secret_ : serverSecret,
            [this](const HookRequest& request, const ClientProbe& probe) {
                Answer answer;
                {
                    std::lock_guard guard(mutex_);
                    requests_.push_back(request);
                    answer = answer_;
                }
                if (answer)
                    return HookResponse{answer(request, probe)};
                return HookResponse{HookOutput{"answer to " + request.event, 0}};
            });
        server_->start();
    }

    std::vector<std::string> environment(const std::vector<std::string>& extra = {}) const {
        std::vector<std::string> env{"TIDEWICK_HOME=" + home_.path(), "PATH=/usr/bin:/bin"};
        env.insert(env.end(), extra.begin(), extra.end());
        return env;
    }

    /// Runs the program to its end; a run never writes to standard error.
    ChildProcess::Result runHook(const std::vector<std::string>& arguments,
                                 const std::string& input,
                                 const std::vector<std::string>& extraEnvironment = {}) {
        ChildProcess child(hookProgram, arguments, environment(extraEnvironment));
        lastPid_ = child.pid();
        auto result = child.wait(input);
        EXPECT_EQ(result.err, "") << "standard error must stay empty";
        EXPECT_EQ(result.signal, 0);
        return result;
    }

    std::vector<HookRequest> requests() {
        std::lock_guard guard(mutex_);
        return requests_;
    }

    TemporaryDirectory home_;
    TidewickPaths paths_{home_.path()};
    std::string secret_ = paths_.loadOrCreateSecret();
    pid_t lastPid_ = -1;
    std::unique_ptr<HookServer> server_;

private:
    std::mutex mutex_;
    Answer answer_;
    std::vector<HookRequest> requests_;
};

TEST_F(HookProgram, AHeldEventWaitsForTheApplicationsAnswer) {
    startServer([](const HookRequest&, const ClientProbe&) {
        // Longer than a fire-and-forget event would wait.
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        return HookOutput{R"({"permission":"allow"})", 0};
    });
    const std::string input = R"({"conversation_id":"c1","command":"make test","n":1.50})";
    auto result =
        runHook(hookArguments("cursor", "beforeShellExecution"), input, {"TERM_PROGRAM=iTerm.app"});
    EXPECT_EQ(result.out, "{\"permission\":\"allow\"}\n");
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(requests().size(), 1u);
    const HookRequest request = requests()[0];
    EXPECT_EQ(request.agent, "cursor");
    EXPECT_EQ(request.event, "beforeShellExecution");
    EXPECT_EQ(request.payload, JSONValue::parse(input));
    EXPECT_EQ(request.pid, lastPid_);
    EXPECT_EQ(request.host, "iterm");
    EXPECT_FALSE(request.noHold);
}

TEST_F(HookProgram, AFireAndForgetEventWaitsOnlyBriefly) {
    std::mutex mutex;
    std::condition_variable released;
    bool release = false;
    startServer([&](const HookRequest& request, const ClientProbe&) {
        if (request.event == "sessionEnd") {
            std::unique_lock guard(mutex);
            released.wait_for(guard, std::chrono::seconds(10), [&] { return release; });
        }
        return HookOutput{};
    });
    // Answered at once: nothing to print.
    auto quick = runHook(hookArguments("claude", "SessionEnd"), R"({"session_id":"s"})");
    EXPECT_EQ(quick.out, "");
    EXPECT_EQ(quick.status, 0);
    // A server that never answers costs a fire-and-forget event about a second.
    auto late = runHook(hookArguments("cursor", "sessionEnd"), R"({"conversation_id":"c"})");
    EXPECT_EQ(late.out, "{}\n");
    EXPECT_EQ(late.status, 0);
    EXPECT_GE(late.seconds, 1.0);
    EXPECT_LT(late.seconds, 3.0);
    {
        std::lock_guard guard(mutex);
        release = true;
    }
    released.notify_all();
    EXPECT_EQ(requests().size(), 2u);
    server_.reset(); // The handler uses this test's locals.
}

TEST_F(HookProgram, ExitCodesComeFromTheAnswerButNeverTwo) {
    startServer([](const HookRequest& request, const ClientProbe&) {
        if (request.event == "Two")
            return HookOutput{"x", 2};
        if (request.event == "Three")
            return HookOutput{"{\"a\":1}", 3};
        if (request.event == "EmptyFive")
            return HookOutput{"", 5};
        return HookOutput{"", 0};
    });
    const std::string input = R"({"session_id":"s"})";
    auto two = runHook(hookArguments("claude", "Two"), input);
    EXPECT_EQ(two.out, "x\n");
    EXPECT_EQ(two.status, 0);
    auto three = runHook(hookArguments("codex", "Three"), input);
    EXPECT_EQ(three.out, "{\"a\":1}\n");
    EXPECT_EQ(three.status, 3);
    auto emptyFive = runHook(hookArguments("claude", "EmptyFive"), input);
    EXPECT_EQ(emptyFive.out, "");
    EXPECT_EQ(emptyFive.status, 5);
    auto empty = runHook(hookArguments("claude", "Empty"), input);
    EXPECT_EQ(empty.out, "");
    EXPECT_EQ(empty.status, 0);
}

TEST_F(HookProgram, WithoutAgentOrEventItExitsSilently) {
    startServer();
    const std::string input = R"({"session_id":"s"})";
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {},
             {"--agent"},
             {"--event", "Stop", "--agent"},
             {"--agent", "claude"},
             {"--agent", "claude-code", "--event", "Stop"},
             {"--agent", "", "--event", "Stop"},
             {"--agent=claude", "--event", "Stop"},
         }) {
        auto result = runHook(arguments, input);
        EXPECT_EQ(result.out, "") << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.status, 0);
    }
    EXPECT_TRUE(requests().empty());
}

TEST_F(HookProgram, EveryAgentHasItsFailSafeAnswer) {
    // No application is running.
    struct Case {
        const char* agent;
        const char* event;
        const char* out;
    };
    const Case cases[] = {
        {"claude", "PermissionRequest", ""},
        {"claude", "Stop", ""},
        {"claude", "SessionEnd", ""},
        {"codex", "PreToolUse", ""},
        {"codex", "Stop", ""},
        {"cursor", "beforeReadFile", "{\"permission\":\"allow\"}\n"},
        {"cursor", "subagentStart", "{\"permission\":\"allow\"}\n"},
        {"cursor", "beforeShellExecution", "{\"permission\":\"ask\"}\n"},
        {"cursor", "preToolUse", "{\"permission\":\"ask\"}\n"},
        {"cursor", "beforeMCPExecution", "{\"permission\":\"ask\"}\n"},
        {"cursor", "stop", "{}\n"},
        {"cursor", "sessionEnd", "{}\n"},
        {"antigravity", "PreToolUse", "{\"decision\":\"ask\"}\n"},
        {"antigravity", "Stop", "{\"decision\":\"stop\"}\n"},
        {"antigravity", "PostToolUse", "{}\n"},
    };
    for (const Case& c : cases) {
        auto result = runHook(hookArguments(c.agent, c.event), R"({"session_id":"s"})");
        EXPECT_EQ(result.out, c.out) << c.agent << " " << c.event;
        EXPECT_EQ(result.status, 0) << c.agent << " " << c.event;
    }
}

TEST_F(HookProgram, ApplicationFailuresEndInTheFailSafeAnswer) {
    const auto arguments = hookArguments("cursor", "beforeShellExecution");
    const std::string input = R"({"conversation_id":"c","command":"ls"})";
    const std::string socket = paths_.socketPath();

    // No application: no socket at all, then a socket nobody listens on.
    EXPECT_EQ(runHook(arguments, input).out, cursorAsk);
    {
        int bound = Socket::openStream();
        auto address = Wire::makeAddress(socket);
        ASSERT_EQ(::bind(bound, reinterpret_cast<const sockaddr*>(&*address), sizeof *address), 0);
        auto refused = runHook(arguments, input);
        EXPECT_EQ(refused.out, cursorAsk);
        EXPECT_LT(refused.seconds, 1.0) << "a refused connection is not waited for";
        ::close(bound);
        ::unlink(socket.c_str());
    }
    // Answers that are not answers.
    for (const std::string& reply :
         {std::string("{\"v\":2,\"stdout\":\"{}\",\"exit\":0}\n"), std::string("{}\n"),
          std::string("garbage\n"), std::string(Wire::maxLineBytes + 10, 'x') + "\n",
          std::string() /* closes early */}) {
        FakeServer fake(socket, reply);
        auto result = runHook(arguments, input);
        EXPECT_EQ(result.out, cursorAsk) << reply.substr(0, 40);
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(fake.finish()) << "the request did arrive";
    }
    {
        FakeServer silent(socket, "", FakeServer::After::hold);
        auto result = runHook(hookArguments("cursor", "sessionEnd"), R"({"conversation_id":"c"})");
        EXPECT_EQ(result.out, "{}\n");
        EXPECT_LT(result.seconds, 3.0);
    }
}

TEST_F(HookProgram, SecretProblemsEndInTheFailSafeAnswer) {
    const auto arguments = hookArguments("cursor", "beforeShellExecution");
    const std::string input = R"({"conversation_id":"c"})";
    // The application runs with a different secret than the file holds.
    startServer(nullptr, std::string(64, '0'));
    EXPECT_EQ(runHook(arguments, input).out, cursorAsk);
    server_.reset();

    startServer();
    File::writeAtomically(paths_.secretFile(), std::string(31, 'k') + "\n", 0600);
    EXPECT_EQ(runHook(arguments, input).out, cursorAsk);
    ::unlink(paths_.secretFile().c_str());
    EXPECT_EQ(runHook(arguments, input).out, cursorAsk);
    EXPECT_TRUE(requests().empty()) << "no request is sent without the secret";
    File::writeAtomically(paths_.secretFile(), secret_ + "\n", 0600);
    EXPECT_EQ(runHook(arguments, input).out, "answer to beforeShellExecution\n");
}

TEST_F(HookProgram, UnreadableInputEndsInTheFailSafeAnswer) {
    startServer();
    const auto arguments = hookArguments("cursor", "beforeShellExecution");
    for (const std::string& input : {std::string(), std::string("[1,2]"), std::string("\"text\""),
                                     std::string("{\"a\":"), std::string("not json")}) {
        auto result = runHook(arguments, input);
        EXPECT_EQ(result.out, cursorAsk) << input;
        EXPECT_EQ(result.status, 0);
    }
    // A valid object larger than the read bound is cut at the bound, and
    // what was read is no longer JSON.
    std::string huge =
        "{\"blob\":\"" + std::string(HookCommand::inputLimit + (1 << 20), 'z') + "\"}";
    auto result = runHook(arguments, huge);
    EXPECT_EQ(result.out, cursorAsk);
    EXPECT_TRUE(requests().empty());
    // Below the bound the same shape goes through (and is trimmed).
    std::string large = "{\"blob\":\"" + std::string(4 << 20, 'z') + "\"}";
    EXPECT_EQ(runHook(arguments, large).out, "answer to beforeShellExecution\n");
    ASSERT_EQ(requests().size(), 1u);
    EXPECT_EQ(requests()[0].payload.get("blob")->stringValue()->size(),
              HookCommand::stringLimit + Text::ellipsis.size());
}

TEST_F(HookProgram, AnInteractiveTerminalIsNotRead) {
    startServer();
    int controller = -1, terminal = -1;
    ASSERT_EQ(::openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    ChildProcess child(hookProgram, hookArguments("cursor", "beforeShellExecution"), environment(),
                       terminal);
    auto result = child.wait("");
    EXPECT_EQ(result.out, cursorAsk) << "no input is no JSON";
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    ::close(controller);
    ::close(terminal);
}

TEST_F(HookProgram, LongValuesAreTrimmedBeforeTheyAreSent) {
    startServer();
    JSONValue payload = JSONValue::parse(R"({"session_id":"s","n":12.50,"flag":true,"none":null})");
    payload.set("tool_response", repeated("é", 2001));
    payload.set("output", std::string(2000, 'o'));
    payload.set("tool_result", JSONValue::parse("{\"deep\":[{\"x\":\"" + std::string(2001, 'b') +
                                                "\"}],\"k\":5}"));
    payload.set("tool_input", std::string(2001, 'i'));
    payload.set("prompt", std::string(60000, 'p'));
    payload.set("nested", JSONValue(JSONValue::Array{
                              JSONValue(JSONValue::Object{{"s", std::string(50001, 'd')}}),
                              JSONValue(std::string(50000, 'e'))}));
    auto result = runHook(hookArguments("claude", "PostToolUse"), payload.compact());
    EXPECT_EQ(result.out, "answer to PostToolUse\n");
    ASSERT_EQ(requests().size(), 1u);
    const JSONValue sent = requests()[0].payload;
    const std::string ellipsis(Text::ellipsis);
    EXPECT_EQ(*sent.get("tool_response")->stringValue(), repeated("é", 2000) + ellipsis);
    EXPECT_EQ(*sent.get("output")->stringValue(), std::string(2000, 'o'));
    EXPECT_EQ(*sent.get("tool_result")->get("deep")->arrayValue()->at(0).get("x")->stringValue(),
              std::string(2000, 'b') + ellipsis);
    EXPECT_EQ(*sent.get("tool_result")->get("k"), JSONValue::integer(5));
    EXPECT_EQ(*sent.get("tool_input")->stringValue(), std::string(2001, 'i'));
    EXPECT_EQ(*sent.get("prompt")->stringValue(), std::string(50000, 'p') + ellipsis);
    const auto& nested = *sent.get("nested")->arrayValue();
    EXPECT_EQ(*nested[0].get("s")->stringValue(), std::string(50000, 'd') + ellipsis);
    EXPECT_EQ(*nested[1].stringValue(), std::string(50000, 'e'));
    EXPECT_EQ(*sent.get("n")->numberText(), "12.50");
    EXPECT_EQ(*sent.get("flag"), JSONValue::boolean(true));
    EXPECT_TRUE(sent.get("none")->isNull());
}

TEST_F(HookProgram, NoHoldAndHostComeFromTheEnvironment) {
    startServer();
    const std::string input = R"({"conversation_id":"c"})";
    (void)runHook(hookArguments("cursor", "stop"), input, {"TIDEWICK_NO_HOLD="});
    (void)runHook(hookArguments("cursor", "stop"), input,
                  {"TIDEWICK_NO_HOLD=1", "TMUX=/tmp/x,1,0"});
    (void)runHook(hookArguments("cursor", "stop"), input);
    auto seen = requests();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_TRUE(seen[0].noHold) << "set, even empty, counts";
    EXPECT_TRUE(seen[1].noHold);
    EXPECT_FALSE(seen[2].noHold);
    EXPECT_EQ(seen[1].host, "tmux");
    EXPECT_FALSE(seen[2].host);
}

TEST_F(HookProgram, TheDebugMarkerLogsEachPayloadAsReceived) {
    startServer();
    const std::string directory = File::parent(paths_.socketPath());
    const std::string log = File::join(directory, "hook-debug.jsonl");
    (void)runHook(hookArguments("claude", "Stop"), R"({"session_id":"s"})");
    EXPECT_FALSE(File::exists(log)) << "no marker, no log";

    File::writeAtomically(File::join(directory, "debug-hooks"), "", 0600);
    const std::string first = "{\"tool_response\":\"" + std::string(2001, 'r') + "\",\"n\":1.0}";
    (void)runHook(hookArguments("claude", "PostToolUse"), first);
    (void)runHook(hookArguments("cursor", "stop"), R"({"conversation_id":"c"})");
    (void)runHook(hookArguments("cursor", "stop"), "[not an object]");

    std::string content = File::read(log);
    struct stat info {};
    ASSERT_EQ(::stat(log.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600);
    size_t newline = content.find('\n');
    ASSERT_NE(newline, std::string::npos);
    ASSERT_EQ(content.find('\n', newline + 1), content.size() - 1) << "one line per parsed payload";
    JSONValue record = JSONValue::parse(content.substr(0, newline));
    EXPECT_EQ(*record.get("agent")->stringValue(), "claude");
    EXPECT_EQ(*record.get("event")->stringValue(), "PostToolUse");
    EXPECT_EQ(*record.get("payload"), JSONValue::parse(first)) << "logged before trimming";
    double time = *record.get("time")->doubleValue();
    EXPECT_NEAR(time, secondsSince1970(now()), 120);
    EXPECT_NE(record.get("time")->numberText()->find('.'), std::string::npos) << "with fraction";
    JSONValue second = JSONValue::parse(content.substr(newline + 1));
    EXPECT_EQ(*second.get("agent")->stringValue(), "cursor");
}

TEST_F(HookProgram, WithADeepHomeTheDebugFilesLiveBesideTheSocketInTmp) {
    TemporaryDirectory deepBase;
    const std::string deepHome = deepBase.path() + "/" + std::string(60, 'd');
    TidewickPaths deep(deepHome);
    ASSERT_EQ(deep.socketPath().rfind("/tmp/tw-", 0), 0u);
    (void)deep.loadOrCreateSecret();
    const bool markerExisted = File::exists("/tmp/debug-hooks");
    const bool logExisted = File::exists("/tmp/hook-debug.jsonl");
    if (!markerExisted)
        File::writeAtomically("/tmp/debug-hooks", "", 0600);
    // The marker in the application directory is not the one that counts.
    File::writeAtomically(File::join(deep.appSupport(), "debug-hooks"), "", 0600);
    const std::string event = "DeepHomeProbe-" + std::to_string(::getpid());
    ChildProcess child(hookProgram, hookArguments("claude", event),
                       {"TIDEWICK_HOME=" + deepHome, "PATH=/usr/bin:/bin"});
    auto result = child.wait(R"({"session_id":"s"})");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    std::string tmpLog =
        File::exists("/tmp/hook-debug.jsonl") ? File::read("/tmp/hook-debug.jsonl") : "";
    EXPECT_NE(tmpLog.find(event), std::string::npos);
    EXPECT_FALSE(File::exists(File::join(deep.appSupport(), "hook-debug.jsonl")));
    if (!markerExisted)
        ::unlink("/tmp/debug-hooks");
    if (!logExisted)
        ::unlink("/tmp/hook-debug.jsonl");
}

TEST_F(HookProgram, TheStatusLineRecordsUsageLimitsAndPrintsNothing) {
    startServer();
    File::writeAtomically(File::join(paths_.appSupport(), "debug-hooks"), "", 0600);
    const std::string input =
        R"({"model":{"id":"m"},"rate_limits":{"five_hour":{"used_percentage":12.5,"resets_at":1700000000},)"
        R"("seven_day":{"utilization":40,"resets_at":"2026-11-28T00:00:00Z"},"other":{"x":1}}})";
    auto result = runHook(hookArguments("claude", "StatusLine"), input);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(requests().empty()) << "the status line never talks to the application";
    JSONValue limits = JSONValue::parse(File::read(paths_.claudeLimitsFile()));
    EXPECT_NEAR(*limits.get("at")->doubleValue(), secondsSince1970(now()), 120);
    EXPECT_EQ(limits.get("rate_limits")->compact(),
              R"({"five_hour":{"used_percentage":12.5,"resets_at":1700000000},)"
              R"("seven_day":{"used_percentage":40,"resets_at":"2026-11-28T00:00:00Z"}})");
    EXPECT_NE(File::read(File::join(paths_.appSupport(), "hook-debug.jsonl")).find("StatusLine"),
              std::string::npos);
}

TEST_F(HookProgram, AHookKilledWhileHeldIsNoticedWithinAQuarterSecond) {
    std::mutex mutex;
    std::condition_variable changed;
    bool holding = false;
    std::optional<std::chrono::steady_clock::time_point> noticedAt;
    startServer([&](const HookRequest&, const ClientProbe& probe) {
        {
            std::lock_guard guard(mutex);
            holding = true;
        }
        changed.notify_all();
        // The broker's rhythm: sleep in quarter-second slices, probing between them.
        for (int i = 0; i < 40 && !probe.isDisconnected(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
        {
            std::lock_guard guard(mutex);
            if (probe.isDisconnected())
                noticedAt = std::chrono::steady_clock::now();
        }
        changed.notify_all();
        return HookOutput{"too late", 0};
    });
    ChildProcess child(hookProgram, hookArguments("claude", "PermissionRequest"), environment());
    ChildProcess::Result result;
    std::thread waiter([&] { result = child.wait(R"({"session_id":"s","tool_name":"Bash"})"); });
    std::unique_lock guard(mutex);
    bool held = changed.wait_for(guard, std::chrono::seconds(10), [&] { return holding; });
    guard.unlock();
    auto killedAt = std::chrono::steady_clock::now();
    ::kill(child.pid(), SIGKILL);
    guard.lock();
    changed.wait_for(guard, std::chrono::seconds(10), [&] { return noticedAt.has_value(); });
    guard.unlock();
    waiter.join();
    ASSERT_TRUE(held);
    ASSERT_TRUE(noticedAt);
    EXPECT_LT(std::chrono::duration<double>(*noticedAt - killedAt).count(), 1.0);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.out, "");
    server_.reset(); // The handler uses this test's locals.
}

} // namespace
} // namespace tidewick
