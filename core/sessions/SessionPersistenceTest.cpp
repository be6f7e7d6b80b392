#include "sessions/SessionPersistence.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

using namespace tidewick;
using tidewick::testing::modeOf;

namespace {

// Every field of a session, as the file holds it (a held request's questions and offer
// included); dates a millisecond apart where that is all that tells them apart.
const std::string fullRecord =
    R"({"key":{"agent":"cursor","sessionId":"conv-1"},"projectPath":"/Users/me/app",)"
    R"("title":"Fix \"quotes\" and \\ slashes","status":"needsPermission",)"
    R"("startedAt":1763700000.123,"lastActivityAt":1763700000.124,"endedAt":1763700010.875,)"
    R"("currentAction":"Running tests","lastMessage":"Done.\nAll green ✅",)"
    R"("transcriptPath":"/t/conv-1.jsonl","model":"gpt-5","hostApp":"Cursor",)"
    R"("agentPid":-2147483648,"agentStartTime":9007199254740993,"tmuxPane":"%3",)"
    R"("tmuxSocket":"/tmp/tmux-1000/default",)"
    R"("interruptedAt":1763700003.001,"endedByYouAt":1763700004.002,)"
    R"("userMessagesAtEnd":12,"sentBeforeEnd":["stop",""],"transcriptStep":9007199254740993,)"
    R"("pending":[{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","kind":"permission",)"
    R"("title":"Run npm test","detail":"npm test","createdAt":1763700001.373,)"
    R"("deadline":1763700301.373,"questions":[{"question":"Which colour?","header":"Colour",)"
    R"("options":[{"label":"Red","description":"Warm"},{"label":"Blue"}],"multiSelect":false},)"
    R"({"question":"Which?","options":[],"multiSelect":true}],)"
    R"("alwaysAllow":{"kind":"agentRule","tool":"Bash","text":"npm Test:*"}},)"
    R"({"id":"7c9e6679-7425-40de-944b-e07fc1f90ae7",)"
    R"("kind":"reply","title":"Finished","createdAt":1763700000.5,"deadline":1763700000.5}],)"
    R"("timeline":[{"id":"16fd2706-8baf-433b-82eb-8c7fada847da","time":1763700000.999,)"
    R"("kind":"shell","text":"npm test","detail":"exit 0"},)"
    R"({"id":"886313e1-3b8a-4372-9b90-0c9aee199e5d","time":1763700001.001,"kind":"notice",)"
    R"("text":"Note"}]})";

// Only what every session has.
const std::string minimalRecord =
    R"({"key":{"agent":"antigravity","sessionId":"a"},"status":"ended",)"
    R"("startedAt":0.5,"lastActivityAt":1.5,"pending":[],"timeline":[]})";

Session fullSession() {
    return decodeJSON<Session>(fullRecord).value();
}

Session minimalSession() {
    return decodeJSON<Session>(minimalRecord).value();
}

// A file of the minimal record and a copy whose `field` is `value` (removed when empty).
std::string with(const std::string& field, const std::string& value) {
    JSONValue record = JSONValue::parse(minimalRecord);
    if (value.empty())
        record.remove(field);
    else
        record.set(field, JSONValue::parse(value));
    return "[" + minimalRecord + "," + record.compact() + "]";
}

} // namespace

