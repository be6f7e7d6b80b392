#include "install/LineDiff.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using K = DiffLine::Kind;

std::string numbered(int count, int from = 0) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += "line " + std::to_string(from + i) + "\n";
    text.pop_back();
    return text;
}

TEST(LineDiff, SplitsOnLineFeedsWithAFinalEmptyLine) {
    EXPECT_TRUE(LineDiff::diff("", "").empty());
    EXPECT_EQ(LineDiff::diff("", "a\n"), (std::vector<DiffLine>{{K::added, "a"}, {K::added, ""}}));
    EXPECT_EQ(LineDiff::diff("a\n", ""),
              (std::vector<DiffLine>{{K::removed, "a"}, {K::removed, ""}}));
    EXPECT_EQ(LineDiff::diff("a\nb", "a\nb"),
              (std::vector<DiffLine>{{K::same, "a"}, {K::same, "b"}}));
    // Adding a final line feed shows as one more (empty) line.
    EXPECT_EQ(LineDiff::diff("a", "a\n"), (std::vector<DiffLine>{{K::same, "a"}, {K::added, ""}}));
}

TEST(LineDiff, AChangedLineReadsOldThenNew) {
    EXPECT_EQ(LineDiff::diff("x\ny", "x\nz"),
              (std::vector<DiffLine>{{K::same, "x"}, {K::removed, "y"}, {K::added, "z"}}));
    EXPECT_EQ(LineDiff::diff("a\nb\nc\nd", "a\nB\nc\nD\ne"),
              (std::vector<DiffLine>{{K::same, "a"},
                                     {K::removed, "b"},
                                     {K::added, "B"},
                                     {K::same, "c"},
                                     {K::removed, "d"},
                                     {K::added, "D"},
                                     {K::added, "e"}}));
    // An insertion in the middle keeps everything around it as same.
    EXPECT_EQ(LineDiff::diff("{\n}", "{\n  \"a\": 1\n}"),
              (std::vector<DiffLine>{{K::same, "{"}, {K::added, "  \"a\": 1"}, {K::same, "}"}}));
    // Repeated lines follow the longest common subsequence, and ties put the removal first.
    EXPECT_EQ(LineDiff::diff("a\nb\na", "b\na\nb"),
              (std::vector<DiffLine>{
                  {K::removed, "a"}, {K::same, "b"}, {K::same, "a"}, {K::added, "b"}}));
}

TEST(LineDiff, SizeGuardGivesUpAboveFourMillionCells) {
    // 2001 x 2000 lines is just over the limit: no comparison even though all but one line match.
    std::string before = numbered(2001);
    std::string after = numbered(2000);
    auto lines = LineDiff::diff(before, after);
    ASSERT_EQ(lines.size(), 4001u);
    for (size_t i = 0; i < 2001; ++i)
        ASSERT_EQ(lines[i], (DiffLine{K::removed, "line " + std::to_string(i)}));
    for (size_t i = 0; i < 2000; ++i)
        ASSERT_EQ(lines[2001 + i], (DiffLine{K::added, "line " + std::to_string(i)}));

    // 2000 x 2000 is compared line by line, including when the change is the very first line.
    std::string changed = "first\n" + numbered(1999, 1);
    lines = LineDiff::diff(numbered(2000), changed);
    ASSERT_EQ(lines.size(), 2001u);
    EXPECT_EQ(lines[0], (DiffLine{K::removed, "line 0"}));
    EXPECT_EQ(lines[1], (DiffLine{K::added, "first"}));
    for (size_t i = 2; i < lines.size(); ++i)
        ASSERT_EQ(lines[i].kind, K::same);

    // One side empty never builds a table, however long the other is.
    EXPECT_EQ(LineDiff::diff("", numbered(5000)).size(), 5000u);
}

TEST(LineDiff, CondensedKeepsContextAroundChanges) {
    std::vector<DiffLine> lines;
    for (int i = 0; i < 10; ++i)
        lines.push_back({K::same, std::to_string(i)});
    lines[2].kind = K::removed;
    lines[8].kind = K::added;

    auto zero = LineDiff::condensed(lines, 0);
    EXPECT_EQ(zero, (std::vector<DiffLine>{{K::removed, "2"}, {K::added, "8"}}));

    auto one = LineDiff::condensed(lines, 1);
    std::vector<std::string> texts;
    for (const DiffLine& line : one)
        texts.push_back(line.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"1", "2", "3", "7", "8", "9"}));

    // Context running past either end stops at the edges; overlapping runs merge.
    auto wide = LineDiff::condensed(lines, 3);
    EXPECT_EQ(wide.size(), 10u);

    EXPECT_TRUE(LineDiff::condensed({}, 3).empty());
    EXPECT_TRUE(LineDiff::condensed({{K::same, "a"}, {K::same, "b"}}, 3).empty());
}

} // namespace
} // namespace tidewick
