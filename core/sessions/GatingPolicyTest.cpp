#include "sessions/GatingPolicy.h"

#include "foundation/JSONCoding.h"

#include <gtest/gtest.h>

#include <string>

using namespace tidewick;
using Verdict = GatingPolicy::Verdict;

namespace {

AgentEvent permissionEvent(AgentKind agent, std::optional<std::string> command) {
    AgentEvent event;
    event.agent = agent;
    event.sessionId = "s1";
    event.kind = EventKind::permissionRequested;
    event.needsDecision = true;
    event.decisionType = DecisionType::permission;
    event.detail = std::move(command);
    event.hookEvent = "beforeShellExecution";
    return event;
}

} // namespace

TEST(GatingPolicyTest, ReadOnlyCommandsEveryWayToRefuseThemAndTheUsersPrefixes) {
    GatingPolicy policy;
    for (const char* command :
         {"ls -la", "ls\n", "  pwd  ", "LS", "Ls -LA /tmp", "git status", "git branch",
          "git branch -a --list", "git branch --show-current", "git log --oneline -5",
          "cat README.md", "rg TODO src", "node --version", "git remote -v", "cargo --version",
          "grep \"two words\" file.txt", "echo 'hello there'", "wc -l a b c",
          // Options that merely resemble the dangerous ones.
          "git log --pretty=oneline", "git log --stat", "ls --sort=size", "rg -n x"})
        EXPECT_TRUE(policy.isReadOnly(command)) << command;

    for (const char* command :
         {// Every metacharacter, inside quotes too.
          "ls -la | grep x", "ls; rm -rf /", "ls && rm x", "ls & rm x", "cat a > b", "cat < a",
          "echo `whoami`", "echo $(whoami)", "echo $HOME", "ls (x)", "ls\nrm -rf /", "ls\\ x",
          "echo {a,b}", "cat x}", "ls -la ||true", "cat 'a;b'", "grep \"a|b\" f",
          "echo \"$(rm -rf ~)\"", "ls\r\nrm x",
          // Options that write, run or page.
          "cat -s notes.txt", "rg --pre=sh pattern", "rg --pre sh x", "git log --output=/tmp/x",
          "git diff --output /tmp/x", "git diff --ext-diff", "git log --textconv",
          "tree -o out.txt", "date -s 12:00", "rg -i x", "git show --open-files-in-pager",
          "git log --exec=x", "grep --exec x", "ls --delete", "fd -exec rm", "LS -O x",
          "git diff --in-place", "rg -S x", "git branch new-feature", "git branch -D main",
          "git branches", "git branch-x",
          // The shell drops quotes before the program sees them.
          "rg \"--pre=sh\" x", "rg '--pre' sh x", "cat \"-s\" f", "rg --p''re=sh x",
          // Abbreviated long options, which git accepts.
          "git log --outp=/tmp/x", "git diff --ext x", "git log --textc",
          // Words split by the shell at tabs but not by a reading that splits at spaces.
          "rg x\t--pre=sh", "ls\t-la", "cat\x0b-s f",
          // Empty, unlisted or disguised.
          "", " \n\t ", "lsof", "rm -rf build", "\"ls\" -la", "python3 -c 'print(1)'"})
        EXPECT_FALSE(policy.isReadOnly(command)) << command;

    // Long commands are measured in characters.
    const std::string padded = "ls " + std::string(396, 'a');
    EXPECT_TRUE(policy.isReadOnly(padded)) << "399 characters";
    EXPECT_FALSE(policy.isReadOnly(padded + "a"));
    // Characters, not bytes: 396 two-byte letters make 399 characters.
    std::string accented = "ls ";
    for (int i = 0; i < 396; ++i)
        accented += "\xC3\xA9";
    EXPECT_TRUE(policy.isReadOnly(accented));
    EXPECT_FALSE(policy.isReadOnly(accented + "\xC3\xA9"));
    EXPECT_FALSE(policy.isReadOnly(std::string(100000, 'l')));

    // The safe prefixes are the user's to change.
    GatingPolicy none;
    none.safePrefixes.clear();
    EXPECT_FALSE(none.isReadOnly("ls"));
    EXPECT_TRUE(none.isReadOnly("git branch -vv")) << "the listing-only form needs no prefix";
    GatingPolicy custom;
    custom.safePrefixes = {"make -n"};
    EXPECT_TRUE(custom.isReadOnly("MAKE -N all"));
    EXPECT_FALSE(custom.isReadOnly("make -nq"));
}

