#include "sessions/SessionStore.h"

#include "events/PermissionUpdates.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

namespace tidewick {
using Outcome = SessionStore::Outcome;

namespace {

const SessionKey key{AgentKind::claude, "s1"};

AgentEvent event(EventKind kind, std::optional<std::string> title = {},
                 std::optional<std::string> detail = {}, const SessionKey& of = key) {
    AgentEvent e;
    e.agent = of.agent;
    e.sessionId = of.sessionId;
    e.kind = kind;
    e.title = std::move(title);
    e.detail = std::move(detail);
    e.hookEvent = "Test";
    return e;
}

PendingRequest request(PendingKind kind, Date at) {
    return PendingRequest{UUID::random(),      kind, "Run npm test", "npm test", at,
                          addSeconds(at, 300), {},   std::nullopt};
}

// A store whose clock is moved by hand (starting with a fraction of a second), recording
// every change it reports.
struct SessionStoreTest : ::testing::Test {
    Date current = dateFromSeconds(1763700000.25);
    SessionStore store{[this] { return current; }};
    std::vector<StoreChange> changes;

    SessionStoreTest() {
        store.setOnChange([this](const StoreChange& change) { changes.push_back(change); });
    }
    void advance(double seconds) { current = addSeconds(current, seconds); }
    Session stored(const SessionKey& of = key) { return *store.session(of); }
};

TEST_F(SessionStoreTest, StatusMachineRowByRowWithAndWithoutARequestPending) {
    using S = SessionStatus;
    struct Row {
        EventKind kind;
        S before, after, whilePending;
        std::optional<std::string> timelineText;
    };
    const Row rows[] = {
        {EventKind::sessionStarted, S::finished, S::idle, S::needsPermission, "Session started"},
        {EventKind::working, S::idle, S::working, S::needsPermission, std::nullopt},
        {EventKind::toolStarted, S::idle, S::working, S::needsPermission, "Bash"},
        {EventKind::toolFinished, S::idle, S::working, S::needsPermission, "Tool finished"},
        {EventKind::permissionRequested, S::finished, S::finished, S::needsPermission, {}},
        {EventKind::turnFinished, S::working, S::finished, S::needsPermission, "Finished the turn"},
        {EventKind::notification, S::finished, S::finished, S::needsPermission, "Notification"},
        {EventKind::message, S::idle, S::working, S::needsPermission, "Message"},
        {EventKind::compaction, S::finished, S::finished, S::needsPermission, "Context compacted"},
        {EventKind::interrupted, S::working, S::idle, S::idle, "Interrupted"},
        {EventKind::error, S::working, S::error, S::error, "Error"},
        {EventKind::sessionEnded, S::working, S::ended, S::ended, "Session ended"},
        {EventKind::userPrompt, S::finished, S::working, S::needsPermission, std::nullopt},
    };
    // Each starting state is reached with an event the table itself covers.
    const std::map<S, EventKind> reach = {{S::idle, EventKind::sessionStarted},
                                          {S::working, EventKind::working},
                                          {S::finished, EventKind::turnFinished}};
    for (const Row& row : rows) {
        const std::string name(rawValue(row.kind));
        AgentEvent e = event(row.kind);
        e.toolName = "Bash";
        store.removeAll();
        const std::size_t itemsBefore = store.apply(event(reach.at(row.before))).timeline.size();
        Session after = store.apply(e);
        EXPECT_EQ(after.status, row.after) << name;
        ASSERT_EQ(after.timeline.size(), itemsBefore + (row.timelineText ? 1 : 0)) << name;
        if (row.timelineText) {
            EXPECT_EQ(after.timeline.back().text, *row.timelineText) << name;
        }

        // Ordinary activity leaves a held request's status alone; interrupting or ending
        // drops the requests (and says so), an error keeps them.
        store.removeAll();
        store.apply(event(reach.at(row.before)));
        store.addPending(request(PendingKind::permission, current), key);
        changes.clear();
        after = store.apply(e);
        EXPECT_EQ(after.status, row.whilePending) << name << " while pending";
        const bool drops = row.whilePending == S::idle || row.whilePending == S::ended;
        EXPECT_EQ(after.pending.size(), drops ? 0u : 1u) << name;
        ASSERT_EQ(changes.size(), drops ? 2u : 1u) << name;
        if (drops) {
            EXPECT_TRUE(changes[1].pending.empty());
            EXPECT_FALSE(after.currentAction);
            EXPECT_TRUE(store.pendingRequests().empty());
        }
    }
}

TEST_F(SessionStoreTest, PendingRequestsDriveTheStatusAndEndWithTheChosenReadings) {
    store.apply(event(EventKind::turnFinished));
    PendingRequest reply = request(PendingKind::reply, current);
    store.addPending(reply, key);
    EXPECT_EQ(stored().status, SessionStatus::waitingReply);
    advance(1);
    PendingRequest permission = request(PendingKind::permission, current);
    store.addPending(permission, key);
    EXPECT_EQ(stored().status, SessionStatus::needsPermission) << "permission wins over reply";
    EXPECT_EQ(changes.back().kind, StoreChange::Kind::pending);
    EXPECT_EQ(changes.back().pending.size(), 2u);
    auto listed = store.pendingRequests();
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].second.id, reply.id) << "oldest first";
    EXPECT_EQ(listed[1].first, key);

