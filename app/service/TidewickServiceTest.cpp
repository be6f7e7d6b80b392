#include "service/TidewickService.h"

#include "foundation/File.h"
#include "service/ServiceTestSupport.h"
#include "sessions/SessionPersistence.h"
#include "wire/HookClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>

namespace tidewick {
namespace {

using namespace tidewick::testing;

const std::string claudeAllow =
    R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})";
const std::string claudeDeny =
    R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"Denied from Tidewick."}}})";
const std::string cursorAsk = R"({"permission":"ask"})";
const std::string cursorAllow = R"({"permission":"allow"})";

const SessionKey claudeKey{AgentKind::claude, std::string(claudeSession)};
const SessionKey cursorKey{AgentKind::cursor, "c-1"};

class TidewickServiceTest : public ::testing::Test {
protected:
    TidewickServiceTest() { service = make(); }

    ~TidewickServiceTest() override {
        // The service must end before the clock and the collections its handlers use.
        service.reset();
    }

    /// A service on the test's home and clock whose alerts and problems the test collects.
    std::unique_ptr<TidewickService> make(double throttleSeconds = 0) {
        TidewickService::Options options;
        options.clock = clock.clock();
        options.alertThrottleSeconds = throttleSeconds;
        options.saveDelaySeconds = 0.05;
        options.reportProblem = [this](const std::string& sentence) {
            std::lock_guard guard(mutex);
            problems.push_back(sentence);
        };
        auto made = std::make_unique<TidewickService>(paths, options);
        made->setAlertHandler([this](const Alert& alert) {
            std::lock_guard guard(mutex);
            alerts.push_back(alert);
        });
        return made;
    }

    void writeSettings(const std::string& json) {
        File::makeDirectories(paths.appSupport(), 0700);
        File::writeAtomically(paths.settingsFile(), json, 0600);
    }

    /// Runs handle() on a thread of its own, as a connection would; `gone` is its probe.
    std::future<HookResponse> handleAsync(HookRequest request,
                                          std::shared_ptr<std::atomic<bool>> gone = nullptr) {
        if (!gone)
            gone = std::make_shared<std::atomic<bool>>(false);
        return std::async(std::launch::async, [this, request = std::move(request), gone] {
            return service->handle(request, [gone] { return gone->load(); });
        });
    }

    HookResponse handleNow(const HookRequest& request) {
        return service->handle(request, [] { return false; });
    }

    bool pendingCountIs(std::size_t count) {
        return eventually([&] { return service->pendingRequests().size() == count; });
    }

    std::vector<Alert> alertsSoFar() {
        std::lock_guard guard(mutex);
        return alerts;
    }

    bool answer(const SessionKey& key, TidewickService::Answer answer,
                std::optional<std::string> message = std::nullopt) {
        return service->answerPermission(key, answer, std::move(message));
    }

    std::vector<std::string> timelineTexts(const SessionKey& key) {
        std::vector<std::string> texts;
        for (const Session& session : service->sessions())
            if (session.key == key)
                for (const TimelineItem& item : session.timeline)
                    texts.push_back(item.text);
        return texts;
    }

    SessionStatus status(const SessionKey& key) {
        for (const Session& found : service->sessions())
            if (found.key == key)
                return found.status;
        ADD_FAILURE() << "no session " << key.sessionId;
        return SessionStatus::idle;
    }

