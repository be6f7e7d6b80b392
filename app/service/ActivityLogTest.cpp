#include "service/ActivityLog.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "service/ServiceTestSupport.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

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
    struct stat info {};
    ASSERT_EQ(::stat(log.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    File::writeAtomically(home.path() + "/file", "x", 0600);
    EXPECT_THROW(ActivityLog(home.path() + "/file/activity.jsonl").append(bare, Date()),
                 SystemError);
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
