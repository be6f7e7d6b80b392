#include "install/TOMLProbe.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(TOMLProbe, ReadsOneBooleanFromTheRightSection) {
    const char* config = "model = \"o3\"\nhooks = false\n\n[features]\nhooks = false # off\n"
                         "web_search = true\n\n[profiles.fast]\nhooks = true\n";
    // Section, key, text, and the value read.
    using Row = std::tuple<const char*, const char*, const char*, std::optional<bool>>;
    const std::vector<Row> rows = {
        {"features", "hooks", config, false},
        {"features", "web_search", config, true},
        {"", "hooks", config, false},
        {"profiles.fast", "hooks", config, true},
        {"features", "codex_hooks", config, std::nullopt},
        {"features", "hooks", "", std::nullopt},
        // The last assignment wins; other values leave the result alone.
        {"features", "hooks", "[features]\nhooks = false\nhooks = true\n", true},
        {"features", "hooks", "[features]\nhooks = true\nhooks = \"no\"\n", true},
        {"features", "hooks", "[features]\nhooks = 0\n", std::nullopt},
        // Array-of-table headers do not open a section; headers and keys are trimmed.
        {"features", "hooks", "[features]\n[[mcp]]\n\thooks\t=  true  \n", true},
        {"features", "hooks", "[ features ]\nhooks=false", false},
        // A "#" cuts the line even inside quotes: this is a scanner, not a parser.
        {"features", "hooks", "[features]\nhooks = \"#\" \n", std::nullopt},
        {"features", "hooks", "[features]\n# hooks = false\n", std::nullopt},
    };
    for (const auto& [section, key, text, expected] : rows)
        EXPECT_EQ(TOMLProbe::boolValue(section, key, text), expected)
            << "[" << section << "] " << key << " in:\n"
            << text;
}

} // namespace
} // namespace tidewick
