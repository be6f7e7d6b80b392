#include "install/TOMLProbe.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(TOMLProbe, ReadsOneBooleanFromTheRightSection) {
    const char* config = R"(model = "o3"
hooks = false

[features]
hooks = false # off
web_search = true

[profiles.fast]
hooks = true
)";
    EXPECT_EQ(TOMLProbe::boolValue("features", "hooks", config), false);
    EXPECT_EQ(TOMLProbe::boolValue("features", "web_search", config), true);
    EXPECT_EQ(TOMLProbe::boolValue("", "hooks", config), false);
    EXPECT_EQ(TOMLProbe::boolValue("profiles.fast", "hooks", config), true);
    EXPECT_FALSE(TOMLProbe::boolValue("features", "codex_hooks", config));
    EXPECT_FALSE(TOMLProbe::boolValue("features", "hooks", ""));

    // The last assignment wins; other values leave the result alone.
    EXPECT_EQ(
        TOMLProbe::boolValue("features", "hooks", "[features]\nhooks = false\nhooks = true\n"),
        true);
    EXPECT_EQ(
        TOMLProbe::boolValue("features", "hooks", "[features]\nhooks = true\nhooks = \"no\"\n"),
        true);
    EXPECT_FALSE(TOMLProbe::boolValue("features", "hooks", "[features]\nhooks = 0\n"));

    // Array-of-table headers do not open a section; spaced headers and keys are trimmed.
    EXPECT_EQ(
        TOMLProbe::boolValue("features", "hooks", "[features]\n[[mcp]]\n\thooks\t=  true  \n"),
        true);
    EXPECT_EQ(TOMLProbe::boolValue("features", "hooks", "[ features ]\nhooks=false"), false);
    // A "#" cuts the line even inside quotes: this is a scanner, not a parser.
    EXPECT_FALSE(TOMLProbe::boolValue("features", "hooks", "[features]\nhooks = \"#\" \n"));
    EXPECT_FALSE(TOMLProbe::boolValue("features", "hooks", "[features]\n# hooks = false\n"));
}

} // namespace
} // namespace tidewick