    static bool contains(const std::vector<std::string>& texts, const std::string& text) {
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    TemporaryHome home;
    TidewickPaths paths{home.path()};
    ManualClock clock;
    std::mutex mutex;
    std::vector<Alert> alerts;
    std::vector<std::string> problems;
    std::unique_ptr<TidewickService> service;
};

using Answer = TidewickService::Answer;

TEST_F(TidewickServiceTest, HoldsAPermissionRequestUntilTheUserAllowsOrDenies) {
    auto allowed = handleAsync(claudePermission());
    ASSERT_TRUE(pendingCountIs(1));
    auto [key, request] = service->pendingRequests().front();
    EXPECT_EQ(key, claudeKey);
    EXPECT_EQ(request.kind, PendingKind::permission);
    EXPECT_EQ(request.title, "Run " + std::string(recordedCommand));
    EXPECT_EQ(request.detail, std::string(recordedCommand) + "\n\nRun a command");
    EXPECT_EQ(request.createdAt, clock.now());
    EXPECT_EQ(request.deadline, addSeconds(clock.now(), 300));
    Session held = service->sessions().front();
    EXPECT_EQ(held.status, SessionStatus::needsPermission);
    EXPECT_EQ(held.hostApp, "com.apple.Terminal");
    EXPECT_EQ(held.agentPid, 4200);
    EXPECT_EQ(alertsSoFar(),
              (std::vector<Alert>{{Alert::Kind::needsPermission, claudeKey, request.title,
                                   request.detail, request.id, false, false}}));
    // A reply answers nothing here: the held request asks for permission.
    EXPECT_FALSE(service->reply(claudeKey, "go on"));
    EXPECT_FALSE(service->letStop(claudeKey));

    // The first decision wins; a second click is reported as not delivered.
    EXPECT_TRUE(answer(claudeKey, Answer::allow));
    EXPECT_FALSE(answer(claudeKey, Answer::deny, "late"));
    EXPECT_EQ(allowed.get().output, (HookOutput{claudeAllow, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
    EXPECT_EQ(status(claudeKey), SessionStatus::working);
    EXPECT_TRUE(contains(timelineTexts(claudeKey), "Allowed"));
    EXPECT_FALSE(answer(claudeKey, Answer::allow));

    auto denied = handleAsync(claudePermission());
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_TRUE(answer(claudeKey, Answer::deny));
    EXPECT_EQ(denied.get().output, (HookOutput{claudeDeny, 0}));
    auto deniedWithWhy = handleAsync(claudePermission());
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_TRUE(answer(claudeKey, Answer::deny, "Use make clean."));
    EXPECT_EQ(
        deniedWithWhy.get().output.stdoutText,
        R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"deny","message":"Use make clean."}}})");
}

TEST_F(TidewickServiceTest, AnAnswerGivenTheMomentARequestIsListedIsNotLost) {
    // The change handler answers before the connection's thread has begun to wait; an
    // alert handler that fails meanwhile is reported and changes nothing.
    writeSettings(R"({"permissionTimeoutSeconds": 5})");
    service->setAlertHandler([](const Alert&) { throw std::runtime_error("no display"); });
    std::atomic<bool> delivered = false;
    service->addChangeHandler([&](const StoreChange& change) {
        if (change.kind == StoreChange::Kind::pending && !change.pending.empty())
            delivered = answer(change.key, Answer::allow);
    });
    EXPECT_EQ(handleNow(claudePermission()).output, (HookOutput{claudeAllow, 0}));
    EXPECT_TRUE(delivered);
    std::lock_guard guard(mutex);
    EXPECT_EQ(problems, std::vector<std::string>{"Tidewick's alert handler failed: no display."});
}

TEST_F(TidewickServiceTest, HoldsTheEndOfATurnForAReplyOrLettingItStop) {
    auto replied = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(1));
    PendingRequest request = service->pendingRequests().front().second;
    EXPECT_EQ(request.kind, PendingKind::reply);
    EXPECT_EQ(request.title, "Finished the turn");
    EXPECT_EQ(request.detail, "All done.");
    EXPECT_EQ(request.deadline, addSeconds(clock.now(), 3600));
    EXPECT_EQ(status(claudeKey), SessionStatus::waitingReply);
    EXPECT_EQ(alertsSoFar(),
              (std::vector<Alert>{{Alert::Kind::waitingReply, claudeKey, request.title,
                                   request.detail, request.id, false, true}}));
    EXPECT_FALSE(answer(claudeKey, Answer::allow));

    EXPECT_TRUE(service->reply(claudeKey, "Run the tests."));
    EXPECT_EQ(
        replied.get().output.stdoutText,
        R"({"decision":"block","reason":"Message from the user, sent via Tidewick: Run the tests."})");
    EXPECT_EQ(status(claudeKey), SessionStatus::working);
    EXPECT_TRUE(contains(timelineTexts(claudeKey), "You replied"));

    auto stopped = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_TRUE(service->letStop(claudeKey));
    EXPECT_EQ(stopped.get().output, HookOutput::silent());
    EXPECT_EQ(status(claudeKey), SessionStatus::finished);
    EXPECT_FALSE(service->reply(claudeKey, "too late"));
}

