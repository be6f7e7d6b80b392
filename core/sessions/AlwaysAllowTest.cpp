#include "sessions/AlwaysAllow.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(AlwaysAllow, CommandPrefixNamesWhatRunsAndNeverReachesPastAnOperator) {
    struct Case { const char* command; std::optional<std::string> prefix; };
    const Case cases[] = {
        {"touch a.txt", "touch"},
        {"npm test", "npm test"},
        {"NPM Test", "NPM Test"},
        {"npm test -- --watch", "npm test"},
        {"npm run build --prod", "npm run build"},
        {"npm run", "npm run"},
        {"git -C repo status", "git"},                 // an option before the subcommand
        {"git commit -m \"fix it\"", "git commit"},
        {"/usr/bin/git push origin", "/usr/bin/git push"},
        {"CI=1 FOO_2=x cargo build --release", "cargo build"},
        {"python3 -c 'print(41)'", "python3"},          // no subcommands: the command word
        {"ls -la | grep x", "ls"},
        {"make>log", "make"},
        {"make test>log", "make test"},
        {"  cd build && make", "cd"},
        {"docker $(echo run)", "docker"},
        {"echo hi > c.txt", "echo"},
        {"X=1", std::nullopt},
        {"| sh", std::nullopt},
        {"", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        EXPECT_EQ(AlwaysAllow::commandPrefix(c.command), c.prefix);
    }
}

TEST(AlwaysAllow, OffersWhatEachAgentCanKeep) {
    using Kind = AlwaysAllowOffer::Kind;
    const JSONValue::Array suggestions = *JSONValue::parse(
        R"([{"type":"setMode","mode":"acceptEdits","destination":"session"}])").arrayValue();
    const HeldCall shell{"Bash", "npm Test --ci", JSONValue(), suggestions, {}};
    const HeldCall edit{"Edit", std::nullopt, JSONValue(), suggestions, {}};
    const HeldCall bare{"Edit", std::nullopt, JSONValue(), {}, {}};
    const HeldCall question{"AskUserQuestion", std::nullopt, JSONValue(), {}, {{"Which?", {}, {}, false}}};
    struct Case { AgentKind agent; HeldCall call; std::optional<AlwaysAllowOffer> offer; };
    const Case cases[] = {
        {AgentKind::claude, shell, AlwaysAllowOffer{Kind::agentRule, "Bash", "npm Test:*"}},
        {AgentKind::claude, edit, AlwaysAllowOffer{Kind::agentSuggestions, "Edit", "Switch to acceptEdits mode, for this session"}},
        {AgentKind::claude, bare, std::nullopt},
        {AgentKind::claude, question, std::nullopt},
        {AgentKind::codex, shell, std::nullopt},
        {AgentKind::cursor, HeldCall{"run_command", "npm Test --ci", JSONValue(), {}, {}}, AlwaysAllowOffer{Kind::safePrefix, "run_command", "npm test"}},
        {AgentKind::antigravity, shell, AlwaysAllowOffer{Kind::safePrefix, "Bash", "npm test"}},
        {AgentKind::cursor, HeldCall{"mcp", std::nullopt, JSONValue(), {}, {}}, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(rawValue(c.agent)) + " " + c.call.tool);
        EXPECT_EQ(AlwaysAllow::offer(c.agent, c.call), c.offer);
    }
}

} // namespace
} // namespace tidewick