TEST(SessionPersistenceTest, SaveAndLoadRoundTripEveryFieldAsExactlyTheDocument) {
    // Each field is read back and written again in its place; absent ones are omitted.
    EXPECT_EQ(encodeJSON(fullSession()), fullRecord);
    EXPECT_EQ(encodeJSON(minimalSession()), minimalRecord);

    // The file is written without building the document first; it must read as the same
    // document, byte for byte, whatever its texts hold.
    Session tricky = fullSession();
    tricky.sentBeforeEnd = std::vector<std::string>{};
    tricky.timeline = Timeline({TimelineItem{
        UUID(), dateFromSeconds(-0.25), TimelineKind::error,
        std::string("nul\0, tab\t, \x7f, \"q\" \\ \u00e9 \U0001F1EB\U0001F1F7", 32), "\n"}});
    const std::vector<Session> sessions = {fullSession(), minimalSession(), tricky};
    TemporaryDirectory home;
    const std::string folder = home.path() + "/Library/Application Support/Tidewick";
    SessionPersistence persistence(folder + "/sessions.json");
    ASSERT_TRUE(persistence.save(sessions));
    EXPECT_EQ(modeOf(persistence.url()), 0600);
    EXPECT_EQ(modeOf(folder), 0700);
    const std::string file = File::read(persistence.url());
    EXPECT_EQ(file, JSONValue::parse(file).compact());
    EXPECT_EQ(persistence.load(), sessions);

    // Dates are written to the millisecond; finer digits are dropped.
    Session fine = minimalSession();
    fine.startedAt = dateFromSeconds(1763700000.123456);
    ASSERT_TRUE(persistence.save({fine}));
    EXPECT_EQ(persistence.load().at(0).startedAt, dateFromSeconds(1763700000.123));

    // Saving again replaces the file; an empty list is a valid file.
    ASSERT_TRUE(persistence.save({}));
    EXPECT_EQ(File::read(persistence.url()), "[]");
    EXPECT_TRUE(persistence.load().empty());
}

TEST(SessionPersistenceTest, AnyBadRecordOrCutTextGivesAnUnreadableFileLeftAsItWas) {
    TemporaryDirectory home;
    SessionPersistence persistence(home.path() + "/sessions.json");
    EXPECT_TRUE(persistence.load().empty()) << "missing file";
    EXPECT_FALSE(File::exists(persistence.url()));

    // A pending request or timeline item with a good id and `members`.
    const auto item = [](const std::string& field, const std::string& members) {
        return with(field, R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e",)" + members + "}]");
    };
    const std::vector<std::string> contents = {
        "",
        "[",
        "[" + minimalRecord + ",",
        "{}",
        "null",
        "[1]",
        "\xFF\xFE",
        with("status", R"("sleeping")"),
        with("status", ""),
        with("key", R"({"agent":"gemini","sessionId":"x"})"),
        with("key", R"({"agent":"claude"})"),
        with("startedAt", R"("2025-11-21T00:00:00Z")"),
        // Beyond what the clock can hold (about the year 2262).
        with("startedAt", "1e10"),
        with("lastActivityAt", ""),
        with("endedAt", R"("yesterday")"),
        with("agentPid", "4294967296"),
        with("agentPid", "1.5"),
        with("transcriptStep", R"("3")"),
        with("sentBeforeEnd", R"(["a",1])"),
        with("pending", ""),
        with("pending", R"([{"id":"x","kind":"reply","title":"t","createdAt":1,"deadline":2}])"),
        item("pending", R"("kind":"maybe","title":"t","createdAt":1,"deadline":2)"),
        item("pending", R"("kind":"reply","title":"t","createdAt":1)"),
        item("timeline", R"("time":1,"kind":"tool")"),
        item("timeline", R"("time":1,"kind":"video","text":"x")"),
        item("timeline", R"("time":-1e10,"kind":"tool","text":"x")"),
        with("timeline", R"({"items":[]})"),
    };
    for (const std::string& content : contents) {
        File::writeAtomically(persistence.url(), content, 0644);
        const SessionPersistence::Contents read = persistence.read();
        EXPECT_TRUE(read.unreadable && read.sessions.empty()) << content;
        EXPECT_EQ(File::read(persistence.url()), content) << "the file is left as it was";
        EXPECT_EQ(modeOf(persistence.url()), 0644);
    }

    // Explicit nulls and unknown members are accepted: another writer's harmless extras. Of
    // a repeated member the first one counts.
    std::string tolerant = with("title", "null");
    tolerant.insert(tolerant.size() - 2, R"(,"futureField":{"x":1},"status":"sleeping")");
    File::writeAtomically(persistence.url(), tolerant, 0600);
    EXPECT_EQ(persistence.load().size(), 2u);

    // An unreadable path (a directory) is an empty list, and so is a failed save.
    SessionPersistence directory(home.path());
    EXPECT_TRUE(directory.load().empty());
    EXPECT_FALSE(directory.save({minimalSession()}));
    SessionPersistence blocked(persistence.url() + "/nested/sessions.json");
    EXPECT_FALSE(blocked.save({minimalSession()}));
    EXPECT_EQ(persistence.load().size(), 2u) << "a failed save leaves the previous file";
}