TEST_F(TidewickServiceTest, UnansweredRequestsTimeOutOrAreWithdrawn) {
    writeSettings(R"({"permissionTimeoutSeconds": 0.2, "replyTimeoutSeconds": 0.2})");
    EXPECT_EQ(handleNow(cursorShell("rm -rf build")).output, (HookOutput{cursorAsk, 0}));
    EXPECT_TRUE(contains(timelineTexts(cursorKey), "No answer in Tidewick — asking in Cursor"));
    EXPECT_EQ(status(cursorKey), SessionStatus::working);

    EXPECT_EQ(handleNow(claudeStop()).output, HookOutput::silent());
    EXPECT_TRUE(contains(timelineTexts(claudeKey), "No reply — it stopped"));
    EXPECT_EQ(status(claudeKey), SessionStatus::finished);
    // The turn is over although nobody answered: the user still learns of it.
    std::vector<Alert> raised = alertsSoFar();
    ASSERT_EQ(raised.size(), 3u);
    EXPECT_EQ(raised[1].kind, Alert::Kind::waitingReply);
    EXPECT_EQ(raised[2], (Alert{Alert::Kind::finished, claudeKey, "Finished", "All done.",
                                std::nullopt, false, false}));

    // A hook command that goes away withdraws its request.
    writeSettings("{}");
    auto gone = std::make_shared<std::atomic<bool>>(false);
    auto withdrawn = handleAsync(claudePermission(), gone);
    ASSERT_TRUE(pendingCountIs(1));
    *gone = true;
    EXPECT_EQ(withdrawn.get().output, HookOutput::silent());
    EXPECT_TRUE(service->pendingRequests().empty());
    EXPECT_TRUE(contains(timelineTexts(claudeKey), "The request was withdrawn"));
    EXPECT_FALSE(answer(claudeKey, Answer::allow));
}

