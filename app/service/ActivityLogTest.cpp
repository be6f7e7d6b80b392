#include "service/ActivityLog.h"

#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/JSONValue.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "service/ServiceTestSupport.h"
#include "testing/SmallFileSystem.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;

AgentEvent event(std::optional<std::string> detail) {
    AgentEvent made;
    made.agent = AgentKind::codex;
    made.sessionId = "s-1";
    made.kind = EventKind::toolStarted;
    made.title = "Run make";
    made.detail = std::move(detail);
    return made;
}

TEST(ActivityLog, WritesOneCompactReadableLinePerEvent) {
    TemporaryDirectory home;
    ActivityLog log(home.path() + "/new/activity.jsonl");
    log.append(event("make all"), dateFromSeconds(1763702400.25));
    AgentEvent bare = event(std::nullopt);
    bare.title.reset();
    log.append(bare, dateFromSeconds(1763702401));
    // Invalid UTF-8 is repaired and long texts are cut, so every line stays readable.
    log.append(event("\xff" + std::string(3000, 'x')), dateFromSeconds(1763702402));

    std::vector<std::string> written = fileLines(log.path());
    ASSERT_EQ(written.size(), 3u);
    EXPECT_EQ(
        written[0],
        R"({"time":1763702400.25,"agent":"codex","session":"s-1","kind":"toolStarted","title":"Run make","detail":"make all"})");
    EXPECT_EQ(written[1],
              R"({"time":1763702401,"agent":"codex","session":"s-1","kind":"toolStarted"})");
    const std::string detail = *JSONValue::parse(written[2]).get("detail")->stringValue();
    EXPECT_TRUE(detail.starts_with("\xEF\xBF\xBD") && detail.ends_with(Text::ellipsis));
    EXPECT_LT(detail.size(), 2100u);
    EXPECT_EQ(modeOf(log.path()), 0600);

    File::writeAtomically(home.path() + "/file", "x", 0600);
    EXPECT_THROW(ActivityLog(home.path() + "/file/activity.jsonl").append(bare, Date()),
                 SystemError);
}

TEST(ActivityLog, AFullDiskNeverLeavesATornRecord) {
    SmallFileSystem disk(32 * 1024);
    if (!disk.mounted())
        GTEST_SKIP() << "this test mounts a small tmpfs, which needs privileges";
    const std::string room = disk.path() + "/room";
    File::writeAtomically(room, std::string(8192, 'r'), 0600);
    ActivityLog log(disk.path() + "/activity.jsonl");
    // Records of about 2.3 KB, so the one that meets the full disk gets part of it written.
    std::vector<std::string> whole;
    auto append = [&](int i) {
        const AgentEvent logged = event(std::string(2300, static_cast<char>('a' + i % 26)));
        try {
            log.append(logged, dateFromSeconds(i));
        } catch (const SystemError& error) {
            EXPECT_EQ(error.code(), ENOSPC) << error.what();
            return false;
        }
        std::string line = ActivityLog::line(logged, dateFromSeconds(i));
        line.pop_back();
        whole.push_back(line);
        return true;
    };
    int next = 0;
    while (append(next))
        ++next;
    ASSERT_GE(whole.size(), 3u);
    EXPECT_EQ(fileLines(log.path()), whole);
    EXPECT_TRUE(File::read(log.path()).ends_with("\n"));

    // Once there is room again, the next record stands on a line of its own.
    ASSERT_EQ(::unlink(room.c_str()), 0);
    EXPECT_TRUE(append(++next));
    EXPECT_EQ(fileLines(log.path()), whole);

    // So does the record after a torn line that a crash left behind.
    {
        const FileDescriptor file = FileDescriptor::open(log.path(), O_WRONLY | O_APPEND);
        ASSERT_EQ(::write(file.get(), "{\"time\":9,\"agent\":\"co", 22), 22);
    }
    EXPECT_TRUE(append(++next));
    EXPECT_EQ(fileLines(log.path()), whole);
    EXPECT_TRUE(File::read(log.path()).ends_with("\n"));
}

TEST(ActivityLog, RotatesToOnePreviousFilePastItsLimit) {
    TemporaryDirectory home;
    const std::string line = ActivityLog::line(event("0123456789"), Date());
    ActivityLog log(home.path() + "/activity.jsonl", line.size() * 3);
    for (int i = 0; i < 3; ++i)
        log.append(event("0123456789"), Date());
    EXPECT_EQ(fileLines(log.path()).size(), 3u);
    EXPECT_FALSE(File::exists(log.previousPath()));

    log.append(event("abcdefghij"), Date());
    EXPECT_EQ(fileLines(log.previousPath()).size(), 3u);
    EXPECT_EQ(fileLines(log.path()).size(), 1u);
    // A second rotation replaces the previous file: at most two files ever exist.
    for (int i = 0; i < 3; ++i)
        log.append(event("ABCDEFGHIJ"), Date());
    EXPECT_EQ(fileLines(log.previousPath()).size(), 3u);
    EXPECT_NE(fileLines(log.previousPath())[0].find("abcdefghij"), std::string::npos);
    EXPECT_EQ(fileLines(log.path()).size(), 1u);

    // A line longer than the limit still gets written, alone in its file.
    ActivityLog tiny(home.path() + "/tiny.jsonl", 10);
    tiny.append(event("first"), Date());
    tiny.append(event("second"), Date());
    EXPECT_EQ(fileLines(tiny.path()).size() + fileLines(tiny.previousPath()).size(), 2u);
}

} // namespace
} // namespace tidewick
