#include "sessions/SessionStore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

using namespace tidewick;

namespace {

// A clock moved by hand, starting at a fixed date with a fraction of a second.
struct ManualClock {
    Date current = dateFromSeconds(1763700000.25);
    Clock clock() {
        return [this] { return current; };
    }
    void advance(double seconds) { current = addSeconds(current, seconds); }
};

const SessionKey key{AgentKind::claude, "s1"};

AgentEvent event(EventKind kind, std::optional<std::string> title = {},
                 std::optional<std::string> detail = {}) {
    AgentEvent e;
    e.agent = key.agent;
    e.sessionId = key.sessionId;
    e.kind = kind;
    e.title = std::move(title);
    e.detail = std::move(detail);
    e.hookEvent = "Test";
    return e;
}

PendingRequest request(PendingKind kind, Date at, std::string title = "Run npm test") {
    return PendingRequest{UUID::random(), kind, std::move(title),
                          "npm test",     at,   addSeconds(at, 300)};
}

struct Recorder {
    std::vector<StoreChange> changes;
    void attach(SessionStore& store) {
        store.setOnChange([this](const StoreChange& change) { changes.push_back(change); });
    }
};

} // namespace

TEST(SessionStoreTest, StatusMachineRowByRowWithNothingPending) {
    struct Row {
        EventKind kind;
        SessionStatus before;
        SessionStatus after;
        std::optional<std::string> timelineText;
    };
    const std::vector<Row> rows = {
        {EventKind::sessionStarted, SessionStatus::finished, SessionStatus::idle,
         "Session started"},
        {EventKind::working, SessionStatus::idle, SessionStatus::working, std::nullopt},
        {EventKind::toolStarted, SessionStatus::idle, SessionStatus::working, "Bash"},
        {EventKind::toolFinished, SessionStatus::idle, SessionStatus::working, "Tool finished"},
        {EventKind::permissionRequested, SessionStatus::finished, SessionStatus::finished,
         std::nullopt},
        {EventKind::turnFinished, SessionStatus::working, SessionStatus::finished,
         "Finished the turn"},
        {EventKind::notification, SessionStatus::finished, SessionStatus::finished, "Notification"},
        {EventKind::message, SessionStatus::idle, SessionStatus::working, "Message"},
        {EventKind::compaction, SessionStatus::finished, SessionStatus::finished,
         "Context compacted"},
        {EventKind::interrupted, SessionStatus::working, SessionStatus::idle, "Interrupted"},
        {EventKind::error, SessionStatus::working, SessionStatus::error, "Error"},
        {EventKind::sessionEnded, SessionStatus::working, SessionStatus::ended, "Session ended"},
        {EventKind::userPrompt, SessionStatus::finished, SessionStatus::working, std::nullopt},
    };
    for (const Row& row : rows) {
        ManualClock clock;
        SessionStore store(clock.clock());
        // Bring the session into the row's starting state with events the table already covers.
        const std::map<SessionStatus, EventKind> reach = {
            {SessionStatus::idle, EventKind::sessionStarted},
            {SessionStatus::working, EventKind::working},
            {SessionStatus::finished, EventKind::turnFinished}};
        store.apply(event(reach.at(row.before)));
        ASSERT_EQ(store.session(key)->status, row.before);
        const std::size_t itemsBefore = store.session(key)->timeline.size();
        AgentEvent e = event(row.kind);
        e.toolName = "Bash";
        Session after = store.apply(e);
        EXPECT_EQ(after.status, row.after) << rawValue(row.kind);
        EXPECT_EQ(store.session(key), after) << "apply returns the stored value";
        if (row.timelineText) {
            ASSERT_EQ(after.timeline.size(), itemsBefore + 1) << rawValue(row.kind);
            EXPECT_EQ(after.timeline.back().text, *row.timelineText) << rawValue(row.kind);
        } else {
            EXPECT_EQ(after.timeline.size(), itemsBefore) << rawValue(row.kind);
        }
    }
}

