#include "install/CodexTrust.h"

#include "install/TOMLProbe.h"

#include <gtest/gtest.h>

using namespace tidewick;

namespace {

// A user's Stop group behind Tidewick's, odd characters and a time-out Codex rounds up,
// and a group holding a user's handler beside Tidewick's.
const char* hooksFile = "/h/.codex/hooks.json";
const char* document = R"({"hooks": {
  "Stop": [
    {"hooks": [{"type": "command", "command": "'/h/Library/Application Support/Tidewick/bin/tidewick-hook' --agent codex --event Stop", "timeout": 90000}]},
    {"hooks": [{"type": "command", "command": "echo \"done\" ü 🎉\t", "timeout": 0.5, "statusMessage": "Checking"}]}
  ],
  "PreToolUse": [
    {"matcher": "Bash", "hooks": [{"type": "command", "command": "my-guard", "async": true}, {"type": "command", "command": "'/h/tidewick-hook' --agent codex --event PreToolUse", "timeout": 10}]}
  ],
  "SessionEnd": [{"matcher": "", "hooks": [{"type": "command", "command": "bye", "timeout": 60}]}]
}})";

} // namespace

TEST(CodexTrust, KeysAndHashesAreTheOnesCodexApprovesUnder) {
    // The hashes Codex 0.169.0 itself reported for these handlers.
    // clang-format off
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"/h/.codex/hooks.json:stop:0:0", "sha256:55209cb7d31780d97e3f78b850db4863277d30e83dd5bad87826954782d07d7c"},
        {"/h/.codex/hooks.json:stop:1:0", "sha256:d9036f1dd84a7ed861b5b22d4d8d9f0a46b0dc10c135d8690ffe7724529803e9"},
        {"/h/.codex/hooks.json:pre_tool_use:0:0", "sha256:1bc97b9ac26cc136fda0179be0436e7c4cddf1beeb53f0bfc8d9a05b7fa82da5"},
        {"/h/.codex/hooks.json:pre_tool_use:0:1", "sha256:a83971f905df83aa533b6b6321c3c4b6ee20362664d65a06a4b221c4387b33c2"},
        {"/h/.codex/hooks.json:session_end:0:0", "sha256:6d8f11ac1d0a135373a4ce4e03725aae5a1c824767914df6d3af42a4f396fd3b"},
    };
    // clang-format on
    const std::vector<CodexTrust::Hook> found = CodexTrust::hooks(JSONValue::parse(document));
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(CodexTrust::key(hooksFile, found[i].place), expected[i].first);
        EXPECT_EQ(found[i].hash, expected[i].second);
    }
    EXPECT_TRUE(found[0].ours && !found[1].ours && !found[2].ours && found[3].ours);
}

TEST(CodexTrust, ApprovalsAreReadFromConfigAndMovesOfApprovedUserHooksAreNamed) {
    // Codex writes one table per approved hook; keys and values are TOML strings.
    const std::string config = R"(model = "o3"
[hooks.state."/h/.codex/hooks.json:stop:0:0"]
trusted_hash = "sha256:55209cb7d31780d97e3f78b850db4863277d30e83dd5bad87826954782d07d7c"
[hooks.state."/h/.codex/hooks.json:stop:1:0"]  # the user's own
trusted_hash = 'sha256:d9036f1dd84a7ed861b5b22d4d8d9f0a46b0dc10c135d8690ffe7724529803e9'
[hooks.state."/h/.codex/hooks.json:pre_tool_use:0:1"]
enabled = true
trusted_hash = "sha256:stale"
[hooks . state . "/odd/\"quoted\" # path\u00fc:stop:0:0"]
trusted_hash = "sha256:x" # comment
[hooks.state.other]
trusted_hash = "sha256:y"
)";
    const auto approved = CodexTrust::approvals(config);
    EXPECT_EQ(approved.size(), 5u);
    EXPECT_EQ(approved.at("/odd/\"quoted\" # pathü:stop:0:0"), "sha256:x");
    const auto found = CodexTrust::hooks(JSONValue::parse(document));
    ASSERT_EQ(found.size(), 5u);
    EXPECT_TRUE(CodexTrust::isApproved(found[0], hooksFile, approved));
    EXPECT_TRUE(CodexTrust::isApproved(found[1], hooksFile, approved));
    EXPECT_FALSE(CodexTrust::isApproved(found[3], hooksFile, approved)) << "changed since approved";
    EXPECT_FALSE(CodexTrust::isApproved(found[2], hooksFile, approved)) << "never approved";

    // Dropping Tidewick's Stop group moves the user's approved Stop hook up one place; the
    // unapproved PreToolUse guard is not worth naming.
    JSONValue after = JSONValue::parse(document);
    JSONValue::Array& stops = *after.get("hooks")->get("Stop")->arrayValue();
    stops.erase(stops.begin());
    after.get("hooks")->get("PreToolUse")->arrayValue()->front().get("hooks")->arrayValue()->pop_back();
    EXPECT_EQ(CodexTrust::movedApprovedHooks(JSONValue::parse(document), after, hooksFile, approved),
              (std::vector<std::string>{"Stop: echo \"done\" ü 🎉\t"}));
    EXPECT_TRUE(CodexTrust::movedApprovedHooks(after, after, hooksFile, approved).empty());
}