TEST_F(TidewickServiceTest, ReadOnlyCommandsAreAllowedAtOnceAndOthersHeld) {
    EXPECT_EQ(handleNow(cursorShell("ls -la")).output, (HookOutput{cursorAllow, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
    EXPECT_EQ(timelineTexts(cursorKey),
              (std::vector<std::string>{"Allowed (read-only): ls -la", "Run ls -la"}));
    EXPECT_EQ(status(cursorKey), SessionStatus::working);
    EXPECT_TRUE(alertsSoFar().empty());

    auto risky = handleAsync(cursorShell("rm -rf build"));
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_EQ(service->pendingRequests().front().second.title, "Run rm -rf build");
    EXPECT_TRUE(answer(cursorKey, Answer::allow));
    EXPECT_EQ(risky.get().output, (HookOutput{cursorAllow, 0}));

    // Claude Code's requests are always held, even for a read-only command.
    auto claude = handleAsync(claudePermission("ls -la"));
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_TRUE(answer(claudeKey, Answer::deny));
    EXPECT_EQ(claude.get().output, (HookOutput{claudeDeny, 0}));

    // An agent whose commands are not gated is left to ask in its own way.
    writeSettings(R"({"gating": {"gateCommands": {"cursor": false}, "safePrefixes": [],
                     "paused": false}})");
    EXPECT_EQ(handleNow(cursorShell("rm -rf build")).output, (HookOutput{cursorAsk, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
}

TEST_F(TidewickServiceTest, HoldsNothingForNoHoldRequestsWhilePausedOrUnreadable) {
    // Short time-outs, so that a request held by mistake fails the test (alerts, timeline)
    // instead of stalling it.
    writeSettings(R"({"permissionTimeoutSeconds": 1, "replyTimeoutSeconds": 1})");
    for (HookRequest request : {claudePermission(), claudeStop(), cursorShell("ls")}) {
        request.noHold = true;
        EXPECT_EQ(handleNow(request).output.stdoutText, request.agent == "cursor" ? cursorAsk : "");
    }
    EXPECT_EQ(status(claudeKey), SessionStatus::finished);
    EXPECT_TRUE(contains(timelineTexts(claudeKey), "Finished the turn"));
    EXPECT_TRUE(timelineTexts(cursorKey).empty());

    writeSettings(R"({"gating": {"gateCommands": {}, "safePrefixes": ["ls"], "paused": true},
                     "permissionTimeoutSeconds": 1, "replyTimeoutSeconds": 1})");
    EXPECT_EQ(handleNow(claudePermission()).output, HookOutput::silent());
    EXPECT_EQ(handleNow(claudeStop()).output, HookOutput::silent());
    EXPECT_EQ(handleNow(cursorShell("ls")).output, (HookOutput{cursorAsk, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
    EXPECT_TRUE(alertsSoFar().empty());

    // An unknown agent gets silence; what its adapter ignores, the adapter's fail-safe.
    HookRequest stranger = claudeStop();
    stranger.agent = "claude-code";
    stranger.payload.set("session_id", "s-2");
    EXPECT_EQ(handleNow(stranger).output, HookOutput::silent());
    HookRequest noCommand = cursorShell("ls", "c-2");
    noCommand.payload.remove("command");
    EXPECT_EQ(handleNow(noCommand).output, (HookOutput{cursorAsk, 0}));
    HookRequest unknownEvent = cursorShell("ls", "c-2");
    unknownEvent.event = "afterFileEdit";
    unknownEvent.payload.set("hook_event_name", "afterFileEdit");
    EXPECT_EQ(handleNow(unknownEvent).output, (HookOutput{"{}", 0}));
    EXPECT_EQ(service->sessions().size(), 2u);
}

TEST_F(TidewickServiceTest, ASettingsEditAppliesToTheNextRequest) {
    auto held = handleAsync(cursorShell("rm -rf build"));
    ASSERT_TRUE(pendingCountIs(1));
    const PendingRequest first = service->pendingRequests().front().second;
    EXPECT_EQ(first.deadline, addSeconds(first.createdAt, 300));

    writeSettings(R"({"permissionTimeoutSeconds": 0.1, "someday": [1, 2]})");
    EXPECT_EQ(handleNow(cursorShell("rm -rf dist", "c-2")).output, (HookOutput{cursorAsk, 0}));
    // The request already held keeps the time-out it started with.
    ASSERT_EQ(service->pendingRequests().size(), 1u);
    EXPECT_EQ(service->pendingRequests().front().second.id, first.id);

    TidewickSettings changed = service->settings();
    changed.permissionTimeoutSeconds = 120;
    service->saveSettings(changed);
    EXPECT_TRUE(JSONValue::parse(File::read(paths.settingsFile())).get("someday"));
    EXPECT_EQ(service->settings().permissionTimeoutSeconds, 120);
    EXPECT_TRUE(answer(cursorKey, Answer::deny));
    EXPECT_EQ(
        held.get().output.stdoutText,
        R"({"permission":"deny","user_message":"Denied in Tidewick.","agent_message":"The user denied this command in Tidewick. Do not retry it; ask how to proceed."})");

    // A broken file is reported once, gives the defaults and stays as the user left it.
    writeSettings("{\"quietMode\": true,");
    EXPECT_EQ(service->settings(), TidewickSettings());
    (void)handleNow(cursorShell("ls"));
    std::lock_guard guard(mutex);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find(paths.settingsFile()), std::string::npos);
    EXPECT_EQ(File::read(paths.settingsFile()), "{\"quietMode\": true,");
}

TEST_F(TidewickServiceTest, ABurstInOneSessionRaisesOneAlert) {
    service = make(3.0);
    std::vector<std::future<HookResponse>> held;
    for (int i = 0; i < 3; ++i)
        held.push_back(handleAsync(cursorShell("rm -rf build" + std::to_string(i))));
    ASSERT_TRUE(pendingCountIs(3));
    EXPECT_EQ(alertsSoFar().size(), 1u);
    clock.advance(3.0);
    held.push_back(handleAsync(cursorShell("rm -rf again")));
    ASSERT_TRUE(pendingCountIs(4));
    EXPECT_EQ(alertsSoFar().size(), 2u);
    // Ending the service answers whatever is still held with the time-out.
    service.reset();
    for (auto& response : held)
        EXPECT_EQ(response.get().output, (HookOutput{cursorAsk, 0}));
}

TEST_F(TidewickServiceTest, LogsEveryEventToTheActivityLogAndSavesSoonAfter) {
    (void)handleNow(claudeRequest("UserPromptSubmit", R"({"prompt":"Fix the build"})"));
    (void)handleNow(cursorShell("ls -la"));
    std::vector<std::string> lines;
    ASSERT_TRUE(eventually([&] {
        lines.clear();
        std::string text =
            File::exists(paths.activityFile()) ? File::read(paths.activityFile()) : std::string();
        for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
             start = end + 1)
            lines.push_back(text.substr(start, end - start));
        return lines.size() == 3;
    }));
    EXPECT_EQ(
        lines[0],
        R"({"time":1800000000,"agent":"claude","session":"d4e23369-98ea-4e04-8cd7-5fb639c89c36","kind":"userPrompt","title":"You","detail":"Fix the build"})");
    EXPECT_EQ(
        lines[1],
        R"({"time":1800000000,"agent":"cursor","session":"c-1","kind":"notification","title":"Allowed (read-only): ls -la"})");
    EXPECT_EQ(*JSONValue::parse(lines[2]).get("kind")->stringValue(), "toolStarted");

    // The debounced save writes the sessions without waiting for stop().
    ASSERT_TRUE(
        eventually([&] { return SessionPersistence(paths.sessionsFile()).load().size() == 2; }));
}

TEST_F(TidewickServiceTest, AnActivityLogThatCannotBeWrittenIsReportedOnce) {
    File::makeDirectories(paths.activityFile(), 0700);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(handleNow(cursorShell("ls -la")).output, (HookOutput{cursorAllow, 0}));
    service.reset(); // Runs what is queued.
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_TRUE(problems[0].starts_with("Tidewick couldn't write its activity log: open("));
}

TEST_F(TidewickServiceTest, StoppingAnswersHeldRequestsWithTheTimeOutAndSaves) {
    service->start();
    EXPECT_TRUE(service->isRunning());
    EXPECT_TRUE(File::exists(paths.socketPath()));
    auto claude = handleAsync(claudePermission());
    auto cursor = handleAsync(cursorShell("rm -rf build"));
    auto stop = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(3));

    service->stop();
    EXPECT_FALSE(service->isRunning());
    EXPECT_EQ(claude.get().output, HookOutput::silent());
    EXPECT_EQ(cursor.get().output, (HookOutput{cursorAsk, 0}));
    EXPECT_EQ(stop.get().output, HookOutput::silent());
    EXPECT_FALSE(File::exists(paths.socketPath()));
    std::vector<Session> saved = SessionPersistence(paths.sessionsFile()).load();
    EXPECT_EQ(saved, service->sessions());
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_TRUE(saved[0].pending.empty() && saved[1].pending.empty());
    EXPECT_TRUE(contains(timelineTexts(cursorKey), "No answer in Tidewick — asking in Cursor"));

    // Stopped: nothing is held any more, and stopping again changes nothing.
    EXPECT_EQ(handleNow(cursorShell("rm -rf dist")).output, (HookOutput{cursorAsk, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
    service->stop();
}

TEST_F(TidewickServiceTest, RunsOnceAtATimeAndKeepsSessionsAcrossARestart) {
    service->start();
    EXPECT_GE(service->secret().size(), 32u);
    (void)handleNow(cursorShell("ls -la"));
    auto second = make();
    try {
        second->start();
        FAIL() << "the second instance started";
    } catch (const TidewickService::AlreadyRunning& error) {
        EXPECT_STREQ(error.what(), "Tidewick is already running. Quit it before starting another.");
    }
    EXPECT_FALSE(second->isRunning());
    // The first one still answers on its socket.
    HookRequest prompt = claudeRequest("UserPromptSubmit", R"({"prompt":"hi"})");
    EXPECT_EQ(HookClient::send(prompt, paths.socketPath(), service->secret(), 1, 5).output,
              HookOutput::silent());
    const std::vector<Session> before = service->sessions();
    ASSERT_EQ(before.size(), 2u);

    service->stop();
    second->start();
    EXPECT_EQ(second->sessions(), before);
    second->stop();
    // The first one may start again once the other has stopped.
    service->start();
    EXPECT_EQ(service->sessions(), before);
}

TEST_F(TidewickServiceTest, AnswersHookCommandsThroughTheSocket) {
    service->start();
    auto held = std::async(std::launch::async, [&] {
        return HookClient::send(claudeStop(), paths.socketPath(), service->secret(), 1, 30);
    });
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_TRUE(service->reply(claudeKey, R"(say "hi")"));
    EXPECT_EQ(
        held.get().output.stdoutText,
        R"({"decision":"block","reason":"Message from the user, sent via Tidewick: say \"hi\""})");

    // A hook command that gives up while its request is held withdraws it.
    auto abandoned = std::async(std::launch::async, [&] {
        return HookClient::attempt(cursorShell("rm -rf build"), paths.socketPath(),
                                   service->secret(), 1, 2);
    });
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_FALSE(abandoned.get().response);
    ASSERT_TRUE(eventually([&] { return service->pendingRequests().empty(); }));
    EXPECT_TRUE(contains(timelineTexts(cursorKey), "The request was withdrawn"));

    // A wrong secret gets no answer at all and changes nothing.
    EXPECT_THROW(
        (void)HookClient::send(claudeStop(), paths.socketPath(), std::string(64, 'a'), 1, 2),
        HookClient::Failure);
    EXPECT_TRUE(service->pendingRequests().empty());
}

} // namespace
} // namespace tidewick