TEST(SessionStoreTest, ActivityWhilePendingKeepsTheStatusButInterruptEndAndErrorDoNot) {
    ManualClock clock;
    for (EventKind kind : {EventKind::sessionStarted, EventKind::working, EventKind::toolStarted,
                           EventKind::toolFinished, EventKind::turnFinished, EventKind::message,
                           EventKind::userPrompt, EventKind::notification, EventKind::compaction,
                           EventKind::permissionRequested}) {
        SessionStore store(clock.clock());
        store.apply(event(EventKind::working));
        store.addPending(request(PendingKind::permission, clock.current), key);
        Session after = store.apply(event(kind, "title"));
        EXPECT_EQ(after.status, SessionStatus::needsPermission) << rawValue(kind);
        EXPECT_EQ(after.pending.size(), 1u) << rawValue(kind);
    }

    SessionStore store(clock.clock());
    store.apply(event(EventKind::working));
    store.addPending(request(PendingKind::permission, clock.current), key);
    Session afterError = store.apply(event(EventKind::error, std::nullopt, "API overloaded"));
    EXPECT_EQ(afterError.status, SessionStatus::error);
    EXPECT_EQ(afterError.pending.size(), 1u) << "an error does not drop held requests";
    EXPECT_EQ(afterError.timeline.back().text, "API overloaded");

    for (EventKind kind : {EventKind::interrupted, EventKind::sessionEnded}) {
        SessionStore s(clock.clock());
        Recorder recorder;
        recorder.attach(s);
        s.apply(event(EventKind::toolStarted, "Run tests"));
        s.addPending(request(PendingKind::permission, clock.current), key);
        s.addPending(request(PendingKind::reply, clock.current), key);
        recorder.changes.clear();
        Session after = s.apply(event(kind));
        EXPECT_TRUE(after.pending.empty()) << rawValue(kind);
        EXPECT_FALSE(after.currentAction) << rawValue(kind);
        EXPECT_EQ(after.status,
                  kind == EventKind::interrupted ? SessionStatus::idle : SessionStatus::ended);
        ASSERT_EQ(recorder.changes.size(), 2u);
        EXPECT_EQ(recorder.changes[1].kind, StoreChange::Kind::pending);
        EXPECT_TRUE(recorder.changes[1].pending.empty());
        EXPECT_TRUE(s.pendingRequests().empty());
    }
}