    // Allowing the permission leaves the reply pending: the status follows what remains.
    store.resolvePending(permission.id, key, Outcome::decided(Decision::allow()));
    Session afterAllow = stored();
    EXPECT_EQ(afterAllow.status, SessionStatus::waitingReply);
    EXPECT_EQ(afterAllow.timeline.back().text, "Allowed");
    // An unknown id, or one already resolved, or another session's, changes nothing.
    const std::size_t changesBefore = changes.size();
    store.resolvePending(permission.id, key, Outcome::decided(Decision::deny()));
    store.resolvePending(UUID::random(), key, Outcome::decided(Decision::deny()));
    store.resolvePending(reply.id, SessionKey{AgentKind::codex, "other"},
                         Outcome::decided(Decision::deny()));
    EXPECT_EQ(changes.size(), changesBefore);
    EXPECT_EQ(stored(), afterAllow);

    store.resolvePending(reply.id, key, Outcome::decided(Decision::letStop()));

    // Each way a request ends, and what the timeline says of it; an allow that carried more
    // says what it did, and a long reply is cut.
    const JSONValue answered = JSONValue::parse(R"({"answers":{"Which colour?":"Blue"}})");
    const Decision always =
        Decision::allow(std::nullopt, {PermissionUpdates::allowRule("Bash", "npm test:*")});
    struct Ending {
        PendingKind kind;
        Outcome outcome;
        SessionStatus status;
        std::string text;
        std::optional<std::string> detail = {};
        std::optional<TimelineKind> item = {};
    };
    // clang-format off
    const Ending endings[] = {
        {PendingKind::reply, Outcome::decided(Decision::reply(std::string(3000, 'r'))), SessionStatus::working, "You replied", std::string(2000, 'r')},
        {PendingKind::permission, Outcome::decided(Decision::deny()), SessionStatus::working, "Denied"},
        {PendingKind::permission, Outcome::decided(Decision::deny("Not on main.")), SessionStatus::working, "Denied: Not on main."},
        {PendingKind::reply, Outcome::decided(Decision::letStop()), SessionStatus::finished, "You let it stop"},
        {PendingKind::permission, Outcome::timedOut(), SessionStatus::working, "No answer in Tidewick — asking in Claude Code"},
        {PendingKind::reply, Outcome::timedOut(), SessionStatus::finished, "No reply — it stopped"},
        {PendingKind::reply, Outcome::decided(Decision::timeout()), SessionStatus::finished, "No reply — it stopped"},
        {PendingKind::permission, Outcome::clientGone(), SessionStatus::working, "The request was withdrawn"},
        {PendingKind::reply, Outcome::clientGone(), SessionStatus::finished, "The request was withdrawn"},
        {PendingKind::permission, Outcome::decided(always), SessionStatus::working, "Always allowed", "Run npm test\nAllow Bash(npm test:*), kept in this project's local settings", TimelineKind::permission},
        {PendingKind::permission, Outcome::decided(Decision::allow(answered, {})), SessionStatus::working, "You answered", "Which colour? \u2192 Blue", TimelineKind::reply},
    };
    // clang-format on
    for (const Ending& ending : endings) {
        SCOPED_TRACE(ending.text);
        PendingRequest held = request(ending.kind, current);
        store.addPending(held, key);
        store.resolvePending(held.id, key, ending.outcome);
        const TimelineItem& item = stored().timeline.back();
        EXPECT_EQ(stored().status, ending.status);
        EXPECT_EQ(item.text, ending.text);
        EXPECT_TRUE(stored().pending.empty());
        if (ending.detail) {
            EXPECT_EQ(item.detail, ending.detail);
        }
        if (ending.item) {
            EXPECT_EQ(item.kind, ending.item);
        }
    }

