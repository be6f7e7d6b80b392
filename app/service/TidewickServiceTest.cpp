#include "service/TidewickService.h"

#include "foundation/File.h"
#include "foundation/ProcessIdentity.h"
#include "service/ServiceTestSupport.h"
#include "sessions/SessionPersistence.h"
#include "testing/ManualScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <mutex>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using Answer = TidewickService::Answer;

const std::string claudeAllow =
    R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow"}}})";
const HookOutput cursorAsk{R"({"permission":"ask"})", 0};
const HookOutput cursorAllow{R"({"permission":"allow"})", 0};

const SessionKey cursorKey{AgentKind::cursor, "c-1"};

class TidewickServiceTest : public ServiceFixture {
protected:
    TidewickServiceTest() { service = make(); }
    // The service must end before the clock and the collections its handlers use.
    ~TidewickServiceTest() override { service.reset(); }

    /// A service on the test's home and clock whose alerts and problems the test collects.
    /// Without `soundSearchPath` no sound can play: every alert that has one asks for the
    /// bell.
    std::unique_ptr<TidewickService> make(double throttleSeconds = 0,
                                          std::optional<std::string> soundSearchPath = {}) {
        TidewickService::Options options;
        options.soundSearchPath = std::move(soundSearchPath);
        options.clock = clock.clock();
        options.alertThrottleSeconds = throttleSeconds;
        options.saveDelaySeconds = 0.05;
        options.timers = &timers;
        options.reportProblem = [this](const std::string& sentence) {
            std::lock_guard guard(mutex);
            problems.push_back(sentence);
        };
        auto made = std::make_unique<TidewickService>(paths, options);
        (void)made->watch({.alerted = [this](const Alert& alert) {
            std::lock_guard guard(mutex);
            alerts.push_back(alert);
        }});
        return made;
    }

    void writeSettings(const std::string& json) {
        File::makeDirectories(paths.appSupport(), 0700);
        File::writeAtomically(paths.settingsFile(), json, 0600);
    }

    /// The alerts raised so far, once there are at least `count`: a held request is listed
    /// just before its alert is raised.
    std::vector<Alert> alertsSoFar(std::size_t count = 0) {
        (void)eventually([&] {
            std::lock_guard guard(mutex);
            return alerts.size() >= count;
        });
        std::lock_guard guard(mutex);
        return alerts;
    }

    ManualScheduler timers;
    std::mutex mutex;
    std::vector<Alert> alerts;
    std::vector<std::string> problems;
};

TEST_F(TidewickServiceTest, HoldsRequestsUntilTheUserAnswers) {
    // What each answer sends, and that the first one wins, is checked end to end; the
    // status each held request gives its session, with the store. Here what is listed and
    // raised while a request is held.
    auto allowed = handleAsync(claudePermission());
    ASSERT_TRUE(pendingCountIs(1));
    auto [key, request] = service->pendingRequests().front();
    EXPECT_EQ(key, claudeKey);
    EXPECT_EQ(request.kind, PendingKind::permission);
    EXPECT_EQ(request.title, "Run " + std::string(recordedCommand));
    EXPECT_EQ(request.detail, std::string(recordedCommand) + "\n\nRun a command");
    EXPECT_EQ(request.deadline, addSeconds(clock.now(), 300));
    EXPECT_EQ(session(claudeKey).hostApp, "com.apple.Terminal");
    EXPECT_EQ(alertsSoFar(1),
              (std::vector<Alert>{{.kind = Alert::Kind::needsPermission,
                                   .session = claudeKey,
                                   .title = request.title,
                                   .detail = request.detail,
                                   .requestId = request.id,
                                   .canAlwaysAllow = true,
                                   .bell = true}}))
        << "always allow is offered for a shell command; no sound can play: the bell";
    // A reply answers nothing here: the held request asks for permission.
    EXPECT_FALSE(service->reply(claudeKey, "go on"));
    EXPECT_TRUE(service->answerPermission(claudeKey, Answer::allow));
    EXPECT_EQ(allowed.get().output, (HookOutput{claudeAllow, 0}));
    EXPECT_TRUE(service->pendingRequests().empty());
    // The store is told how the request ended.
    EXPECT_TRUE(inTimeline(claudeKey, "Allowed"));

    // The end of a turn is held for a reply or for letting it stop.
    auto replied = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(1));
    request = service->pendingRequests().front().second;
    EXPECT_EQ(request.deadline, addSeconds(clock.now(), 3600));
    EXPECT_EQ(alertsSoFar(2).back(), (Alert{.kind = Alert::Kind::waitingReply,
                                            .session = claudeKey,
                                            .title = "Finished the turn",
                                            .detail = "All done.",
                                            .requestId = request.id,
                                            .turnEnded = true,
                                            .bell = true}));
    // It asks for a reply: neither allowing nor denying answers it.
    EXPECT_FALSE(service->answerPermission(claudeKey, Answer::allow));
    EXPECT_FALSE(service->answerPermission(claudeKey, Answer::deny));
    EXPECT_TRUE(service->reply(claudeKey, "Run the tests."));
    EXPECT_NE(replied.get().output, HookOutput::silent());
}