TEST(SessionStoreTest, PendingRequestsDriveTheStatusAndEndWithTheChosenReadings) {
    ManualClock clock;
    SessionStore store(clock.clock());
    Recorder recorder;
    recorder.attach(store);
    store.apply(event(EventKind::turnFinished));

    EXPECT_EQ(SessionStore::status({}), SessionStatus::waitingReply);
    PendingRequest reply = request(PendingKind::reply, clock.current, "Finished");
    store.addPending(reply, key);
    EXPECT_EQ(store.session(key)->status, SessionStatus::waitingReply);
    clock.advance(1);
    PendingRequest permission = request(PendingKind::permission, clock.current);
    store.addPending(permission, key);
    EXPECT_EQ(store.session(key)->status, SessionStatus::needsPermission)
        << "permission wins over reply";
    EXPECT_EQ(recorder.changes.back().kind, StoreChange::Kind::pending);
    EXPECT_EQ(recorder.changes.back().pending.size(), 2u);

    auto listed = store.pendingRequests();
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].second.id, reply.id) << "oldest first";
    EXPECT_EQ(listed[1].first, key);

    // Allowing the permission leaves the reply pending: the status follows what remains.
    store.resolvePending(permission.id, key, SessionStore::Outcome::allowed());
    Session afterAllow = *store.session(key);
    EXPECT_EQ(afterAllow.status, SessionStatus::waitingReply);
    EXPECT_EQ(afterAllow.timeline.back().text, "Allowed");
    // An unknown id, or one already resolved, changes nothing.
    const std::size_t changesBefore = recorder.changes.size();
    store.resolvePending(permission.id, key, SessionStore::Outcome::denied());
    store.resolvePending(UUID::random(), key, SessionStore::Outcome::denied());
    store.resolvePending(reply.id, SessionKey{AgentKind::codex, "other"},
                         SessionStore::Outcome::denied());
    EXPECT_EQ(recorder.changes.size(), changesBefore);
    EXPECT_EQ(store.session(key), afterAllow);

    store.resolvePending(reply.id, key, SessionStore::Outcome::replied(std::string(3000, 'r')));
    Session afterReply = *store.session(key);
    EXPECT_EQ(afterReply.status, SessionStatus::working);
    EXPECT_EQ(afterReply.timeline.back().kind, TimelineKind::reply);
    EXPECT_EQ(afterReply.timeline.back().text, "You replied");
    EXPECT_EQ(afterReply.timeline.back().detail, std::string(2000, 'r'));

    struct Ending {
        PendingKind kind;
        SessionStore::Outcome outcome;
        SessionStatus status;
        std::string text;
    };
    const std::vector<Ending> endings = {
        {PendingKind::permission, SessionStore::Outcome::denied(), SessionStatus::working,
         "Denied"},
        {PendingKind::reply, SessionStore::Outcome::letStop(), SessionStatus::finished,
         "You let it stop"},
        {PendingKind::permission, SessionStore::Outcome::timedOut(), SessionStatus::working,
         "No answer in Tidewick — asking in Claude Code"},
        {PendingKind::reply, SessionStore::Outcome::timedOut(), SessionStatus::finished,
         "No reply — it stopped"},
        {PendingKind::permission, SessionStore::Outcome::withdrawn(), SessionStatus::working,
         "The request was withdrawn"},
        {PendingKind::reply, SessionStore::Outcome::withdrawn(), SessionStatus::finished,
         "The request was withdrawn"},
    };
    for (const Ending& ending : endings) {
        PendingRequest held = request(ending.kind, clock.current);
        store.addPending(held, key);
        store.resolvePending(held.id, key, ending.outcome);
        Session after = *store.session(key);
        EXPECT_EQ(after.status, ending.status) << ending.text;
        EXPECT_EQ(after.timeline.back().text, ending.text);
        EXPECT_TRUE(after.pending.empty());
    }

    // Adding to an unknown session does nothing.
    store.addPending(request(PendingKind::permission, clock.current),
                     SessionKey{AgentKind::cursor, "nobody"});
    EXPECT_FALSE(store.session(SessionKey{AgentKind::cursor, "nobody"}));
}

TEST(SessionStoreTest, TimelineCapAndTextCut) {
    ManualClock clock;
    SessionStore store(clock.clock());
    for (int i = 0; i < 200; ++i)
        store.apply(event(EventKind::toolStarted, "tool " + std::to_string(i)));
    Session full = *store.session(key);
    ASSERT_EQ(full.timeline.size(), 200u);
    EXPECT_EQ(full.timeline.front().text, "tool 0");

    Session after = store.apply(event(EventKind::toolStarted, "tool 200"));
    ASSERT_EQ(after.timeline.size(), 200u);
    EXPECT_EQ(after.timeline.front().text, "tool 1") << "the oldest goes first";
    EXPECT_EQ(after.timeline.back().text, "tool 200");
    EXPECT_EQ(full.timeline.front().text, "tool 0")
        << "an earlier copy is not changed behind its back";
    EXPECT_EQ(full.timeline.size(), 200u);

    // 3000 characters are kept as their first 2000, counted as the reader sees them.
    std::string flags;
    for (int i = 0; i < 3000; ++i)
        flags += "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"; // one flag, two code points
    Session withMessage = store.apply(event(EventKind::message, std::nullopt, flags));
    EXPECT_EQ(withMessage.timeline.back().text, flags.substr(0, 2000 * 8));
    EXPECT_EQ(withMessage.lastMessage, flags.substr(0, 2000 * 8));
    Session withTool =
        store.apply(event(EventKind::toolStarted, std::string(3000, 't'), std::string(2500, 'd')));
    EXPECT_EQ(withTool.timeline.back().text.size(), 2000u);
    EXPECT_EQ(withTool.timeline.back().detail->size(), 2000u);
}

