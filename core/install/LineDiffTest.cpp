#include "install/LineDiff.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using K = DiffLine::Kind;
using Lines = std::vector<DiffLine>;

std::string numbered(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += "line " + std::to_string(i) + "\n";
    text.pop_back();
    return text;
}

TEST(LineDiff, MarksLinesAlongALongestCommonSubsequence) {
    const std::vector<std::tuple<const char*, const char*, Lines>> rows = {
        {"", "", {}},
        // A final line feed gives a last empty line.
        {"", "a\n", {{K::added, "a"}, {K::added, ""}}},
        {"a\n", "", {{K::removed, "a"}, {K::removed, ""}}},
        {"a\nb", "a\nb", {{K::same, "a"}, {K::same, "b"}}},
        {"a", "a\n", {{K::same, "a"}, {K::added, ""}}},
        // A changed line reads old, then new.
        {"x\ny", "x\nz", {{K::same, "x"}, {K::removed, "y"}, {K::added, "z"}}},
        {"a\nb\nc\nd",
         "a\nB\nc\nD\ne",
         {{K::same, "a"},
          {K::removed, "b"},
          {K::added, "B"},
          {K::same, "c"},
          {K::removed, "d"},
          {K::added, "D"},
          {K::added, "e"}}},
        {"{\n}", "{\n  \"a\": 1\n}", {{K::same, "{"}, {K::added, "  \"a\": 1"}, {K::same, "}"}}},
        // Repeated lines: ties put the removal first.
        {"a\nb\na",
         "b\na\nb",
         {{K::removed, "a"}, {K::same, "b"}, {K::same, "a"}, {K::added, "b"}}},
    };
    for (const auto& [before, after, expected] : rows)
        EXPECT_EQ(LineDiff::diff(before, after), expected) << before << " -> " << after;
}

TEST(LineDiff, SizeGuardGivesUpAboveFourMillionCells) {
    // 2001 x 2000 lines is just over the limit: no comparison even though all but one line match.
    Lines expected;
    for (int i = 0; i < 2001; ++i)
        expected.push_back({K::removed, "line " + std::to_string(i)});
    for (int i = 0; i < 2000; ++i)
        expected.push_back({K::added, "line " + std::to_string(i)});
    EXPECT_EQ(LineDiff::diff(numbered(2001), numbered(2000)), expected);

    // 2000 x 2000 is compared line by line, even when the very first line changed.
    Lines lines = LineDiff::diff(numbered(2000), "first" + numbered(2000).substr(6));
    ASSERT_EQ(lines.size(), 2001u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 2),
              (Lines{{K::removed, "line 0"}, {K::added, "first"}}));
    EXPECT_TRUE(std::all_of(lines.begin() + 2, lines.end(),
                            [](const DiffLine& line) { return line.kind == K::same; }));
    // One side empty never builds a table, however long the other is.
    EXPECT_EQ(LineDiff::diff("", numbered(5000)).size(), 5000u);
}

TEST(LineDiff, CondensedKeepsContextAroundChanges) {
    Lines lines;
    for (int i = 0; i < 10; ++i)
        lines.push_back({i == 2 ? K::removed : i == 8 ? K::added : K::same, std::to_string(i)});
    auto texts = [&](int context) {
        std::string out;
        for (const DiffLine& line : LineDiff::condensed(lines, context))
            out += line.text;
        return out;
    };
    EXPECT_EQ(LineDiff::condensed(lines, 0), (Lines{{K::removed, "2"}, {K::added, "8"}}));
    EXPECT_EQ(texts(1), "123789");
    // Context stops at either end, and overlapping runs merge without repeats.
    EXPECT_EQ(texts(3), "0123456789");
    EXPECT_TRUE(LineDiff::condensed({}, 3).empty());
    EXPECT_TRUE(LineDiff::condensed({{K::same, "a"}, {K::same, "b"}}, 3).empty());
}

} // namespace
} // namespace tidewick