TEST(GatingPolicyTest, Verdicts) {
    auto verdict = [](const GatingPolicy& policy, AgentKind agent,
                      std::optional<std::string> command) {
        return policy.evaluate(permissionEvent(agent, std::move(command)));
    };
    GatingPolicy policy;
    EXPECT_EQ(verdict(policy, AgentKind::claude, "ls"), Verdict::ask);
    EXPECT_EQ(verdict(policy, AgentKind::codex, "ls"), Verdict::ask);
    EXPECT_EQ(verdict(policy, AgentKind::cursor, "ls -la"), Verdict::allowSilently);
    EXPECT_EQ(verdict(policy, AgentKind::antigravity, "rm -rf /"), Verdict::ask);
    EXPECT_EQ(verdict(policy, AgentKind::cursor, std::nullopt), Verdict::ask);
    AgentEvent notPermission = permissionEvent(AgentKind::cursor, "ls");
    notPermission.decisionType = DecisionType::reply;
    EXPECT_EQ(policy.evaluate(notPermission), Verdict::passThrough);

    policy.gateCommands[AgentKind::cursor] = false;
    policy.gateCommands[AgentKind::claude] = false;
    EXPECT_EQ(verdict(policy, AgentKind::cursor, "rm -rf /"), Verdict::passThrough);
    EXPECT_EQ(verdict(policy, AgentKind::antigravity, "rm x"), Verdict::ask);
    EXPECT_EQ(verdict(policy, AgentKind::claude, "rm x"), Verdict::ask)
        << "Claude Code is always held";
    policy.gateCommands.erase(AgentKind::cursor);
    EXPECT_EQ(verdict(policy, AgentKind::cursor, "rm x"), Verdict::ask) << "missing means gated";
    // A pause lets through even what would pass as read-only without asking.
    policy.paused = true;
    for (AgentKind agent : allAgentKinds)
        for (const char* command : {"rm -rf /", "ls"})
            EXPECT_EQ(verdict(policy, agent, command), Verdict::passThrough) << command;
}

TEST(GatingPolicyTest, JSONRoundTripAndRequiredKeys) {
    GatingPolicy policy;
    policy.gateCommands[AgentKind::cursor] = false;
    policy.gateCommands.erase(AgentKind::antigravity);
    policy.safePrefixes = {"ls", "make -n"};
    policy.paused = true;
    const std::string json = encodeJSON(policy);
    EXPECT_EQ(json, R"({"gateCommands":{"claude":true,"codex":true,"cursor":false},)"
                    R"("safePrefixes":["ls","make -n"],"paused":true})");
    EXPECT_EQ(decodeJSON<GatingPolicy>(json), policy);

    for (const char* text :
         {R"({"safePrefixes":[],"paused":false})", R"({"gateCommands":{},"paused":false})",
          R"({"gateCommands":{},"safePrefixes":[]})",
          R"({"gateCommands":[],"safePrefixes":[],"paused":false})",
          R"({"gateCommands":{"claude":"yes"},"safePrefixes":[],"paused":false})",
          R"({"gateCommands":{},"safePrefixes":["ls",3],"paused":false})",
          R"({"gateCommands":{},"safePrefixes":[],"paused":0})", R"([])", R"("gating")"})
        EXPECT_EQ(decodeJSON<GatingPolicy>(text), std::nullopt) << text;
}