TEST(SessionStoreTest, InvalidUTF8IsRepairedOnTheWayIn) {
    ManualClock clock;
    SessionStore store(clock.clock());
    // A lone continuation byte, a truncated sequence, an overlong slash and a surrogate.
    const std::string bad = "a\x80"
                            "b\xE2\x82 c\xC0\xAF d\xED\xA0\x80 e";
    const std::string good = "a\uFFFDb\uFFFD\uFFFD c\uFFFD\uFFFD d\uFFFD\uFFFD\uFFFD e";
    AgentEvent e = event(EventKind::sessionStarted, bad, bad);
    e.projectPath = bad;
    e.model = bad;
    Session s = store.apply(e);
    EXPECT_EQ(s.title, good);
    EXPECT_EQ(s.projectPath, good);
    EXPECT_EQ(s.model, good);
    EXPECT_EQ(s.timeline.back().detail, good);
    store.setHost(key, bad);
    store.addPending(PendingRequest{UUID::random(), PendingKind::permission, bad, bad,
                                    clock.current, clock.current},
                     key);
    store.markEndedByYou(key, std::vector<std::string>{bad});
    s = *store.session(key);
    EXPECT_EQ(s.hostApp, good);
    EXPECT_EQ(s.sentBeforeEnd, std::vector<std::string>{good});
    EXPECT_EQ(s.timeline[s.timeline.size() - 2].text, good) << "the permission entry";
    // Valid text, including a flag and an emoji sequence, passes unchanged.
    const std::string fine = "caf\u00e9 \U0001F1EB\U0001F1F7 \U0001F469\u200D\U0001F4BB";
    store.setTitle(key, fine);
    EXPECT_EQ(store.session(key)->title, fine);
}

TEST(SessionStoreTest, EventFieldsTimesAndTimelineKinds) {
    ManualClock clock;
    SessionStore store(clock.clock());
    AgentEvent start = event(EventKind::sessionStarted, "Fix the login bug", "startup");
    start.projectPath = "/work/app";
    start.model = "opus";
    start.transcriptPath = "/t/s1.jsonl";
    const Date startedAt = clock.current;
    store.apply(start);
    clock.advance(2.5);

    const std::vector<std::pair<std::string, TimelineKind>> tools = {
        {"Bash", TimelineKind::shell},     {"run_terminal_cmd", TimelineKind::shell},
        {"Edit", TimelineKind::edit},      {"apply_patch", TimelineKind::edit},
        {"Read", TimelineKind::read},      {"Grep", TimelineKind::read},
        {"WebSearch", TimelineKind::read}, {"Task", TimelineKind::tool}};
    for (const auto& [name, kind] : tools) {
        AgentEvent e = event(EventKind::toolStarted, "Doing " + name, "input");
        e.toolName = name;
        Session s = store.apply(e);
        EXPECT_EQ(s.timeline.back().kind, kind) << name;
        EXPECT_EQ(s.currentAction, "Doing " + name);
        EXPECT_EQ(s.timeline.back().detail, "input");
    }
    Session s = *store.session(key);
    EXPECT_EQ(s.title, "Fix the login bug");
    EXPECT_EQ(s.projectPath, "/work/app");
    EXPECT_EQ(s.model, "opus");
    EXPECT_EQ(s.transcriptPath, "/t/s1.jsonl");
    EXPECT_EQ(s.startedAt, startedAt);
    EXPECT_EQ(s.lastActivityAt, clock.current);
    EXPECT_EQ(s.timeline.back().time, clock.current);

    store.apply(event(EventKind::turnFinished, "Finished the turn", "All tests pass."));
    EXPECT_EQ(store.session(key)->lastMessage, "All tests pass.");
    EXPECT_FALSE(store.session(key)->currentAction);

    Session ended = store.apply(event(EventKind::sessionEnded));
    EXPECT_EQ(ended.endedAt, clock.current);
    clock.advance(1);
    Session resumed = store.apply(event(EventKind::sessionStarted, std::nullopt, "resume"));
    EXPECT_EQ(resumed.status, SessionStatus::idle);
    EXPECT_FALSE(resumed.endedAt) << "a resumed session is no longer ended";
    EXPECT_EQ(resumed.title, "Fix the login bug") << "a start without a title keeps the old one";

    Session interrupted = store.apply(event(EventKind::interrupted));
    EXPECT_EQ(interrupted.interruptedAt, clock.current);
    EXPECT_FALSE(store.apply(event(EventKind::userPrompt)).interruptedAt);

    // A session that names itself nowhere is titled by the first line of its first prompt.
    AgentEvent prompt =
        event(EventKind::userPrompt, "You", "  Fix the flaky login test\nand run it");
    prompt.sessionId = "untitled";
    EXPECT_EQ(store.apply(prompt).title, "Fix the flaky login test");
    prompt.detail = "Something else entirely";
    EXPECT_EQ(store.apply(prompt).title, "Fix the flaky login test");
}