    const SessionKey nobody{AgentKind::cursor, "nobody"};
    store.addPending(request(PendingKind::permission, current), nobody);
    EXPECT_FALSE(store.session(nobody)) << "adding to an unknown session does nothing";
}

TEST_F(SessionStoreTest, TimelineCapTextCutAndRepairedUTF8) {
    for (int i = 0; i < 200; ++i)
        store.apply(event(EventKind::toolStarted, "tool " + std::to_string(i)));
    Session full = stored();
    Session after = store.apply(event(EventKind::toolStarted, "tool 200"));
    ASSERT_EQ(after.timeline.size(), 200u);
    EXPECT_EQ(after.timeline.front().text, "tool 1") << "the oldest goes first";
    EXPECT_EQ(after.timeline.back().text, "tool 200");
    EXPECT_EQ(full.timeline.front().text, "tool 0") << "an earlier copy is not changed";

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

    // A lone continuation byte, a truncated sequence, an overlong slash and a surrogate.
    const std::string bad = "a\x80"
                            "b\xE2\x82 c\xC0\xAF d\xED\xA0\x80 e";
    const std::string good = "a\uFFFDb\uFFFD\uFFFD c\uFFFD\uFFFD d\uFFFD\uFFFD\uFFFD e";
    AgentEvent e = event(EventKind::sessionStarted, bad, bad);
    e.projectPath = bad;
    Session s = store.apply(e);
    EXPECT_EQ(s.title, good);
    EXPECT_EQ(s.projectPath, good);
    EXPECT_EQ(s.timeline.back().detail, good);
    store.markEndedByYou(key, std::vector<std::string>{bad});
    EXPECT_EQ(stored().sentBeforeEnd, std::vector<std::string>{good});
}

TEST_F(SessionStoreTest, EventFieldsToolKindsEndsAndTheFirstPromptTitle) {
    AgentEvent start = event(EventKind::sessionStarted, "Fix the login bug", "startup");
    start.projectPath = "/work/app";
    const Date startedAt = current;
    store.apply(start);
    advance(2.5);
    const std::pair<std::string, TimelineKind> tools[] = {
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
    }
    EXPECT_EQ(stored().startedAt, startedAt);
    EXPECT_EQ(stored().lastActivityAt, current);
    // An agent that asks before it announces the tool (Cursor) shows the command it asks about.
    EXPECT_EQ(store.apply(event(EventKind::permissionRequested, "Run git push -f")).currentAction,
              "Run git push -f");
    store.apply(event(EventKind::turnFinished, "Finished the turn", "All tests pass."));
    EXPECT_EQ(stored().lastMessage, "All tests pass.");
    EXPECT_FALSE(stored().currentAction);
    Session failed = store.apply(event(EventKind::error, std::nullopt, "API overloaded"));
    EXPECT_EQ(failed.timeline.back().text, "API overloaded");

    EXPECT_EQ(store.apply(event(EventKind::sessionEnded)).endedAt, current);
    advance(1);
    Session resumed = store.apply(event(EventKind::sessionStarted, std::nullopt, "resume"));
    EXPECT_EQ(resumed.status, SessionStatus::idle);
    EXPECT_FALSE(resumed.endedAt) << "a resumed session is no longer ended";
    EXPECT_EQ(resumed.title, "Fix the login bug") << "a start without a title keeps the old one";
    EXPECT_EQ(store.apply(event(EventKind::interrupted)).interruptedAt, current);
    EXPECT_FALSE(store.apply(event(EventKind::userPrompt)).interruptedAt);

    // A session that names itself nowhere is titled by the first line of its first prompt.
    const SessionKey untitled{AgentKind::claude, "untitled"};
    AgentEvent prompt =
        event(EventKind::userPrompt, "You", "  Fix the flaky login test\nand run it", untitled);
    EXPECT_EQ(store.apply(prompt).title, "Fix the flaky login test");
    prompt.detail = "Something else entirely";
    EXPECT_EQ(store.apply(prompt).title, "Fix the flaky login test");
}

