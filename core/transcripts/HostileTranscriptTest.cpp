// Records that are damaged, enormous, still growing, missing, locked or not
// what they claim: the readers never crash and keep memory bounded.
#include "transcripts/AntigravityTranscriptReader.h"
#include "transcripts/ClaudeTranscriptReader.h"
#include "transcripts/TranscriptTestSupport.h"
#include "transcripts/Transcripts.h"

#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <atomic>
#include <fcntl.h>
#include <sys/resource.h>
#include <thread>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

std::string prompt(const std::string& text) {
    return R"({"type":"user","message":{"role":"user","content":")" + text +
           R"("},"timestamp":"2026-11-21T04:53:29.881Z"})"
           "\n";
}

long peakResidentKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(HostileTranscripts, DamagedLinesAreLeftOutAndTheRestIsRead) {
    TemporaryDirectory folder;
    const std::string path = folder.path() + "/damaged.jsonl";
    put(path,
        prompt("first") +
            R"({"type":"user","message":{"role":"us)"
            "\n" +
            std::string("\xff\xfe\x00\x01binary\x00\x9f", 12) + "\n" +
            R"({"type":"assistant","message":{"content":[{"type":"tool_use"}]}})"
            "\n" +
            R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":7}]}})"
            "\n" +
            "[1, 2, 3]\n\n" + prompt("second") +
            R"({"type":"user","message":{"role":"user","cont)");
    const Transcript transcript = ClaudeTranscriptReader::read(path, "id");
    EXPECT_EQ(transcript.unreadableLines, 2) << "the cut and the binary line; not the last one";
    EXPECT_EQ(transcript.userMessages, 2);
    EXPECT_EQ(transcript.entries.front().text, "first");
    EXPECT_EQ(transcript.entries.back().text, "second");
    EXPECT_EQ(transcript.toolCalls, 2)
        << "the call without a name, and the result without its call";
}

TEST(HostileTranscripts, ATwoGigabyteSparseRecordIsReadByItsEndsInBoundedMemory) {
    TemporaryDirectory folder;
    const std::string path = folder.path() + "/huge.jsonl";
    const std::int64_t size = 2LL << 30;
    {
        FileDescriptor file = FileDescriptor::open(path, O_WRONLY | O_CREAT, 0600);
        IO::writeAll(file.get(), prompt("the goal"), path);
        ASSERT_EQ(::ftruncate(file.get(), size), 0);
        // The end: a line cut by the tail's edge, then whole lines.
        const std::string end = std::string(2 << 20, 'x') + "\n" + prompt("the latest");
        ASSERT_EQ(::pwrite(file.get(), end.data(), end.size(),
                           static_cast<off_t>(size - static_cast<std::int64_t>(end.size()))),
                  static_cast<ssize_t>(end.size()));
    }
    const long before = peakResidentKiB();
    const Transcript transcript = ClaudeTranscriptReader::read(path, "id");
    EXPECT_LT(peakResidentKiB() - before, 64 * 1024) << "KiB more at the peak";
    EXPECT_THAT(describe(transcript.entries),
                ::testing::ElementsAre("user: the goal",
                                       ::testing::StartsWith("system: [… 2.0 GiB"),
                                       "user: the latest"));
    EXPECT_EQ(transcript.position, size);
    EXPECT_EQ(transcript.skippedBytes, transcript.entries[1].skippedBytes);
    EXPECT_GT(transcript.skippedBytes, size - (2 << 20));
    EXPECT_EQ(transcript.unreadableLines, 0) << "the zeros of the middle are never read";
}

TEST(HostileTranscripts, AGrowingRecordIsReadUpToWhereItWasWhenOpened) {
    TemporaryDirectory folder;
    const std::string path = folder.path() + "/growing.jsonl";
    put(path, "");
    std::atomic<bool> done = false;
    // The writer appends each line in two writes, so that a half line is often there.
    std::thread writer([&] {
        FileDescriptor file = FileDescriptor::open(path, O_WRONLY | O_APPEND);
        for (int i = 0; !done && i < 200000; ++i) {
            const std::string line = prompt("prompt " + std::to_string(i));
            IO::writeAll(file.get(), line.substr(0, 20), path);
            IO::writeAll(file.get(), line.substr(20), path);
        }
    });
    // Small limits, so that the file soon outgrows being read whole.
    const HeadTailLimits limits{64 << 10, 16 << 10, 32 << 10};
    std::int64_t lastSize = 0;
    for (int round = 0; round < 2000 && lastSize < (1 << 20); ++round) {
        const Transcript transcript = ClaudeTranscriptReader::read(path, "id", limits);
        SCOPED_TRACE(transcript.position);
        EXPECT_EQ(transcript.unreadableLines, 0);
        EXPECT_EQ(transcript.skippedBytes > 0, transcript.position > limits.whole);
        EXPECT_GE(transcript.position, lastSize);
        lastSize = transcript.position;
        if (transcript.skippedBytes == 0 && !transcript.entries.empty()) {
            // Every whole line before the size at opening was read, in order.
            EXPECT_EQ(transcript.entries.back().text,
                      "prompt " + std::to_string(transcript.entries.size() - 1));
        }
    }
    done = true;
    writer.join();
    EXPECT_GE(lastSize, 1 << 20) << "the file grew while it was read";
}

