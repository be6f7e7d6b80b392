// Long records are read by their head and tail: lines cut at either edge are
// dropped, the middle is marked, and only what the file held when opened is read.
#include "transcripts/HeadTailFile.h"
#include "transcripts/TranscriptTestSupport.h"

#include "foundation/SystemError.h"

#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using LineEnd = HeadTailFile::LineEnd;

struct Read {
    std::vector<std::pair<std::int64_t, std::string>> lines;
    std::int64_t skipped = -1, skippedAt = -1;
    LineEnd lastEnd = LineEnd::complete;
};

Read readAll(const HeadTailFile& file) {
    Read read;
    file.forEachLine(
        [&](std::string_view line, std::int64_t offset, LineEnd end) {
            read.lines.emplace_back(offset, std::string(line));
            read.lastEnd = end;
        },
        [&](std::int64_t bytes, std::int64_t offset) {
            read.skipped = bytes;
            read.skippedAt = offset;
        });
    return read;
}

TEST(HeadTailFile, ReadsSmallFilesWholeAndLongOnesByTheirWholeLinesAtEitherEnd) {
    TemporaryDirectory folder;
    const std::string path = folder.path() + "/record.jsonl";
    // Six lines of 9 bytes with their line feed: offsets 0, 9, ... 45; 54 bytes in all.
    put(path, "line-one\nline-two\nline-thr\nline-fou\nline-fiv\nline-six\n");
    struct Row {
        HeadTailLimits limits;
        std::vector<std::pair<std::int64_t, std::string>> lines;
        std::int64_t skipped, skippedAt; // the gap, which ends where the next line starts
    };
    // clang-format off
    const Row rows[] = {
        {{64, 8, 8}, {{0, "line-one"}, {9, "line-two"}, {18, "line-thr"}, {27, "line-fou"}, {36, "line-fiv"}, {45, "line-six"}}, -1, -1},
        // Head 13 bytes: "line-one\n" and a piece (dropped); tail 13: a piece (dropped) and "line-six".
        {{20, 13, 13}, {{0, "line-one"}, {45, "line-six"}}, 36, 9},
        // Edges exactly on line ends keep the whole lines on both sides.
        {{20, 18, 18}, {{0, "line-one"}, {9, "line-two"}, {36, "line-fiv"}, {45, "line-six"}}, 18, 18},
        // A head with no line end keeps nothing of it.
        {{20, 5, 9}, {{45, "line-six"}}, 45, 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.limits.head);
        const HeadTailFile file(path, row.limits);
        const Read read = readAll(file);
        EXPECT_EQ(file.size(), 54);
        EXPECT_EQ(read.lines, row.lines);
        EXPECT_EQ(read.skipped, row.skipped);
        EXPECT_EQ(read.skippedAt, row.skippedAt);
        EXPECT_EQ(file.skippedBytes(), std::max<std::int64_t>(row.skipped, 0));
    }

    // A last line without its line feed may still be being written.
    put(path, "done\nhalf-writ");
    const Read open = readAll(HeadTailFile(path));
    EXPECT_EQ(open.lines.back().second, "half-writ");
    EXPECT_EQ(open.lastEnd, LineEnd::open);
}

TEST(HeadTailFile, RefusesWhatIsNotARegularFileWithoutWaitingOnIt) {
    TemporaryDirectory folder;
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {folder.path(), pipe}) {
        SCOPED_TRACE(path);
        EXPECT_THROW((void)HeadTailFile(path), std::runtime_error);
    }
    EXPECT_THAT(
        [&] { (void)HeadTailFile(folder.path() + "/missing.jsonl"); },
        ::testing::ThrowsMessage<SystemError>(::testing::StartsWith("open(" + folder.path())));
}

} // namespace
} // namespace tidewick