TEST(SessionPersistenceTest, AFileThatDidNotLoadIsKeptAsideBeforeItIsReplaced) {
    TemporaryDirectory home;
    SessionPersistence persistence(home.path() + "/sessions.json");
    EXPECT_FALSE(persistence.read().unreadable) << "a missing file is no loss";
    EXPECT_EQ(persistence.keepUnreadable(dateFromSeconds(0)), std::nullopt);

    // A status written by a newer version, then a date past what the clock holds.
    const std::string contents[] = {with("status", R"("paused")"), with("startedAt", "9.3e9")};
    std::vector<std::string> kept;
    for (std::size_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        const std::string& content = contents[i % 2];
        File::writeAtomically(persistence.url(), content, 0644);
        const SessionPersistence::Contents read = persistence.read();
        EXPECT_TRUE(read.unreadable);
        EXPECT_TRUE(read.sessions.empty());
        // Twice in the same second: the second one gets its own name.
        const std::optional<std::string> path =
            persistence.keepUnreadable(dateFromSeconds(1763700000 + 60.0 * (i / 2)));
        ASSERT_TRUE(path);
        kept.push_back(*path);
        EXPECT_EQ(File::read(*path), content);
        EXPECT_EQ(modeOf(*path), 0600);
        EXPECT_FALSE(File::exists(persistence.url()));
    }
    EXPECT_EQ(kept[0], persistence.url() + ".unreadable-2025-11-21T04-40-00Z");
    EXPECT_EQ(kept[1], persistence.url() + ".unreadable-2025-11-21T04-40-00Z.1");
    // Only the three newest are kept.
    for (std::size_t i = 0; i < kept.size(); ++i)
        EXPECT_EQ(File::exists(kept[i]), i >= 2) << kept[i];

    // A folder where the file should be is left alone.
    File::makeDirectories(persistence.url(), 0700);
    EXPECT_TRUE(persistence.read().unreadable);
    EXPECT_EQ(persistence.keepUnreadable(dateFromSeconds(0)), std::nullopt);
}

TEST(SessionPersistenceTest, ALargeFileReadInTwoHalvesKeepsEveryRecordInOrder) {
    // Enough sessions to pass the size at which decoding splits the file.
    std::vector<Session> sessions;
    for (int i = 0; sessions.empty() || SessionPersistence::encode(sessions).size() <
                                            SessionPersistence::splitBytes + 4096;
         ++i) {
        for (int k = 0; k < 40; ++k) {
            Session s = fullSession();
            s.key.sessionId = "session-" + std::to_string(i * 40 + k);
            s.title = std::string(4000, 'x') + "\"},{\"key\":{\"agent\":\""; // escaped in the file
            sessions.push_back(std::move(s));
        }
    }
    const std::string bytes = SessionPersistence::encode(sessions);
    EXPECT_EQ(SessionPersistence::decode(bytes), sessions);

    // A bad record in either half still loses the whole list.
    for (const std::string& target :
         {sessions.front().key.sessionId, sessions.back().key.sessionId}) {
        std::string broken = bytes;
        size_t at = broken.find("\"" + target + "\"");
        ASSERT_NE(at, std::string::npos);
        broken.replace(broken.find("\"status\":\"", at) + 10, 7, "unknown");
        EXPECT_EQ(SessionPersistence::decode(broken), std::nullopt) << target;
    }
}
