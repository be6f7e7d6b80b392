#include "DisplayText.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using namespace DisplayText;

TEST(DisplayText, CountsColumnsAsTheTerminalDraws) {
    EXPECT_EQ(width("rm -rf build"), 12);
    EXPECT_EQ(width("日本語"), 6) << "wide characters take two columns";
    EXPECT_EQ(width("e\xCC\x81"), 1) << "a combining accent adds nothing";
    EXPECT_EQ(width("👍🏽"), 2) << "an emoji with a skin tone is one wide character";
    EXPECT_EQ(width("\xFF\xFE"), 2) << "invalid bytes count one column each";
    EXPECT_EQ(width(""), 0);
}

TEST(DisplayText, FitsAndPadsWithoutSplittingCharacters) {
    EXPECT_EQ(fit("short", 10), "short");
    EXPECT_EQ(fit("exactly10!", 10), "exactly10!");
    EXPECT_EQ(fit("eleven char", 10), "eleven ch…");
    EXPECT_EQ(fit("日本語日本語", 6), "日本…") << "a wide character that does not fit is left out";
    EXPECT_EQ(fit("anything", 0), "");
    EXPECT_EQ(fit("ab", 1), "…");
    EXPECT_EQ(pad("ab", 5), "ab   ");
    EXPECT_EQ(width(pad("日本語日本語", 7)), 7);
    EXPECT_EQ(pad("e\xCC\x81t\xC3\xA9", 4), "e\xCC\x81t\xC3\xA9 ") << "three columns, one space";
}

TEST(DisplayText, SingleLineNeutralisesControlCharacters) {
    EXPECT_EQ(singleLine("make\nmake test\tnow"), "make make test now");
    EXPECT_EQ(singleLine("red\x1b[31m bell\x07"), "red[31m bell")
        << "escape sequences from a payload must not reach the terminal";
    EXPECT_EQ(singleLine("a\r\nb"), "a b") << "CR LF is one line break";
}

TEST(DisplayText, WrapsAtSpacesLineBreaksAndLimits) {
    EXPECT_EQ(wrap("git push --force origin main", 12, 5),
              (std::vector<std::string>{"git push", "--force", "origin main"}));
    EXPECT_EQ(wrap("first\nsecond line", 20, 5),
              (std::vector<std::string>{"first", "second line"}));
    EXPECT_EQ(wrap("abcdefghij", 4, 5), (std::vector<std::string>{"abcd", "efgh", "ij"}))
        << "a word longer than the line is broken inside";
    EXPECT_EQ(wrap("one two three four five", 9, 2),
              (std::vector<std::string>{"one two", "three…"}))
        << "left-over text is marked on the last line";
    EXPECT_EQ(wrap("123456789 next", 9, 1), (std::vector<std::string>{"1234567…"}));
    for (const std::string& line : wrap("日本語のテキストを折り返す 日本語", 7, 10))
        EXPECT_LE(width(line), 7) << line;
    EXPECT_TRUE(wrap("text", 0, 3).empty());
    EXPECT_EQ(wrap("a\x1b[2Jb", 10, 2), (std::vector<std::string>{"a[2Jb"}));
}

} // namespace
} // namespace tidewick
