// The service continuing and ending sessions with the agents' own programs, and
// noticing agents that went away: a stand-in program on the search path, a
// process table filled by hand.
#include "service/TidewickService.h"

#include "agents/FakeProcesses.h"
#include "foundation/File.h"
#include "service/ServiceTestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>

namespace tidewick {
namespace {

using namespace tidewick::testing;

class AgentRunsTest : public ServiceFixture {
protected:
    AgentRunsTest() {
        File::makeDirectories(project, 0700);
        File::makeDirectories(bin, 0700);
        // Writes where it ran and each argument on a line of its own, then says something
        // and exits with the status in the file "status" (0 without one).
        File::writeAtomically(bin + "/claude",
                              "#!/bin/sh\n"
                              "{ pwd; for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done; } > " +
                                  record + ".tmp && mv " + record + ".tmp " + record +
                                  "\necho stand-in output\n"
                                  "exit $(cat " + bin + "/status 2>/dev/null || echo 0)\n",
                              0700);
        processes.add(4200, {7, "/usr/bin/vim", {"vim"}}); // not Claude Code: no program from it
        TidewickService::Options options;
        options.clock = clock.clock();
        options.agentCheckSeconds = 0;
        options.endGraceSeconds = 0.05;
        options.processes = &processes;
        options.searchPath = bin;
        service = std::make_unique<TidewickService>(paths, options);
    }
    ~AgentRunsTest() override { service.reset(); }

    HookRequest request(std::string_view event, std::string_view extra = "{}") {
        HookRequest made = claudeRequest(event, extra);
        made.payload.set("cwd", project);
        made.payload.set("transcript_path", home.path() + "/t.jsonl");
        made.noHold = true;
        return made;
    }
    void send(const HookRequest& hook) { (void)handleNow(hook); }

    const std::string project = home.path() + "/my project";
    const std::string bin = home.path() + "/bin";
    const std::string record = home.path() + "/ran";
    FakeProcesses processes;
};

TEST_F(AgentRunsTest, ContinuesASessionThatHoldsNothingWithTheAgentsOwnProgram) {
    send(request("SessionStart"));
    send(request("Stop"));
    ASSERT_EQ(session().status, SessionStatus::finished);

    const std::string text = "-p --help; rm -rf / && echo $(id) `x` \"q\" > f * \\";
    const TidewickService::Result started = service->continueSession(claudeKey, text);
    const std::string log = paths.appSupport() + "/Logs/continue-claude-" +
                            std::string(claudeSession) + ".log";
    EXPECT_TRUE(started.done) << started.sentence;
    EXPECT_NE(started.sentence.find(log), std::string::npos) << started.sentence;
    ASSERT_TRUE(eventually([&] { return File::exists(record); }));
    EXPECT_EQ(fileLines(record),
              (std::vector<std::string>{project, "[--resume]", "[" + std::string(claudeSession) + "]",
                                        "[-p]", "[--]", "[" + text + "]"}));
    EXPECT_EQ(session().timeline.back().text, "You replied");
    EXPECT_EQ(session().timeline.back().detail, text);

    // A program that fails says so in the timeline, with its log; it has been reaped then.
    File::writeAtomically(bin + "/status", "3\n", 0600);
    EXPECT_TRUE(service->continueSession(claudeKey, "again").done);
    const std::string failed =
        "Claude Code stopped with exit status 3 while continuing the session; its output is in " +
        log + ".";
    ASSERT_TRUE(eventually([&] { return inTimeline(claudeKey, failed); }));
    EXPECT_EQ(File::read(log), "stand-in output\n");

    // What cannot be continued, and why.
    struct Row {
        const char* what;
        HookRequest hook;
        SessionKey key;
        std::string sentence;
    };
    HookRequest antigravity = request("SessionStart");
    antigravity.agent = "antigravity"; // no session needed: the answer is the same
    HookRequest codex = request("SessionStart");
    codex.agent = "codex";
    const Row rows[] = {
        {"at work", request("UserPromptSubmit", R"({"prompt":"go"})"), claudeKey,
         "Claude Code is still working on this session: wait for its turn to end, or end it "
         "first."},
        {"no program anywhere", codex, {AgentKind::codex, std::string(claudeSession)},
         "Tidewick couldn't find Codex's program \"codex\": put it on PATH or name it in the "
         "agentCommands setting."},
        {"no command-line program", antigravity, {AgentKind::antigravity, "ag"},
         "Antigravity can't be continued from Tidewick yet: reply in Antigravity."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        send(row.hook);
        EXPECT_EQ(service->continueSession(row.key, "hi"),
                  (TidewickService::Result{false, row.sentence}));
    }
}

TEST_F(AgentRunsTest, EndsASessionHereAndNoticesAgentsThatVanished) {
    File::writeAtomically(home.path() + "/t.jsonl",
                          R"({"type":"user","message":{"role":"user","content":"first"}}
{"type":"user","message":{"role":"user","content":"second"}}
)",
                          0600);
    send(request("UserPromptSubmit", R"({"prompt":"second"})"));
    ASSERT_EQ(session().agentStartTime, 7);

    EXPECT_TRUE(service->endSession(claudeKey).done);
    ASSERT_TRUE(eventually([&] { return processes.signals().size() == 2; }))
        << "still running after the grace: terminated";
    EXPECT_EQ(processes.signals(),
              (std::vector<std::pair<std::int32_t, int>>{{4200, SIGINT}, {4200, SIGTERM}}));
    // What the mark does to the session's status is checked with the store.
    Session ended = session();
    EXPECT_EQ(ended.endedByYouAt, clock.now());
    EXPECT_EQ(ended.userMessagesAtEnd, 2);
    EXPECT_EQ(ended.sentBeforeEnd, (std::vector<std::string>{"first", "second"}));
    EXPECT_FALSE(service->endSession(claudeKey).done);

    // It runs again (what that does to the mark is checked with the store). Then its process
    // vanishes without a word.
    send(request("UserPromptSubmit", R"({"prompt":"third"})"));
    HookRequest other = claudePermission();
    other.payload.set("session_id", "other");
    other.agentPid = 4300;
    processes.add(4300, {9, "/bin/claude", {"claude"}});
    auto held = handleAsync(other);
    ASSERT_TRUE(pendingCountIs(1));

    service->checkAgents();
    EXPECT_EQ(session().status, SessionStatus::working) << "its agent still runs";
    processes.remove(4200);
    processes.add(4300, {10, "/bin/claude", {"claude"}}); // the pid went to a new process
    service->checkAgents();
    // How the session ends is checked with the store.
    for (const SessionKey& key : {claudeKey, SessionKey{AgentKind::claude, "other"}})
        EXPECT_TRUE(inTimeline(key, "The agent exited")) << key.sessionId;
    EXPECT_EQ(held.wait_for(std::chrono::seconds(10)), std::future_status::ready)
        << "the hook left waiting is let go";
    EXPECT_TRUE(service->pendingRequests().empty());
}

} // namespace
} // namespace tidewick
