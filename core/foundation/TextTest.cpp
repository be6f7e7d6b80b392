#include "foundation/Text.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

const std::string thumbsUpDark = "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBF"; // U+1F44D U+1F3FF
const std::string flagFrance = "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7";   // regional indicators F R
const std::string family = "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";
const std::string eAcute = "e\xCC\x81"; // e + combining acute

TEST(TextTest, CountsUserPerceivedCharacters) {
    EXPECT_EQ(Text::characterCount(""), 0u);
    EXPECT_EQ(Text::characterCount("abc"), 3u);
    EXPECT_EQ(Text::characterCount("a\r\nb"), 3u); // CR LF is one character
    EXPECT_EQ(Text::characterCount(thumbsUpDark), 1u);
    EXPECT_EQ(Text::characterCount(flagFrance + flagFrance), 2u);
    EXPECT_EQ(Text::characterCount(family), 1u);
    EXPECT_EQ(Text::characterCount("x" + eAcute + "y"), 3u);
    EXPECT_EQ(Text::characterCount("\xFF\xFE"), 2u); // invalid bytes count one each
}

TEST(TextTest, CutsBetweenWholeCharacters) {
    std::string text = std::string(58, 'a') + thumbsUpDark + "bc";
    EXPECT_EQ(Text::prefix(text, 58), std::string(58, 'a'));
    EXPECT_EQ(Text::prefix(text, 59), std::string(58, 'a') + thumbsUpDark);
    EXPECT_EQ(Text::cut(text, 59, Text::ellipsis), std::string(58, 'a') + thumbsUpDark + "\xE2\x80\xA6");
    EXPECT_EQ(Text::cut(text, 61, Text::ellipsis), text); // exactly the limit: kept whole
    EXPECT_EQ(Text::prefix("a" + eAcute, 2), "a" + eAcute);
    EXPECT_EQ(Text::prefix(flagFrance + flagFrance, 1), flagFrance);
    EXPECT_EQ(Text::prefix("a\r\nb", 2), "a\r\n");
}

TEST(TextTest, LowerCasesAndTrimsUnicode) {
    EXPECT_EQ(Text::lowercased("LS -LA"), "ls -la");
    EXPECT_EQ(Text::lowercased("\xC3\x89T\xC3\x89"), "\xC3\xA9t\xC3\xA9"); // ÉTÉ
    EXPECT_EQ(Text::lowercased("\xCE\xA3"), "\xCF\x83");                   // Σ
    EXPECT_EQ(Text::trimmed(" \t\n x y \r\n"), "x y");
    EXPECT_EQ(Text::trimmed("\xC2\xA0x\xE2\x80\x83"), "x"); // no-break space, em space
    EXPECT_EQ(Text::trimmed("   "), "");
    EXPECT_EQ(Text::trimmedSpaces(" \tkey = v\t "), "key = v");
    EXPECT_EQ(Text::replacingAll("a\nb\n", "\n", " "), "a b ");
}

} // namespace
} // namespace tidewick
