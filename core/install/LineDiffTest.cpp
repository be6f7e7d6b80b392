#include "install/LineDiff.h"

#include "foundation/Text.h"

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

// The lines as in a unified diff, " " same, "-" removed, "+" added, joined by "|".
std::string rendered(const Lines& lines) {
    std::string out;
    for (const DiffLine& line : lines)
        out += (out.empty() ? "" : "|") + std::string(1, " +-"[int(line.kind)]) + line.text;
    return out;
}

TEST(LineDiff, MarksLinesAlongALongestCommonSubsequence) {
    const std::vector<std::tuple<const char*, const char*, const char*>> rows = {
        {"", "", ""},
        // A final line feed gives a last empty line.
        {"", "a\n", "+a|+"},
        {"a\n", "", "-a|-"},
        {"a\nb", "a\nb", " a| b"},
        {"a", "a\n", " a|+"},
        // A changed line reads old, then new.
        {"x\ny", "x\nz", " x|-y|+z"},
        {"a\nb\nc\nd", "a\nB\nc\nD\ne", " a|-b|+B| c|-d|+D|+e"},
        {"{\n}", "{\n  \"a\": 1\n}", " {|+  \"a\": 1| }"},
        // Repeated lines: ties put the removal first.
        {"a\nb\na", "b\na\nb", "-a| b| a|+b"},
    };
    for (const auto& [before, after, expected] : rows)
        EXPECT_EQ(rendered(LineDiff::diff(before, after)), expected) << before << " -> " << after;
}

TEST(LineDiff, SizeGuardGivesUpAboveFourMillionCells) {
    // 2001 x 2000 lines is just over the limit: no comparison even though all but one line match.
    EXPECT_EQ(rendered(LineDiff::diff(numbered(2001), numbered(2000))),
              "-" + Text::replacingAll(numbered(2001), "\n", "|-") + "|+" +
                  Text::replacingAll(numbered(2000), "\n", "|+"));

    // 2000 x 2000 is compared line by line, even when the very first line changed.
    Lines lines = LineDiff::diff(numbered(2000), "first" + numbered(2000).substr(6));
    ASSERT_EQ(lines.size(), 2001u);
    EXPECT_EQ(rendered(Lines(lines.begin(), lines.begin() + 2)), "-line 0|+first");
    EXPECT_TRUE(std::all_of(lines.begin() + 2, lines.end(),
                            [](const DiffLine& line) { return line.kind == K::same; }));
    // One side empty never builds a table, however long the other is.
    EXPECT_EQ(LineDiff::diff("", numbered(5000)).size(), 5000u);
}

TEST(LineDiff, CondensedKeepsContextAroundChanges) {
    Lines lines;
    for (int i = 0; i < 10; ++i)
        lines.push_back({i == 2 ? K::removed : i == 8 ? K::added : K::same, std::to_string(i)});
    EXPECT_EQ(rendered(LineDiff::condensed(lines, 0)), "-2|+8");
    EXPECT_EQ(rendered(LineDiff::condensed(lines, 1)), " 1|-2| 3| 7|+8| 9");
    // Context stops at either end, and overlapping runs merge without repeats.
    EXPECT_EQ(rendered(LineDiff::condensed(lines, 3)), rendered(lines));
    EXPECT_TRUE(LineDiff::condensed({}, 3).empty());
    EXPECT_TRUE(LineDiff::condensed({{K::same, "a"}, {K::same, "b"}}, 3).empty());
}

} // namespace
} // namespace tidewick
