#include "sessions/SessionPersistence.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace tidewick;

namespace {

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

// Every field set, with dates a millisecond apart where that is all that tells them apart.
Session fullSession() {
    auto at = [](double seconds) { return dateFromSeconds(1763700000 + seconds); };
    Session s;
    s.key = SessionKey{AgentKind::cursor, "conv-1"};
    s.projectPath = "/Users/me/app";
    s.title = "Fix \"quotes\" and \\ slashes";
    s.status = SessionStatus::needsPermission;
    s.startedAt = at(0.123);
    s.lastActivityAt = at(0.124);
    s.endedAt = at(10.875);
    s.currentAction = "Running tests";
    s.lastMessage = "Done.\nAll green ✅";
    s.transcriptPath = "/t/conv-1.jsonl";
    s.model = "gpt-5";
    s.hostApp = "Cursor";
    s.agentPid = -2147483647 - 1;
    s.interruptedAt = at(3.001);
    s.endedByYouAt = at(4.002);
    s.userMessagesAtEnd = 12;
    s.sentBeforeEnd = std::vector<std::string>{"stop", ""};
    s.transcriptStep = 9007199254740993LL;
    s.pending = {PendingRequest{UUID::random(), PendingKind::permission, "Run npm test", "npm test",
                                at(1.373), at(301.373)},
                 PendingRequest{UUID::random(), PendingKind::reply, "Finished", std::nullopt,
                                at(0.5), at(0.5)}};
    s.timeline = Timeline({{UUID::random(), at(0.999), TimelineKind::shell, "npm test", "exit 0"},
                           {UUID::random(), at(1), TimelineKind::notice, "Note", std::nullopt}});
    return s;
}

Session minimalSession() {
    Session s;
    s.key = SessionKey{AgentKind::antigravity, "a"};
    s.status = SessionStatus::ended;
    s.startedAt = dateFromSeconds(0.5);
    s.lastActivityAt = dateFromSeconds(1.5);
    return s;
}

} // namespace

TEST(SessionPersistenceTest, SaveAndLoadRoundTripEveryFieldWithPrivateModes) {
    TemporaryDirectory home;
    const std::string folder = home.path() + "/Library/Application Support/Tidewick";
    SessionPersistence persistence(folder + "/sessions.json");
    const std::vector<Session> sessions = {fullSession(), minimalSession()};
    ASSERT_TRUE(persistence.save(sessions));
    EXPECT_EQ(modeOf(persistence.url()), 0600u);
    EXPECT_EQ(modeOf(folder), 0700u);
    EXPECT_EQ(modeOf(home.path() + "/Library"), 0700u);
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

TEST(SessionPersistenceTest, TheFileUsesFieldNamesAndIsExactlyTheDocument) {
    EXPECT_EQ(minimalSession().toJSON().compact(),
              R"({"key":{"agent":"antigravity","sessionId":"a"},"status":"ended",)"
              R"("startedAt":0.5,"lastActivityAt":1.5,"pending":[],"timeline":[]})");
    JSONValue full = fullSession().toJSON();
    std::vector<std::string> names;
    for (const auto& [name, value] : *full.objectPairs())
        names.push_back(name);
    EXPECT_EQ(names, (std::vector<std::string>{
                         "key",           "projectPath",    "title",        "status",
                         "startedAt",     "lastActivityAt", "endedAt",      "currentAction",
                         "lastMessage",   "transcriptPath", "model",        "hostApp",
                         "agentPid",      "interruptedAt",  "endedByYouAt", "userMessagesAtEnd",
                         "sentBeforeEnd", "transcriptStep", "pending",      "timeline"}));
    const JSONValue& request = (*full.get("pending")->arrayValue())[0];
    EXPECT_EQ(request.compact().substr(45), R"("kind":"permission","title":"Run npm test",)"
                                            R"("detail":"npm test","createdAt":1763700001.373,)"
                                            R"("deadline":1763700301.373})");
    EXPECT_EQ((*full.get("pending")->arrayValue())[1].get("detail"), nullptr)
        << "absent fields are omitted";

    // The file is written without building the document first; it must match it byte for byte.
    Session tricky = fullSession();
    tricky.sentBeforeEnd = std::vector<std::string>{};
    tricky.timeline = Timeline({TimelineItem{
        UUID(), dateFromSeconds(-0.25), TimelineKind::error,
        std::string("nul\0, tab\t, \x7f, \"q\" \\ \u00e9 \U0001F1EB\U0001F1F7", 32), "\n"}});
    const std::vector<Session> sessions = {fullSession(), minimalSession(), tricky};
    JSONValue::Array records;
    for (const Session& s : sessions)
        records.push_back(s.toJSON());
    const std::string file = SessionPersistence::encode(sessions);
    EXPECT_EQ(file, JSONValue(records).compact());
    EXPECT_EQ(SessionPersistence::decode(file), sessions);
}

TEST(SessionPersistenceTest, AnyBadRecordGivesAnEmptyListAndLeavesTheFile) {
    TemporaryDirectory home;
    SessionPersistence persistence(home.path() + "/sessions.json");
    EXPECT_TRUE(persistence.load().empty()) << "missing file";
    EXPECT_FALSE(File::exists(persistence.url()));

    const std::string good = minimalSession().toJSON().compact();
    // The file with a good record and a second one whose `field` is `value` (removed if empty).
    auto with = [&](const std::string& field, const std::string& value) {
        JSONValue record = JSONValue::parse(good);
        if (value.empty())
            record.remove(field);
        else
            record.set(field, JSONValue::parse(value));
        return "[" + good + "," + record.compact() + "]";
    };
    const std::string id = R"("id":"0f8fad5b-d9cb-469f-a165-70867728950e",)";
    for (const std::string& content :
         {std::string(),
          std::string("["),
          std::string("{}"),
          std::string("null"),
          std::string("[1]"),
          std::string("\xFF\xFE"),
          with("status", R"("sleeping")"),
          with("status", ""),
          with("key", R"({"agent":"gemini","sessionId":"x"})"),
          with("key", R"({"agent":"claude"})"),
          with("startedAt", R"("2025-11-21T00:00:00Z")"),
          with("lastActivityAt", ""),
          with("endedAt", R"("yesterday")"),
          with("agentPid", "4294967296"),
          with("agentPid", "1.5"),
          with("transcriptStep", R"("3")"),
          with("sentBeforeEnd", R"(["a",1])"),
          with("pending", ""),
          with("pending", R"([{"id":"x","kind":"reply","title":"t","createdAt":1,"deadline":2}])"),
          with("pending", "[{" + id + R"("kind":"maybe","title":"t","createdAt":1,"deadline":2}])"),
          with("pending", "[{" + id + R"("kind":"reply","title":"t","createdAt":1}])"),
          with("timeline", "[{" + id + R"("time":1,"kind":"tool"}])"),
          with("timeline", "[{" + id + R"("time":1,"kind":"video","text":"x"}])"),
          with("timeline", R"({"items":[]})")}) {
        File::writeAtomically(persistence.url(), content, 0644);
        EXPECT_TRUE(persistence.load().empty()) << content;
        EXPECT_EQ(File::read(persistence.url()), content) << "the file is left as it was";
        EXPECT_EQ(modeOf(persistence.url()), 0644u);
    }

    // Explicit nulls and unknown members are accepted: another writer's harmless extras.
    std::string tolerant = with("title", "null");
    tolerant.insert(tolerant.size() - 2, R"(,"futureField":{"x":1})");
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