// A database made here, shaped like a conversation store: a table of binary step records.
void makeStepDatabase(const std::string& path, int steps) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    // Each payload holds the step's text between bytes that are not text.
    const std::string script =
        "CREATE TABLE meta(key TEXT, value TEXT);"
        "CREATE TABLE steps(id INTEGER PRIMARY KEY, created_at INTEGER, payload BLOB);"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(steps) +
        ") INSERT INTO steps(created_at, payload) SELECT 1795234562000 + i * 1000, "
        "CAST(X'0a1201ff' || 'Run the tests, step ' || i || X'100200' || 'ab' AS BLOB) FROM n;";
    EXPECT_EQ(sqlite3_exec(database, script.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
}

TEST(HostileTranscripts, AntigravityStepDatabasesShowWhatCanBeReadAndNeverWait) {
    TemporaryDirectory home;
    const std::string folder = home.path() + "/.gemini/antigravity-cli/conversations";
    const std::string path = folder + "/conv-1.db";
    File::makeDirectories(folder, 0700);
    makeStepDatabase(path, 300);
    Session session;
    session.key = {AgentKind::antigravity, "conv-1"};
    session.projectPath = "/home/dev/work";
    const Transcript transcript = Transcripts::read(session, TranscriptLocations(home.path()));
    EXPECT_EQ(transcript.position, 300) << "steps";
    ASSERT_EQ(transcript.entries.size(), 50u + 1 + 200);
    EXPECT_EQ(describe(transcript.entries[0]), "system: Step 1: Run the tests, step 1");
    EXPECT_EQ(describe(transcript.entries[50]), "system: [50 steps not shown]");
    EXPECT_EQ(describe(transcript.entries.back()), "system: Step 300: Run the tests, step 300");
    EXPECT_EQ(transcript.entries[0].time, dateFromSeconds(1795234563));
    EXPECT_EQ(transcript.projectPath, "/home/dev/work") << "from the session";

    // Locked by a writer: the reader gives up after its busy time, with a sentence.
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    const SQLiteDatabase::Limits brief{std::chrono::milliseconds(2000),
                                       std::chrono::milliseconds(50)};
    EXPECT_THROW((void)AntigravityTranscriptReader::readDatabase(path, "conv-1", brief),
                 SQLiteDatabase::Failure);
    sqlite3_exec(writer, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(writer);

    // A query that would run forever is cut off.
    SQLiteDatabase database(path, {std::chrono::milliseconds(100), std::chrono::milliseconds(50)});
    EXPECT_THAT(
        [&] {
            database.query("WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) "
                           "SELECT count(*) FROM n",
                           [](const SQLiteDatabase::Row&) {});
        },
        ThrowsMessage<SQLiteDatabase::Failure>(HasSubstr("it took too long to read")));

    // Corrupt, or no database at all: a sentence, never a crash. Nothing is ever written.
    std::string bytes = File::read(path);
    for (std::size_t i = 100; i < bytes.size(); i += 7)
        bytes[i] = static_cast<char>(i * 31);
    put(path, bytes);
    const auto modified = std::filesystem::last_write_time(path);
    EXPECT_THAT([&] { (void)Transcripts::read(session, TranscriptLocations(home.path())); },
                ThrowsMessage<TranscriptUnavailable>(::testing::StartsWith(
                    "Tidewick couldn't read Antigravity's record of session conv-1: ")));
    EXPECT_EQ(std::filesystem::last_write_time(path), modified);
    put(path, "not a database at all, just some text that is long enough to look like a header");
    EXPECT_THROW((void)Transcripts::read(session, TranscriptLocations(home.path())),
                 TranscriptUnavailable);
}

} // namespace
} // namespace tidewick
