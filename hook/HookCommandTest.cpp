#include "HookCommand.h"

#include "FakeProcessTable.h"

#include "foundation/Text.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookServer.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>

namespace tidewick {
namespace {

using testing::FakeProcessTable;

class StringInput final : public InputSource {
public:
    explicit StringInput(std::string data) : data_(std::move(data)) {}
    bool isTerminal() const override { return false; }
    ssize_t read(char* buffer, std::size_t size) override {
        size_t count = std::min(size, data_.size() - offset_);
        std::copy_n(data_.data() + offset_, count, buffer);
        offset_ += count;
        return static_cast<ssize_t>(count);
    }

private:
    std::string data_;
    size_t offset_ = 0;
};

TEST(HookCommand, ArgumentsAreReadOnlyInTheirTwoElementForm) {
    const std::vector<std::string> args{"tidewick-hook", "--agent", "claude", "--event",
                                        "Stop",          "--agent", "codex"};
    EXPECT_EQ(HookCommand::arg(args, "--agent"), "claude") << "the first occurrence wins";
    EXPECT_EQ(HookCommand::arg(args, "--event"), "Stop");
    EXPECT_EQ(HookCommand::arg(args, "tidewick-hook"), "--agent")
        << "the program name is scanned too";
    EXPECT_FALSE(HookCommand::arg(args, "codex")) << "last element";
    EXPECT_FALSE(HookCommand::arg({"x", "--agent=claude"}, "--agent"));
    EXPECT_FALSE(HookCommand::arg({}, "--agent"));
}

TEST(HookCommand, TrimmingCutsLongStringsAtAnyDepthByCharacters) {
    const std::string ellipsis(Text::ellipsis);
    EXPECT_EQ(HookCommand::trimmed(JSONValue("abcd"), 4), JSONValue("abcd"));
    EXPECT_EQ(HookCommand::trimmed(JSONValue("abcde"), 4), JSONValue("abcd" + ellipsis));
    // A flag is one character of eight bytes; an accented letter built from
    // two code points is one character too.
    const std::string flag = "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7";
    const std::string accented = "e\xCC\x81";
    EXPECT_EQ(HookCommand::trimmed(JSONValue(flag + flag + accented), 3),
              JSONValue(flag + flag + accented));
    EXPECT_EQ(HookCommand::trimmed(JSONValue(flag + accented + flag + "z"), 3),
              JSONValue(flag + accented + flag + ellipsis));

    JSONValue tree = JSONValue::parse(
        R"({"long key name":"0123456789","a":[["0123456789",7,1.50,false,null]],"o":{"p":{"q":"xy"}}})");
    EXPECT_EQ(HookCommand::trimmed(tree, 3),
              JSONValue::parse(R"({"long key name":"012…","a":[["012…",7,1.50,false,null]],)"
                               R"("o":{"p":{"q":"xy"}}})"));
}

TEST(HookCommand, FinishingPrintsTextWithALineFeedAndNeverExitsWithTwo) {
    EXPECT_EQ(HookCommand::finish(HookOutput{"x", 2}), (HookCommand::Exit{"x\n", 0}));
    EXPECT_EQ(HookCommand::finish(HookOutput{"{}", 0}), (HookCommand::Exit{"{}\n", 0}));
    EXPECT_EQ(HookCommand::finish(HookOutput{"", 0}), (HookCommand::Exit{"", 0}));
    EXPECT_EQ(HookCommand::finish(HookOutput{"", 1}), (HookCommand::Exit{"", 1}));
    EXPECT_EQ(HookCommand::finish(HookOutput{"no", 3}), (HookCommand::Exit{"no\n", 3}));
}

// The in-process run against a real server, with a hand-made process list:
// the one thing the program tests cannot arrange is an agent as parent.
class HookCommandRun : public ::testing::Test {
protected:
    void SetUp() override {
        secret_ = paths_.loadOrCreateSecret();
        server_ = std::make_unique<HookServer>(
            paths_.socketPath(), secret_, [this](const HookRequest& request, const ClientProbe&) {
                std::lock_guard guard(mutex_);
                requests_.push_back(request);
                return HookResponse{HookOutput{"ok", 0}};
            });
        server_->start();
    }
    void TearDown() override { server_.reset(); }

    HookRequest runUnder(AgentKind agent, const std::string& event, const FakeProcessTable& table) {
        Environment environment({"TIDEWICK_HOME=" + home_.path()});
        StringInput input(R"({"session_id":"s","conversation_id":"c"})");
        HookCommand::Context context{
            .arguments = {"tidewick-hook", "--agent", std::string(rawValue(agent)), "--event",
                          event},
            .environment = environment,
            .input = input,
            .pid = 500,
            .processes = table,
        };
        EXPECT_EQ(HookCommand::run(context), (HookCommand::Exit{"ok\n", 0}));
        std::lock_guard guard(mutex_);
        EXPECT_FALSE(requests_.empty());
        return requests_.empty() ? HookRequest{} : requests_.back();
    }

    testing::TemporaryDirectory home_;
    TidewickPaths paths_{home_.path()};
    std::string secret_;
    std::mutex mutex_;
    std::vector<HookRequest> requests_;
    std::unique_ptr<HookServer> server_;
};

TEST_F(HookCommandRun, AScriptedAgentRunIsNeverHeld) {
    // hook 500 <- sh 400 <- claude (run by node) 300 <- terminal 200
    auto chain = [](std::vector<std::string> claudeCommand) {
        return FakeProcessTable({
            {500, {400, "tidewick-hook", {"tidewick-hook"}}},
            {400, {300, "sh", {"/bin/sh", "-c", "tidewick-hook"}}},
            {300, {200, "node", std::move(claudeCommand)}},
            {200, {1, "kitty", {"kitty"}}},
            {1, {0, "init", {"/sbin/init"}}},
        });
    };
    const std::string cli = "/usr/lib/node_modules/@anthropic-ai/claude-code/cli.js";
    HookRequest scripted = runUnder(AgentKind::claude, "PermissionRequest",
                                    chain({"node", cli, "--model", "opus", "-p", "fix it"}));
    EXPECT_EQ(scripted.agentPid, 300);
    EXPECT_TRUE(scripted.noHold);

    HookRequest interactive =
        runUnder(AgentKind::claude, "PermissionRequest", chain({"node", cli, "--model", "opus"}));
    EXPECT_EQ(interactive.agentPid, 300);
    EXPECT_FALSE(interactive.noHold);

    // Another agent's hook finds no agent of its own kind in this chain.
    HookRequest other = runUnder(AgentKind::codex, "Stop", chain({"node", cli, "-p", "x"}));
    EXPECT_FALSE(other.agentPid);
    EXPECT_FALSE(other.noHold);
}

} // namespace
} // namespace tidewick