TEST_F(SessionStoreTest, SettersSnapshotOrderPruneAndRestore) {
    const SessionKey older{AgentKind::codex, "old"};
    const SessionKey waiting{AgentKind::cursor, "waiting"};
    const SessionKey newest{AgentKind::codex, "newest"};
    for (const SessionKey& each : {older, key, waiting, newest}) {
        store.apply(event(EventKind::working, {}, {}, each));
        advance(10);
    }
    // Needs-you first even though least recent, then the rest by recent activity.
    store.addPending(request(PendingKind::reply, current), older);
    std::vector<Session> list = store.snapshot();
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0].key, older);
    EXPECT_EQ(list[1].key, newest);
    EXPECT_EQ(list[2].key, waiting);
    EXPECT_EQ(list[3].key, key);

    // Setters report only real changes and are not activity.
    changes.clear();
    const Date activity = stored().lastActivityAt;
    store.setTitle(key, "Title");
    store.setTitle(key, "Title");
    store.setTranscriptStep(key, 42);
    store.setHost(key, "iTerm");
    store.setAgentPid(key, 4242);
    store.setMessagesAtEnd(key, 7);
    store.setTitle(SessionKey{AgentKind::claude, "nobody"}, "x");
    EXPECT_EQ(changes.size(), 5u);
    EXPECT_EQ(stored().lastActivityAt, activity);

    store.setWaitingInApp(key);
    EXPECT_EQ(stored().status, SessionStatus::waitingReply);
    store.logReply(key, "carry on");
    EXPECT_EQ(stored().timeline.back().detail, "carry on");
    store.markEndedByYou(key, std::vector<std::string>{"stop please"});
    EXPECT_EQ(stored().status, SessionStatus::ended);
    EXPECT_EQ(stored().endedByYouAt, current);
    store.setWaitingInApp(key);
    EXPECT_EQ(stored().status, SessionStatus::ended) << "an ended session does not wait";
    store.clearEndedByYou(key);
    EXPECT_FALSE(stored().endedByYouAt || stored().userMessagesAtEnd || stored().sentBeforeEnd);

    // Prune: older than the limit and nothing pending. Activity was at 0 (held), 20 (waiting),
    // 30 (newest) and 40 (key, through its logged reply); the cut-off falls at 25.
    advance(SessionStore::defaultPruneAge - 15);
    changes.clear();
    EXPECT_EQ(store.prune(), 1u) << "only the stale, unheld session goes";
    EXPECT_FALSE(store.session(waiting));
    EXPECT_TRUE(store.session(older)) << "held requests keep a session";
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].kind, StoreChange::Kind::removed);
    EXPECT_EQ(changes[0].key, waiting);
    store.remove(older);
    EXPECT_TRUE(store.pendingRequests().empty());

    // Restore: live sessions win, held requests are dropped, needs-you becomes idle.
    Session restoredLive = stored();
    restoredLive.title = "From disk";
    Session restoredHeld;
    restoredHeld.key = SessionKey{AgentKind::antigravity, "held"};
    restoredHeld.status = SessionStatus::needsPermission;
    restoredHeld.pending.push_back(request(PendingKind::permission, current));
    std::vector<TimelineItem> items;
    for (int i = 0; i < 250; ++i)
        items.push_back({UUID::random(), current, TimelineKind::tool, std::to_string(i), {}});
    restoredHeld.timeline = Timeline(items);
    store.restore({restoredLive, restoredHeld});
    EXPECT_EQ(stored().title, "Title");
    Session held = stored(restoredHeld.key);
    EXPECT_TRUE(held.pending.empty());
    EXPECT_EQ(held.status, SessionStatus::idle);
    EXPECT_EQ(held.timeline.size(), 200u);
    EXPECT_EQ(held.timeline.front().text, "50");
}