TEST(SessionStoreTest, SettersSnapshotPruneRemoveAndRestore) {
    ManualClock clock;
    SessionStore store(clock.clock());
    Recorder recorder;
    recorder.attach(store);
    const SessionKey older{AgentKind::codex, "old"};
    const SessionKey waiting{AgentKind::cursor, "waiting"};

    AgentEvent e = event(EventKind::working);
    e.agent = older.agent;
    e.sessionId = older.sessionId;
    store.apply(e);
    clock.advance(10);
    store.apply(event(EventKind::working));
    clock.advance(10);
    e.agent = waiting.agent;
    e.sessionId = waiting.sessionId;
    store.apply(e);
    clock.advance(10);
    e.agent = older.agent;
    e.sessionId = "newest";
    store.apply(e);

    // Needs-you first even though least recent among the rest, then by recent activity.
    store.addPending(request(PendingKind::reply, clock.current), older);
    std::vector<Session> list = store.snapshot();
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0].key, older);
    EXPECT_EQ(list[1].key.sessionId, "newest");
    EXPECT_EQ(list[2].key, waiting);
    EXPECT_EQ(list[3].key, key);

    // Setters change one field, report only real changes, and are not activity.
    recorder.changes.clear();
    const Date activity = store.session(key)->lastActivityAt;
    store.setTitle(key, "Title");
    store.setTitle(key, "Title");
    store.setTranscriptStep(key, 42);
    store.setHost(key, "iTerm");
    store.setAgentPid(key, 4242);
    store.setMessagesAtEnd(key, 7);
    store.setTitle(SessionKey{AgentKind::claude, "nobody"}, "x");
    EXPECT_EQ(recorder.changes.size(), 5u);
    Session set = *store.session(key);
    EXPECT_EQ(set.title, "Title");
    EXPECT_EQ(set.transcriptStep, 42);
    EXPECT_EQ(set.hostApp, "iTerm");
    EXPECT_EQ(set.agentPid, 4242);
    EXPECT_EQ(set.userMessagesAtEnd, 7);
    EXPECT_EQ(set.lastActivityAt, activity);

    store.setWaitingInApp(key);
    EXPECT_EQ(store.session(key)->status, SessionStatus::waitingReply);
    store.logReply(key, "carry on");
    EXPECT_EQ(store.session(key)->timeline.back().detail, "carry on");
    store.markEndedByYou(key, std::vector<std::string>{"stop please"});
    Session endedHere = *store.session(key);
    EXPECT_EQ(endedHere.status, SessionStatus::ended);
    EXPECT_EQ(endedHere.endedByYouAt, clock.current);
    EXPECT_EQ(endedHere.sentBeforeEnd, std::vector<std::string>{"stop please"});
    store.setWaitingInApp(key);
    EXPECT_EQ(store.session(key)->status, SessionStatus::ended) << "an ended session does not wait";
    store.clearEndedByYou(key);
    EXPECT_FALSE(store.session(key)->endedByYouAt);
    EXPECT_FALSE(store.session(key)->userMessagesAtEnd);
    EXPECT_FALSE(store.session(key)->sentBeforeEnd);

    // Prune: older than the limit and nothing pending. Activity was at 0 (held), 20
    // (waiting) and 30 (the others, key through its logged reply); the cut-off falls at 25.
    clock.advance(SessionStore::defaultPruneAge - 5);
    recorder.changes.clear();
    EXPECT_EQ(store.prune(), 1u) << "only the stale, unheld session goes";
    EXPECT_FALSE(store.session(waiting));
    EXPECT_TRUE(store.session(older)) << "held requests keep a session";
    ASSERT_EQ(recorder.changes.size(), 1u);
    EXPECT_EQ(recorder.changes[0].kind, StoreChange::Kind::removed);
    EXPECT_EQ(recorder.changes[0].key, waiting);

    store.remove(older);
    EXPECT_FALSE(store.session(older));
    EXPECT_TRUE(store.pendingRequests().empty());
    store.remove(older);

    // Restore: live sessions win, held requests are dropped, needs-you becomes idle.
    Session restoredLive = *store.session(key);
    restoredLive.title = "From disk";
    Session restoredHeld;
    restoredHeld.key = SessionKey{AgentKind::antigravity, "held"};
    restoredHeld.status = SessionStatus::needsPermission;
    restoredHeld.pending.push_back(request(PendingKind::permission, clock.current));
    std::vector<TimelineItem> items;
    for (int i = 0; i < 250; ++i)
        items.push_back(
            TimelineItem{UUID::random(), clock.current, TimelineKind::tool, std::to_string(i), {}});
    restoredHeld.timeline = Timeline(items);
    store.restore({restoredLive, restoredHeld});
    EXPECT_EQ(store.session(key)->title, "Title");
    Session held = *store.session(restoredHeld.key);
    EXPECT_TRUE(held.pending.empty());
    EXPECT_EQ(held.status, SessionStatus::idle);
    EXPECT_EQ(held.timeline.size(), 200u);
    EXPECT_EQ(held.timeline.front().text, "50");

    store.removeAll();
    EXPECT_EQ(store.count(), 0u);
}

TEST(SessionStoreTest, HandlerMayCallBackAndManyThreadsApplyAtOnce) {
    SessionStore store;
    std::atomic<int> notices = 0;
    // The handler runs outside the store's lock, so reading the store from it cannot deadlock.
    store.setOnChange([&](const StoreChange& change) {
        if (change.kind == StoreChange::Kind::session) {
            EXPECT_TRUE(store.session(change.key));
        }
        ++notices;
    });
    constexpr int threads = 4;
    constexpr int eventsPerThread = 300;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < eventsPerThread; ++i) {
                AgentEvent e = event(EventKind::toolStarted, "step " + std::to_string(i));
                e.sessionId = "s" + std::to_string(i % 3);
                e.agent = allAgentKinds[t];
                Session s = store.apply(e);
                // Keep a copy alive across the next apply so shared timelines are exercised.
                if (i % 7 == 0)
                    (void)store.snapshot();
                EXPECT_EQ(s.timeline.back().text, "step " + std::to_string(i));
            }
        });
    }
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(notices.load(), threads * eventsPerThread);
    EXPECT_EQ(store.count(), 12u);
    for (const Session& s : store.snapshot())
        EXPECT_EQ(s.timeline.size(), 100u);
}
