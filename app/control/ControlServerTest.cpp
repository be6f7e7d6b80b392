#include "control/ControlServer.h"

#include "control/ControlClient.h"
#include "control/ControlTestSupport.h"
#include "testing/TemporaryDirectory.h"
#include "wire/LocalClient.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace tidewick {
namespace {

using testing::FakeTarget;
using testing::heldRequest;
using testing::sessionWith;

ControlRequest decision(ControlCommand command, std::string session) {
    ControlRequest request;
    request.command = command;
    request.session = std::move(session);
    return request;
}

TEST(ControlServer, DecisionsReachTheMatchedSessionAndTheFirstOneWins) {
    FakeTarget target;
    target.all = {
        sessionWith(AgentKind::claude, "abc-1", {heldRequest(PendingKind::permission, "Bash")}),
        sessionWith(AgentKind::cursor, "abd-2", {heldRequest(PendingKind::reply, "Finished")}),
    };

    ControlReply allowed = ControlServer::respond(decision(ControlCommand::allow, "abc"), target);
    EXPECT_EQ(allowed.outcome, ControlOutcome::done);
    EXPECT_EQ(allowed.session, (SessionKey{AgentKind::claude, "abc-1"}));
    ControlReply again = ControlServer::respond(decision(ControlCommand::deny, "abc"), target);
    EXPECT_EQ(again.outcome, ControlOutcome::notDelivered);
    EXPECT_EQ(*again.message, "Claude Code session abc-1 has no permission request waiting, so "
                              "the decision was not delivered.");

    ControlRequest deny = decision(ControlCommand::deny, "abc-1");
    deny.message = "Use the staging database.";
    (void)ControlServer::respond(deny, target);

    ControlRequest reply = decision(ControlCommand::reply, "abd");
    EXPECT_EQ(ControlServer::respond(reply, target).outcome, ControlOutcome::badRequest)
        << "a reply without text";
    reply.text = "Run the tests.";
    EXPECT_EQ(ControlServer::respond(reply, target).outcome, ControlOutcome::done);
    ControlReply late = ControlServer::respond(decision(ControlCommand::letStop, "abd"), target);
    EXPECT_EQ(late.outcome, ControlOutcome::notDelivered);
    EXPECT_EQ(*late.message,
              "Cursor session abd-2 isn't waiting for a reply, so nothing was delivered.");

    // Unmatched and ambiguous identifiers never reach the target.
    const auto callsBefore = target.calls().size();
    EXPECT_EQ(ControlServer::respond(decision(ControlCommand::allow, "ab"), target).outcome,
              ControlOutcome::ambiguous);
    EXPECT_EQ(ControlServer::respond(decision(ControlCommand::allow, "q"), target).outcome,
              ControlOutcome::noMatch);
    EXPECT_EQ(ControlServer::respond(decision(ControlCommand::allow, ""), target).outcome,
              ControlOutcome::badRequest);
    EXPECT_EQ(target.calls().size(), callsBefore);

    auto calls = target.calls();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].what, "allow");
    EXPECT_EQ(calls[1].what, "deny");
    EXPECT_FALSE(calls[1].text);
    EXPECT_EQ(calls[2].what, "deny");
    EXPECT_EQ(calls[2].text, "Use the staging database.");
    EXPECT_EQ(calls[3].what, "reply");
    EXPECT_EQ(calls[3].text, "Run the tests.");
    EXPECT_EQ(calls[3].key, (SessionKey{AgentKind::cursor, "abd-2"}));
    EXPECT_EQ(calls[4].what, "letStop");
}

class ControlSocket : public ::testing::Test {
protected:
    void SetUp() override {
        paths.ensureDirectories();
        secret = paths.loadOrCreateSecret();
        target.all = {sessionWith(AgentKind::claude, "s-1",
                                  {heldRequest(PendingKind::permission, "Bash: ls")})};
    }

    TemporaryDirectory home;
    TidewickPaths paths{home.path()};
    std::string secret;
    FakeTarget target;
};

TEST_F(ControlSocket, TheClientTalksToTheServerOverTheSocket) {
    ControlServer server(paths.controlSocketPath(), secret, target);
    server.start();
    struct stat info {};
    ASSERT_EQ(::stat(paths.controlSocketPath().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    ControlReply sessions = ControlClient::send(decision(ControlCommand::sessions, ""), paths);
    EXPECT_EQ(sessions.sessions, target.all);
    ControlReply pending = ControlClient::send(decision(ControlCommand::pending, ""), paths);
    ASSERT_EQ(pending.pending.size(), 1u);
    EXPECT_EQ(pending.pending[0].second.title, "Bash: ls");

    // Several commands at once, as from several terminals: exactly one delivers.
    std::vector<std::thread> threads;
    std::atomic<int> delivered{0}, refused{0};
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            auto reply = ControlClient::send(decision(ControlCommand::allow, "s-"), paths);
            (reply.outcome == ControlOutcome::done ? delivered : refused)++;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(refused, 7);

    server.stop();
    EXPECT_NE(::access(paths.controlSocketPath().c_str(), F_OK), 0) << "socket file removed";
    EXPECT_THROW((void)ControlClient::send(decision(ControlCommand::sessions, ""), paths),
                 ControlClient::NotRunning);
}

TEST_F(ControlSocket, StrangersLearnNothing) {
    ControlServer server(paths.controlSocketPath(), secret, target);
    server.start();

    // A wrong secret (one byte off, or a different length) is closed without a reply,
    // which the client reports as no application answering.
    for (std::string wrong : {secret.substr(0, secret.size() - 1) + "x", secret + "0"}) {
        auto result = LocalClient::exchange(
            paths.controlSocketPath(),
            ControlProtocol::encode(decision(ControlCommand::sessions, ""), wrong), 1.0, 5.0);
        EXPECT_FALSE(result.line);
        EXPECT_EQ(result.failure, LocalClient::Failure::noAnswer);
    }
    for (std::string garbage : {std::string("{\"v\":2}\n"), std::string("hello\n")}) {
        auto result = LocalClient::exchange(paths.controlSocketPath(), garbage, 1.0, 5.0);
        EXPECT_FALSE(result.line) << garbage;
    }
    EXPECT_TRUE(target.calls().empty());

    // No secret file: nothing can be running for this home.
    TemporaryDirectory other;
    TidewickPaths nobody(other.path());
    try {
        (void)ControlClient::send(decision(ControlCommand::sessions, ""), nobody);
        FAIL() << "expected NotRunning";
    } catch (const ControlClient::NotRunning& error) {
        EXPECT_STREQ(error.what(), "Tidewick isn't running. Start it with `tidewick app`.");
    }
}

} // namespace
} // namespace tidewick