TEST_F(SessionStoreTest, EndedHereWindsDownExitsAndUnnoticedTurnEnds) {
    (void)store.apply(event(EventKind::toolStarted, "Bash"));
    store.setAgentPid(key, 4242, 900);
    store.setAgentPid(key, 4242);
    EXPECT_EQ(stored().agentStartTime, 900) << "the same pid without a time keeps the time";
    store.setAgentPid(key, 5151);
    EXPECT_FALSE(stored().agentStartTime) << "another process: the old time no longer holds";

    // Ended here: what trails the end keeps it ended, new work clears the mark.
    store.markEndedByYou(key, std::vector<std::string>{"go on"});
    store.setMessagesAtEnd(key, 3);
    for (EventKind trailing : {EventKind::interrupted, EventKind::toolFinished,
                               EventKind::turnFinished, EventKind::message}) {
        SCOPED_TRACE(rawValue(trailing));
        (void)store.apply(event(trailing));
        EXPECT_EQ(stored().status, SessionStatus::ended);
        EXPECT_TRUE(stored().endedByYouAt);
    }
    (void)store.apply(event(EventKind::userPrompt, {}, "next"));
    EXPECT_EQ(stored().status, SessionStatus::working);
    EXPECT_FALSE(stored().endedByYouAt || stored().userMessagesAtEnd || stored().sentBeforeEnd);

    // The transcript saw the turn end: only a working session with nothing held changes.
    EXPECT_TRUE(store.markTurnFinished(key));
    EXPECT_EQ(stored().status, SessionStatus::finished);
    EXPECT_EQ(stored().timeline.back().text, "Finished the turn");
    EXPECT_FALSE(store.markTurnFinished(key));

    // The process went away: only when it is still the session's process.
    (void)store.apply(event(EventKind::userPrompt));
    store.addPending(request(PendingKind::permission, current), key);
    EXPECT_FALSE(store.markExited(key, 4242)) << "another process runs the session now";
    changes.clear();
    EXPECT_TRUE(store.markExited(key, 5151));
    EXPECT_EQ(stored().status, SessionStatus::ended);
    EXPECT_EQ(stored().endedAt, current);
    EXPECT_TRUE(stored().pending.empty());
    EXPECT_EQ(stored().timeline.back().text, "The agent exited");
    ASSERT_EQ(changes.size(), 2u) << "the session and its emptied held requests";
    EXPECT_FALSE(store.markExited(key, 5151)) << "ended already";
}

TEST_F(SessionStoreTest, HandlerMayCallBackAndManyThreadsApplyAtOnce) {
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
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < eventsPerThread; ++i) {
                const SessionKey of{allAgentKinds[t], "s" + std::to_string(i % 3)};
                Session s =
                    store.apply(event(EventKind::toolStarted, "step " + std::to_string(i), {}, of));
                // Keep copies alive across the next apply so shared timelines are exercised.
                if (i % 7 == 0)
                    (void)store.snapshot();
                EXPECT_EQ(s.timeline.back().text, "step " + std::to_string(i));
            }
        });
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(notices.load(), threads * eventsPerThread);
    EXPECT_EQ(store.count(), 12u);
    for (const Session& s : store.snapshot())
        EXPECT_EQ(s.timeline.size(), 100u);
}

} // namespace
} // namespace tidewick