TEST_F(TidewickServiceTest, AnswersBeyondYesOrNoReachTheAgentInItsOwnTerms) {
    using Kind = SessionActions::Delivery::Kind;
    const std::string allowWith = R"({"hookSpecificOutput":{"hookEventName":"PermissionRequest","decision":{"behavior":"allow",)";
    const std::string kept = R"(,"behavior":"allow","destination":"localSettings"}]}}})";

    // Always allow of a shell command sends the offered rule for Claude Code to keep. What
    // is offered for which call is checked with the offers.
    auto always = handleAsync(claudePermission("npm test -- --ci"));
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_EQ(service->allowAlways(claudeKey, std::nullopt),
              (SessionActions::Delivery{Kind::delivered, "Allow Bash(npm test:*), kept in this project's local settings"}));
    EXPECT_EQ(
        always.get().output.stdoutText,
        allowWith +
            R"("updatedPermissions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}])" +
            kept);

    // The user's own rule: for the held tool, or naming its tool; never an empty one.
    const HookRequest edit = claudeRequest("PermissionRequest", R"({"tool_name":"Edit","tool_input":{"file_path":"/p/a.c"}})");
    for (const auto& [rule, sent] : std::vector<std::pair<std::string, std::string>>{
             {"src/**", R"({"toolName":"Edit","ruleContent":"src/**"})"},
             {" Write(docs/**) ", R"({"toolName":"Write","ruleContent":"docs/**"})"}}) {
        SCOPED_TRACE(rule);
        auto held = handleAsync(edit);
        ASSERT_TRUE(pendingCountIs(1));
        EXPECT_EQ(service->allowAlways(claudeKey, std::nullopt).kind, Kind::refused);
        EXPECT_EQ(service->allowAlways(claudeKey, "  ").kind, Kind::badAnswer);
        EXPECT_EQ(service->allowAlways(claudeKey, rule).kind, Kind::delivered);
        EXPECT_EQ(held.get().output.stdoutText, allowWith + R"("updatedPermissions":[{"type":"addRules","rules":[)" + sent + "]" + kept);
    }

    // Questions are answered, never plainly allowed, and never always allowed.
    const std::string asked = R"({"questions":[{"question":"Which colour?","header":"Colour","multiSelect":false,"options":[{"label":"Red","description":"Warm"},{"label":"Blue","description":"Calm"}]},{"question":"Which features?","header":"Features","multiSelect":true,"options":[{"label":"Search","description":"s"},{"label":"Sync","description":"t"}]}]})";
    auto question = handleAsync(claudeRequest("PermissionRequest", R"({"tool_name":"AskUserQuestion","tool_input":)" + asked + "}"));
    ASSERT_TRUE(pendingCountIs(1));
    const Alert askedAlert = alertsSoFar(4).back();
    EXPECT_TRUE(askedAlert.question);
    EXPECT_FALSE(askedAlert.canAlwaysAllow);
    EXPECT_TRUE(askedAlert.choices.empty()) << "two questions do not fit a notification's buttons";
    EXPECT_FALSE(service->answerPermission(claudeKey, Answer::allow));
    EXPECT_EQ(service->allowAlways(claudeKey, std::nullopt).kind, Kind::nothingHeld);
    EXPECT_EQ(service->answerQuestions(claudeKey, {"blue"}),
              (SessionActions::Delivery{Kind::badAnswer, "Claude Code asked 2 questions: give one answer for each."}));
    EXPECT_EQ(service->answerQuestions(claudeKey, {"blue", " "}).kind, Kind::badAnswer);
    EXPECT_EQ(service->answerQuestions(claudeKey, {"blue", "sync, search"}).kind, Kind::delivered);
    EXPECT_EQ(question.get().output.stdoutText,
              allowWith + R"("updatedInput":)" + asked.substr(0, asked.size() - 1) +
                  R"(,"answers":{"Which colour?":"Blue","Which features?":"Sync, Search"}}}}})");
    EXPECT_EQ(service->answerQuestions(claudeKey, {"late", "late"}).kind, Kind::nothingHeld);

    // Cursor: the user's own prefix joins the commands Tidewick lets through, and the
    // timeline says so. The offered prefix and Codex's refusal are checked end to end.
    const std::string allowsMake =
        "Tidewick now allows commands starting with \"make\" without asking";
    auto edited = handleAsync(cursorShell("make lint"));
    ASSERT_TRUE(pendingCountIs(1));
    EXPECT_EQ(service->allowAlways(cursorKey, "Make:*"),
              (SessionActions::Delivery{Kind::delivered, allowsMake}));
    EXPECT_EQ(edited.get().output, cursorAllow);
    EXPECT_EQ(service->settings().gating.safePrefixes.back(), "make");
    EXPECT_TRUE(inTimeline(cursorKey, allowsMake));
}

TEST_F(TidewickServiceTest, AnAnswerGivenTheMomentARequestIsListedIsNotLost) {
    // The change handler answers before the connection's thread has begun to wait; an
    // alert handler that fails meanwhile is reported and changes nothing.
    writeSettings(R"({"permissionTimeoutSeconds": 5})");
    (void)service->watch({.alerted = [](const Alert&) { throw std::runtime_error("no display"); }});
    std::atomic<bool> delivered = false;
    (void)service->watch({.changed = [&](const StoreChange& change) {
        if (change.kind == StoreChange::Kind::pending && !change.pending.empty())
            delivered = service->answerPermission(change.key, Answer::allow);
    }});
    EXPECT_EQ(handleNow(claudePermission()), (HookOutput{claudeAllow, 0}));
    EXPECT_TRUE(delivered);
    std::lock_guard guard(mutex);
    EXPECT_EQ(problems, std::vector<std::string>{"Tidewick's alert handler failed: no display."});
}

TEST_F(TidewickServiceTest, AWatcherStartsFromItsSessionsAndIsNeverToldAfterUnwatching) {
    (void)handleNow(cursorShell("ls", "c-first"));
    // Changes are told on the work queue while the test unwatches from its own thread.
    std::atomic<bool> telling = false, toldAfterUnwatch = false, unwatched = false;
    std::vector<StoreChange> told;
    ApplicationView::Watch watch = service->watch({.changed = [&](const StoreChange& change) {
        telling = true;
        if (unwatched)
            toldAfterUnwatch = true;
        told.push_back(change);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        telling = false;
    }});
    ASSERT_EQ(watch.sessions.size(), 1u);
    EXPECT_EQ(watch.sessions[0].key.sessionId, "c-first");

    std::thread events([&] {
        for (int i = 0; i < 20; ++i)
            (void)handleNow(cursorShell("ls", "c-" + std::to_string(i)));
    });
    ASSERT_TRUE(eventually([&] { return telling.load(); }));
    service->unwatch(watch.id);
    unwatched = true;
    EXPECT_FALSE(telling) << "unwatch returned while the watcher was being told";
    events.join();
    EXPECT_FALSE(toldAfterUnwatch);
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.front().key.sessionId, "c-0") << "the first change after the sessions given";
}

TEST_F(TidewickServiceTest, UnansweredRequestsTimeOut) {
    auto held = handleAsync(cursorShell("rm -rf build"));
    ASSERT_TRUE(pendingCountIs(1));
    // A settings edit applies from the next request on; the one held keeps its time-out.
    writeSettings(R"({"permissionTimeoutSeconds": 0.2, "replyTimeoutSeconds": 0.2})");
    // What the timeline says of a time-out is checked with the store.
    EXPECT_EQ(handleNow(cursorShell("rm -rf dist", "c-2")), cursorAsk);
    EXPECT_EQ(handleNow(claudeStop()), HookOutput::silent());
    // The turn is over although nobody answered: the user still learns of it.
    EXPECT_EQ(alertsSoFar(4).back(), (Alert{.kind = Alert::Kind::finished,
                                            .session = claudeKey,
                                            .title = "Finished",
                                            .detail = "All done.",
                                            .requestId = std::nullopt,
                                            .bell = true}));
    ASSERT_EQ(service->pendingRequests().size(), 1u);
    EXPECT_TRUE(service->answerPermission(cursorKey, Answer::deny));
    EXPECT_NE(held.get().output, cursorAsk);

    // A broken file gives the defaults and is reported through the service's reporter.
    writeSettings("{\"quietMode\": true,");
    EXPECT_EQ(service->settings(), TidewickSettings());
    std::lock_guard guard(mutex);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find(paths.settingsFile()), std::string::npos);
}

TEST_F(TidewickServiceTest, AnswersAtOnceWhatItMustNotHold) {
    // Which verdict each command and setting gets is checked with the policy, a hook that
    // must not hold end to end, a read-only command with the activity log. Short time-outs,
    // so that a request held by mistake fails the test instead of stalling it.
    const std::string quick = R"("permissionTimeoutSeconds": 1, "replyTimeoutSeconds": 1})";
    const std::string usual = "{" + quick;
    const std::string paused =
        R"({"gating": {"gateCommands": {}, "safePrefixes": ["ls"], "paused": true}, )" + quick;
    HookRequest stranger = claudeStop();
    stranger.agent = "claude-code";
    HookRequest noCommand = cursorShell("ls", "c-2");
    noCommand.payload.remove("command");
    const HookOutput silent = HookOutput::silent();
    struct Row {
        std::string name, settings;
        HookRequest request;
        HookOutput expected;
    };
    for (const Row& row :
         std::vector<Row>{{"paused permission", paused, claudePermission(), silent},
                          {"paused end of turn", paused, claudeStop(), silent},
                          {"paused command", paused, cursorShell("rm -rf build"), cursorAsk},
                          {"unknown agent", usual, stranger, silent},
                          {"payload without a command", usual, noCommand, cursorAsk}}) {
        writeSettings(row.settings);
        EXPECT_EQ(handleNow(row.request), row.expected) << row.name;
    }
    EXPECT_TRUE(service->pendingRequests().empty() && alertsSoFar().empty());

    // Nothing to hold in an error either, but the user hears of it.
    EXPECT_EQ(handleNow(cursorError("c-3")), (HookOutput{"{}", 0}));
    EXPECT_EQ(alertsSoFar(1), (std::vector<Alert>{{.kind = Alert::Kind::error,
                                                   .session = {AgentKind::cursor, "c-3"},
                                                   .title = "The agent hit an error",
                                                   .detail = std::nullopt,
                                                   .requestId = std::nullopt,
                                                   .informational = true,
                                                   .bell = true}}));
    EXPECT_TRUE(inTimeline(claudeKey, "Finished the turn")) << "what passes is still recorded";
    EXPECT_EQ(service->sessions().size(), 3u);
}

TEST_F(TidewickServiceTest, LogsEveryEventToTheActivityLogAndSavesSoonAfter) {
    (void)handleNow(claudeRequest("UserPromptSubmit", R"({"prompt":"Fix the build"})"));
    EXPECT_EQ(handleNow(cursorShell("ls -la")), cursorAllow);
    std::vector<std::string> lines;
    // The prompt, the read-only note and the tool it let through, each as the log writes it.
    ASSERT_TRUE(eventually([&] { return (lines = fileLines(paths.activityFile())).size() == 3; }));
    EXPECT_EQ(
        lines[1],
        R"({"time":1800000000,"agent":"cursor","session":"c-1","kind":"notification","title":"Allowed (read-only): ls -la"})");
    // The debounced save writes the sessions without waiting for stop().
    ASSERT_TRUE(
        eventually([&] { return SessionPersistence(paths.sessionsFile()).load().size() == 2; }));

    // A log that cannot be written is reported once, however many events follow.
    std::filesystem::remove(paths.activityFile());
    File::makeDirectories(paths.activityFile(), 0700);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(handleNow(cursorShell("ls -la")), cursorAllow);
    service.reset(); // Runs what is queued.
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_TRUE(problems[0].starts_with("Tidewick couldn't write its activity log: open("));
}

TEST_F(TidewickServiceTest, AnUnreadableSessionsFileIsKeptAndCrashLeftoversAreRemovedAtStart) {
    // Which files do not load, and the name each is kept under, are checked with the
    // sessions file; here that the service keeps it aside once, and says so once.
    const std::string unreadable = R"([{"status":)";
    paths.ensureDirectories();
    File::writeAtomically(paths.sessionsFile(), unreadable, 0644);
    const std::string keptPath = paths.sessionsFile() + ".unreadable-2027-01-15T08-00-00Z";

    // Temporaries of a writer that is gone (this process id with another start time stands
    // for a writer whose id was reused) in each folder Tidewick writes to; which temporaries
    // stay is checked with the files.
    const ProcessIdentity self = ProcessIdentity::current();
    const ProcessIdentity gone{self.pid, self.startTime + 1};
    auto temporary = [&](const std::string& file) {
        const std::string path = file + ".tmp-" + std::to_string(gone.pid) + "-" +
                                 std::to_string(gone.startTime) + "-0123abcd";
        File::makeDirectories(File::parent(path), 0700);
        File::writeAtomically(path, std::string(4096, 'x'), 0600);
        return path;
    };
    const std::vector<std::string> stale = {
        temporary(paths.sessionsFile()), temporary(paths.helperPath()),
        temporary(paths.backupsDirectory() + "/claude/2026-01-01T00-00-00Z-settings.json"),
        temporary(paths.home() + "/.claude/settings.json")};

    service->start();
    for (const std::string& path : stale)
        EXPECT_FALSE(File::exists(path)) << path;
    EXPECT_TRUE(service->sessions().empty());
    EXPECT_EQ(File::read(paths.sessionsFile()), unreadable) << "left alone until a save";

    // The first save keeps it aside, says so once, and later saves do not again.
    (void)handleNow(claudeRequest("UserPromptSubmit", R"({"prompt":"one"})"));
    ASSERT_TRUE(
        eventually([&] { return SessionPersistence(paths.sessionsFile()).load().size() == 1; }));
    (void)handleNow(claudeRequest("UserPromptSubmit", R"({"prompt":"two"})"));
    service->stop();
    EXPECT_EQ(File::read(keptPath), unreadable);
    const std::string sentence =
        "Tidewick couldn't read its sessions file, so it started without those sessions and "
        "kept the file as " +
        keptPath + ".";
    EXPECT_EQ(problems, std::vector<std::string>{sentence});
    const std::vector<std::string> lines = fileLines(paths.activityFile());
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [&](const std::string& line) {
                                return line == R"({"time":1800000000,"notice":")" + sentence + R"("})";
                            }),
              1);
    std::vector<std::string> keptFiles = File::listFolder(paths.appSupport());
    std::erase_if(keptFiles, [](const std::string& name) { return name.find(".unreadable-") == std::string::npos; });
    EXPECT_EQ(keptFiles.size(), 1u);
}

TEST_F(TidewickServiceTest, ABurstRaisesOneAlertAndWhatItHeldBackIsAnnouncedWhenItsWindowEnds) {
    // The window is measured on the test's clock, which stands still: the service's timer
    // for the window's end, in real time, is what announces what was held back.
    service = make(0.2);
    writeSettings(R"({"permissionTimeoutSeconds": 0.05})");
    // Requests that end within the window need no announcement of their own.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(handleNow(cursorShell("rm -rf build" + std::to_string(i))), cursorAsk);
    writeSettings("{}");
    auto cursor = handleAsync(cursorShell("rm -rf again"));
    // A permission request and, right after it, the same session's end of turn.
    auto permission = handleAsync(claudePermission());
    ASSERT_TRUE(pendingCountIs(2));
    auto stop = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(3));

    const std::vector<Alert> raised = alertsSoFar(4);
    ASSERT_EQ(raised.size(), 4u);
    auto announced = [&](const SessionKey& key, Alert::Kind kind) {
        return std::count_if(raised.begin(), raised.end(), [&](const Alert& alert) {
            return alert.session == key && alert.kind == kind && alert.alsoHeld == 0;
        });
    };
    EXPECT_EQ(announced(cursorKey, Alert::Kind::needsPermission), 2);
    EXPECT_EQ(announced(claudeKey, Alert::Kind::needsPermission), 1);
    EXPECT_EQ(announced(claudeKey, Alert::Kind::waitingReply), 1);
    EXPECT_TRUE(service->answerPermission(cursorKey, SessionActions::Answer::allow));
    EXPECT_TRUE(service->answerPermission(claudeKey, SessionActions::Answer::allow));
    EXPECT_TRUE(service->letStop(claudeKey));
    (void)cursor.get(), (void)permission.get(), (void)stop.get();
}

TEST_F(TidewickServiceTest, TheApplicationSoundsEachAlertOnceOrAsksForTheBell) {
    // A stand-in player that notes what it plays.
    const std::string players = File::join(home.path(), "players");
    const std::string played = File::join(home.path(), "played");
    File::makeDirectories(players, 0700);
    File::writeAtomically(File::join(players, "paplay"),
                          "#!/bin/sh\necho \"$*\" >> '" + played + "'\n", 0700);
    service = make(0, players);
    // A silent one first: whatever it wrongly played would show among the lines below.
    // With a player at hand no alert asks for the bell, sounded or not. Which sound each
    // setting gives, quiet mode among them, is checked with the settings.
    const std::vector<std::string> settings = {R"({"alertSounds": {"error": "none"}})", "{}",
                                               R"({"alertSounds": {"error": "chime"}})"};
    for (std::size_t i = 0; i < settings.size(); ++i) {
        SCOPED_TRACE(settings[i]);
        writeSettings(settings[i]);
        (void)handleNow(cursorError("c-" + std::to_string(i)));
        const std::vector<Alert> raised = alertsSoFar(i + 1);
        ASSERT_EQ(raised.size(), i + 1);
        EXPECT_FALSE(raised.back().bell);
    }
    const std::string sounds = paths.soundsDirectory();
    EXPECT_TRUE(eventually(
        [&] { return File::exists(played) && std::ranges::count(File::read(played), '\n') >= 2; }));
    EXPECT_EQ(File::read(played), sounds + "/buzz.wav\n" + sounds + "/chime.wav\n");
}

TEST_F(TidewickServiceTest, RunsOnceAtATimeAndStoppingAnswersWhatIsHeldAndSaves) {
    // The programs check the sentence, the sockets and Claude Code's permission request
    // end to end; here what the other agents are answered, and a second service that takes
    // over what the first saved.
    service->start();
    auto second = make();
    EXPECT_THROW(second->start(), TidewickService::AlreadyRunning);
    EXPECT_FALSE(second->isRunning());
    auto cursor = handleAsync(cursorShell("rm -rf build"));
    auto stop = handleAsync(claudeStop());
    ASSERT_TRUE(pendingCountIs(2));
    service->stop();
    EXPECT_FALSE(service->isRunning());
    EXPECT_EQ(stop.get().output, HookOutput::silent());
    EXPECT_EQ(cursor.get().output, cursorAsk);
    const std::vector<Session> before = service->sessions();
    ASSERT_EQ(before.size(), 2u);
    EXPECT_TRUE(before[0].pending.empty() && before[1].pending.empty());

    second->start();
    EXPECT_EQ(second->sessions(), before);
    second->stop();
    // The first one may start again once the other has stopped.
    service->start();

    // Stopped: nothing is held any more, and stopping again changes nothing.
    service->stop();
    EXPECT_EQ(handleNow(cursorShell("rm -rf dist")), cursorAsk);
    EXPECT_TRUE(service->pendingRequests().empty());
    service->stop();
}

TEST_F(TidewickServiceTest, APauseLetsRequestsPassUntilItEndsEvenAcrossARestart) {
    // A request held by mistake fails the test within seconds rather than minutes.
    writeSettings(R"({"permissionTimeoutSeconds": 20})");
    service->start();
    auto cursorHeldAgain = [&] {
        auto held = handleAsync(cursorShell("rm -rf build"));
        const bool listed = pendingCountIs(1);
        EXPECT_TRUE(service->answerPermission(cursorKey, Answer::allow));
        return listed && held.get().output == cursorAllow;
    };
    // What was held before a pause stays held: checked end to end.
    EXPECT_TRUE(service->pause(addSeconds(clock.now(), 1800)).isDone());
    EXPECT_EQ(handleNow(cursorShell("rm -rf build")), cursorAsk);
    // The timer ends it at its time on the work queue...
    clock.advance(1800);
    timers.advance(1800);
    EXPECT_TRUE(eventually([&] { return !service->settings().gating.paused; }));
    EXPECT_TRUE(cursorHeldAgain());

    // ...and so does the first request after it, or a start after the time has passed.
    EXPECT_TRUE(service->pause(addSeconds(clock.now(), 60)).isDone());
    clock.advance(61);
    EXPECT_TRUE(cursorHeldAgain());
    EXPECT_TRUE(service->pause(addSeconds(clock.now(), 60)).isDone());
    service.reset();
    clock.advance(61);
    service = make();
    service->start();
    EXPECT_FALSE(service->settings().gating.paused);
    EXPECT_TRUE(service->resume().isDone());
}

TEST_F(TidewickServiceTest, AQuietWorkingSessionMayBeForgottenAndForgettingSavesAtOnce) {
    // What forgetting keeps and erases is checked end to end; only here can time pass.
    service->start();
    (void)handleNow(cursorShell("ls"));
    (void)handleNow(cursorShell("ls", "c-2"));
    const ControlResult working = service->forget(cursorKey);
    EXPECT_FALSE(working.isDone());
    EXPECT_NE(working.sentence.find("is working"), std::string::npos);
    // Quiet for long enough, a working session's agent is likely gone.
    clock.advance(TidewickService::forgetWorkingAfterMinutes * 60 - 1);
    EXPECT_FALSE(service->forget(cursorKey).isDone());
    clock.advance(1);
    EXPECT_EQ(service->forget(cursorKey), ControlResult::done("Forgot Cursor session c-1."));
    EXPECT_EQ(service->forget(cursorKey).outcome, ControlResult::Outcome::refused);
    EXPECT_EQ(SessionPersistence(paths.sessionsFile()).load().size(), 1u);
}

} // namespace
} // namespace tidewick
