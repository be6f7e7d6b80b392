#include "sessions/SessionPersistence.h"

#include "foundation/File.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

using namespace tidewick;

namespace {

class TemporaryHome {
public:
    TemporaryHome() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "tidewick-sessions-XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~TemporaryHome() { std::filesystem::remove_all(path); }
    std::string path;
};

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

Session fullSession() {
    const Date at = dateFromSeconds(1763700000.123456);
    Session s;
    s.key = SessionKey{AgentKind::cursor, "conv-1"};
    s.projectPath = "/Users/me/app";
    s.title = "Fix \"quotes\" and \\ slashes";
    s.status = SessionStatus::needsPermission;
    s.startedAt = at;
    s.lastActivityAt = addSeconds(at, 0.5);
    s.endedAt = addSeconds(at, 10.75);
    s.currentAction = "Running tests";
    s.lastMessage = "Done.\nAll green ✅";
    s.transcriptPath = "/t/conv-1.jsonl";
    s.model = "gpt-5";
    s.hostApp = "Cursor";
    s.agentPid = -2147483647 - 1;
    s.interruptedAt = addSeconds(at, 3.001);
    s.endedByYouAt = addSeconds(at, 4.002);
    s.userMessagesAtEnd = 12;
    s.sentBeforeEnd = std::vector<std::string>{"stop", ""};
    s.transcriptStep = 9007199254740993LL;
    s.pending.push_back(PendingRequest{UUID::random(), PendingKind::permission, "Run npm test",
                                       "npm test", addSeconds(at, 1.25), addSeconds(at, 301.25)});
    s.pending.push_back(
        PendingRequest{UUID::random(), PendingKind::reply, "Finished", std::nullopt, at, at});
    s.timeline =
        Timeline({TimelineItem{UUID::random(), addSeconds(at, 0.001), TimelineKind::shell,
                               "npm test", "exit 0"},
                  TimelineItem{UUID::random(), at, TimelineKind::notice, "Note", std::nullopt}});
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

// Dates are written to the millisecond: equal to within half of one.
void expectSameDate(Date a, Date b) {
    EXPECT_LE(std::abs(std::chrono::duration<double>(a - b).count()), 0.0005 + 1e-6);
}

} // namespace

TEST(SessionPersistenceTest, SaveAndLoadRoundTripEveryField) {
    TemporaryHome home;
    const std::string folder = home.path + "/Library/Application Support/Tidewick";
    SessionPersistence persistence(folder + "/sessions.json");
    const std::vector<Session> sessions = {fullSession(), minimalSession()};
    ASSERT_TRUE(persistence.save(sessions));
    EXPECT_EQ(modeOf(persistence.url()), 0600u);
    EXPECT_EQ(modeOf(folder), 0700u);
    EXPECT_EQ(modeOf(home.path + "/Library"), 0700u);

    std::vector<Session> loaded = persistence.load();
    ASSERT_EQ(loaded.size(), 2u);
    const Session& original = sessions[0];
    Session back = loaded[0];
    expectSameDate(back.startedAt, original.startedAt);
    expectSameDate(back.lastActivityAt, original.lastActivityAt);
    expectSameDate(*back.endedAt, *original.endedAt);
    expectSameDate(*back.interruptedAt, *original.interruptedAt);
    expectSameDate(*back.endedByYouAt, *original.endedByYouAt);
    expectSameDate(back.pending[0].createdAt, original.pending[0].createdAt);
    expectSameDate(back.timeline[0].time, original.timeline[0].time);
    EXPECT_NE(back.timeline[0].time, back.timeline[1].time) << "a millisecond apart survives";
    EXPECT_NE(back.lastActivityAt, back.startedAt);

    // With the dates aligned, every other field must be identical.
    back.startedAt = original.startedAt;
    back.lastActivityAt = original.lastActivityAt;
    back.endedAt = original.endedAt;
    back.interruptedAt = original.interruptedAt;
    back.endedByYouAt = original.endedByYouAt;
    for (std::size_t i = 0; i < back.pending.size(); ++i) {
        back.pending[i].createdAt = original.pending[i].createdAt;
        back.pending[i].deadline = original.pending[i].deadline;
    }
    std::vector<TimelineItem> items = back.timeline.items();
    for (std::size_t i = 0; i < items.size(); ++i)
        items[i].time = original.timeline[i].time;
    back.timeline = Timeline(items);
    EXPECT_EQ(back, original);
    EXPECT_EQ(loaded[1], minimalSession()) << "whole and half seconds are exact";

    // Saving again replaces the file; an empty list is a valid file.
    ASSERT_TRUE(persistence.save({}));
    EXPECT_EQ(File::read(persistence.url()), "[]");
    EXPECT_TRUE(persistence.load().empty());
}

TEST(SessionPersistenceTest, FileShapeUsesFieldNamesAndSecondsSince1970) {
    JSONValue json = minimalSession().toJSON();
    EXPECT_EQ(json.compact(),
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
    EXPECT_EQ(full.get("startedAt")->compact(), "1763700000.123");
    const JSONValue& request = (*full.get("pending")->arrayValue())[0];
    EXPECT_EQ(request.get("kind")->compact(), R"("permission")");
    EXPECT_EQ(request.get("createdAt")->compact(), "1763700001.373");
    EXPECT_EQ((*full.get("pending")->arrayValue())[1].get("detail"), nullptr)
        << "absent fields are omitted";
}

TEST(SessionPersistenceTest, TheWrittenFileReadsExactlyAsTheDocument) {
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
    EXPECT_EQ(SessionPersistence::encode({}), "[]");
    auto decoded = SessionPersistence::decode(file);
    ASSERT_TRUE(decoded);
    EXPECT_EQ((*decoded)[2].timeline[0].text, tricky.timeline[0].text);
}

TEST(SessionPersistenceTest, AnyBadRecordGivesAnEmptyListAndLeavesTheFile) {
    TemporaryHome home;
    SessionPersistence persistence(home.path + "/sessions.json");
    EXPECT_TRUE(persistence.load().empty()) << "missing file";
    EXPECT_FALSE(File::exists(persistence.url()));

    const std::string good = minimalSession().toJSON().compact();
    auto with = [&](const std::string& field, const std::string& value) {
        JSONValue record = JSONValue::parse(good);
        if (value.empty())
            record.remove(field);
        else
            record.set(field, JSONValue::parse(value));
        return "[" + good + "," + record.compact() + "]";
    };
    const std::vector<std::string> bad = {
        "",
        "[",
        "{}",
        "null",
        "[1]",
        "\xFF\xFE",
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
        with("pending",
             R"([{"id":"not-a-uuid","kind":"reply","title":"t","createdAt":1,"deadline":2}])"),
        with("pending",
             R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","kind":"maybe","title":"t",)"
             R"("createdAt":1,"deadline":2}])"),
        with("pending",
             R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","kind":"reply","title":"t",)"
             R"("createdAt":1}])"),
        with("timeline",
             R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","time":1,"kind":"tool"}])"),
        with(
            "timeline",
            R"([{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","time":1,"kind":"video","text":"x"}])"),
        with("timeline", R"({"items":[]})"),
    };
    for (const std::string& content : bad) {
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
    SessionPersistence directory(home.path);
    EXPECT_TRUE(directory.load().empty());
    EXPECT_FALSE(directory.save({minimalSession()}));
    SessionPersistence blocked(persistence.url() + "/nested/sessions.json");
    EXPECT_FALSE(blocked.save({minimalSession()}));
    EXPECT_EQ(persistence.load().size(), 2u) << "a failed save leaves the previous file";
}
