#include "control/ControlServer.h"

#include "control/ControlClient.h"
#include "control/ControlTestSupport.h"
#include "foundation/FileDescriptor.h"
#include "service/ServiceTestSupport.h"
#include "wire/LineReader.h"
#include "wire/LocalClient.h"
#include "wire/Wire.h"

#include <functional>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

using testing::FakeTarget;
using testing::heldRequest;
using testing::RunningServer;
using testing::sessionWith;

using enum ControlCommand;
using enum ControlOutcome;

/// A request of `command` for `session`, with whatever else `fill` sets.
ControlRequest makeRequest(ControlCommand command, std::string session = {},
                           const std::function<void(ControlRequest&)>& fill = nullptr) {
    ControlRequest built;
    built.command = command;
    built.session = std::move(session);
    if (fill)
        fill(built);
    return built;
}

ControlReply respond(FakeTarget& target, ControlCommand command, std::string session,
                     const std::function<void(ControlRequest&)>& fill = nullptr) {
    return ControlServer::respond(makeRequest(command, std::move(session), fill), target);
}

TEST(ControlServer, DecisionsReachTheMatchedSessionAndTheFirstOneWins) {
    FakeTarget target;
    target.all = {
        sessionWith(AgentKind::claude, "abc-1", {heldRequest(PendingKind::permission, "Bash")}),
        sessionWith(AgentKind::cursor, "abd-2", {heldRequest(PendingKind::reply, "Finished")}),
    };

    ControlReply allowed = respond(target, allow, "abc");
    EXPECT_EQ(allowed.outcome, done);
    EXPECT_EQ(allowed.session, (SessionKey{AgentKind::claude, "abc-1"}));
    EXPECT_EQ(respond(target, deny, "abc").message,
              "Claude Code session abc-1 has no permission request "
              "waiting, so the decision was not delivered.");
    const auto staging = [](ControlRequest& r) { r.message = "Use the staging database."; };
    EXPECT_EQ(respond(target, deny, "abc-1", staging).outcome, notDelivered);
    EXPECT_EQ(respond(target, reply, "abd").outcome, badRequest) << "a reply without text";
    const auto tests = [](ControlRequest& r) { r.text = "Run the tests."; };
    EXPECT_EQ(respond(target, reply, "abd", tests).outcome, done);
    EXPECT_EQ(respond(target, letStop, "abd").message,
              "Cursor session abd-2 isn't waiting for a reply, so nothing was delivered.");
    // Unmatched and ambiguous identifiers never reach the target.
    EXPECT_EQ(respond(target, allow, "ab").outcome, ambiguous);
    EXPECT_EQ(respond(target, allow, "q").outcome, noMatch);

    // What reached the target, with the message or text each decision carried.
    const std::vector<std::tuple<std::string, std::string, std::optional<std::string>>> expected = {
        {"allow", "abc-1", std::nullopt},
        {"deny", "abc-1", std::nullopt},
        {"deny", "abc-1", "Use the staging database."},
        {"reply", "abd-2", "Run the tests."},
        {"letStop", "abd-2", std::nullopt}};
    auto calls = target.calls();
    ASSERT_EQ(calls.size(), expected.size());
    for (std::size_t i = 0; i < calls.size(); ++i)
        EXPECT_EQ(std::tie(calls[i].what, calls[i].key.sessionId, calls[i].text), expected[i]) << i;
}

TEST(ControlServer, PausingSettingsAndForgettingTravelWithTheirSentences) {
    FakeTarget target;
    target.all = {sessionWith(AgentKind::codex, "019a-77"), sessionWith(AgentKind::codex, "019b")};
    target.controlResult = ControlResult::refused("Not now.");
    const ControlRequest requests[] = {
        makeRequest(pause, {}, [](ControlRequest& r) { r.until = dateFromSeconds(1'800'000'600); }),
        makeRequest(resume),
        makeRequest(setting, {},
                    [](ControlRequest& r) {
                        r.setting = "gating.safePrefixes";
                        r.change = SettingCatalog::Change::add;
                        r.text = "make -n";
                    }),
        makeRequest(forget, "019a"),
        makeRequest(forgetAll),
        makeRequest(setting),
    };
    for (const ControlRequest& request : requests) {
        const ControlReply reply = ControlServer::respond(request, target);
        SCOPED_TRACE(rawValue(request.command));
        const bool named = !request.setting.empty() || request.command != setting;
        EXPECT_EQ(reply.outcome, named ? refused : badRequest);
        EXPECT_EQ(reply.message, named ? "Not now." : "Name the setting to change.");
    }
    const std::vector<std::pair<std::string, std::optional<std::string>>> expected = {
        {"pause", "1800000600.000000"},
        {"resume", std::nullopt},
        {"setting", "gating.safePrefixes add make -n"},
        {"forget", std::nullopt},
        {"forgetAll", std::nullopt}};
    const auto calls = target.calls();
    ASSERT_EQ(calls.size(), expected.size());
    for (std::size_t i = 0; i < calls.size(); ++i)
        EXPECT_EQ(std::pair(calls[i].what, calls[i].text), expected[i]) << i;
    EXPECT_EQ(calls[3].key, (SessionKey{AgentKind::codex, "019a-77"}));
}

TEST(ControlServer, LastingAllowsAndAnswersSayWhatTheyDidOrWhyNot) {
    using Kind = SessionActions::Delivery::Kind;
    FakeTarget target;
    PendingRequest question = heldRequest(PendingKind::permission, "Asks");
    question.questions = {{"Which colour?", std::nullopt, {{"Red", {}}, {"Blue", {}}}, false}};
    target.all = {
        sessionWith(AgentKind::claude, "abc-1", {question}),
        sessionWith(AgentKind::codex, "cdx-1", {heldRequest(PendingKind::permission, "Bash")})};
    const auto blue = [](ControlRequest& r) { r.answers = {"Blue"}; };

    // A question is answered, never allowed plainly.
    EXPECT_EQ(respond(target, allow, "abc").message,
              "Claude Code is asking a question: answer it (tidewick answer) or deny it.");
    EXPECT_EQ(respond(target, answer, "abc").outcome, badRequest) << "no answers at all";
    EXPECT_EQ(respond(target, answer, "abc", blue).outcome, done);
    EXPECT_EQ(respond(target, answer, "abc", blue).message,
              "Claude Code session abc-1 isn't asking a question, so nothing was delivered.");
    const auto npm = [](ControlRequest& r) { r.rule = "npm:*"; };
    EXPECT_EQ(respond(target, allowAlways, "cdx", npm).outcome, done);

    struct Case {
        SessionActions::Delivery delivery;
        ControlOutcome outcome;
        std::optional<std::string> message;
    };
    const std::string noRequest = "Codex session cdx-1 has no permission request waiting, so the "
                                  "decision was not delivered.";
    const Case cases[] = {
        {{Kind::delivered, "Allow Bash(npm:*)"}, done, "Allow Bash(npm:*)"},
        {{Kind::delivered, ""}, done, std::nullopt},
        {{Kind::refused, "No lasting rule."}, notDelivered, "No lasting rule."},
        {{Kind::badAnswer, "Give one answer."}, badRequest, "Give one answer."},
        {{Kind::nothingHeld, ""}, notDelivered, noRequest},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.delivery.sentence);
        target.scripted = c.delivery;
        const ControlReply reply = respond(target, allowAlways, "cdx");
        EXPECT_EQ(reply.outcome, c.outcome);
        EXPECT_EQ(reply.message, c.message);
    }
    const auto calls = target.calls();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_EQ(calls[1].text, "Blue");
    EXPECT_EQ(calls[3].what, "allowAlways");
    EXPECT_EQ(calls[3].text, "npm:*");
}

TEST(ControlServer, WhatAListingShowsOfTimeOrderedIdentifiersADecisionAccepts) {
    // Codex sessions started within a minute share their first eight characters.
    FakeTarget target;
    for (const char* id : {"01a20b30-7fe1-70d0-aad1-88fe95216210",
                           "01a20b30-81c4-7a10-b2c3-0d1e2f3a4b5c", "01a20b31-0000-7000-a000-000"})
        target.all.push_back(
            sessionWith(AgentKind::codex, id, {heldRequest(PendingKind::permission, "Bash")}));
    const ControlReply listed = respond(target, pending, {});
    ASSERT_EQ(listed.shortIds.size(), 3u);
    EXPECT_EQ(listed.shortIds.at(target.all[0].key.sessionId), "01a20b30-7");
    EXPECT_EQ(listed.shortIds.at(target.all[2].key.sessionId), "01a20b31");
    for (const Session& session : target.all) {
        SCOPED_TRACE(session.key.sessionId);
        const ControlReply allowed =
            respond(target, allow, listed.shortIds.at(session.key.sessionId));
        EXPECT_EQ(allowed.outcome, done);
        EXPECT_EQ(allowed.session, session.key);
    }
}

TEST(ControlSocket, TheClientTalksToTheServerAndStrangersLearnNothing) {
    FakeTarget target;
    target.all = {
        sessionWith(AgentKind::claude, "s-1", {heldRequest(PendingKind::permission, "Bash: ls")})};
    RunningServer running(target);
    const TidewickPaths& paths = running.paths;
    const std::string& secret = running.secret;

    // A wrong secret (one byte off, or a different length) or a line that is no request
    // is closed without a reply, which the client reports as no application answering.
    for (std::string line : {ControlProtocol::encode(makeRequest(sessions), secret + "0"),
                             ControlProtocol::encode(makeRequest(allow, "s-1"),
                                                     secret.substr(0, secret.size() - 1) +
                                                         (secret.back() == '0' ? "1" : "0")),
                             std::string("{\"v\":2}\n"), std::string("hello\n")}) {
        auto result = LocalClient::exchange(paths.controlSocketPath(), line, 1.0, 5.0);
        EXPECT_FALSE(result.line) << line;
        EXPECT_EQ(result.failure, LocalClient::Failure::noAnswer) << line;
    }
    EXPECT_TRUE(target.calls().empty());

    EXPECT_EQ(ControlClient::send(makeRequest(sessions), paths).sessions, target.all);

    // Several commands at once, as from several terminals: exactly one delivers.
    std::vector<std::thread> threads;
    std::atomic<int> delivered{0}, refused{0};
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            auto reply = ControlClient::send(makeRequest(allow, "s-"), paths);
            (reply.outcome == done ? delivered : refused)++;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(refused, 7);

    running.server->stop();
    EXPECT_NE(::access(paths.controlSocketPath().c_str(), F_OK), 0) << "socket file removed";
    EXPECT_THROW((void)ControlClient::send(makeRequest(sessions), paths),
                 ControlClient::NotRunning);
}

TEST(ControlSocket, CommandsOfAnotherVersionAreToldWhichSideIsOlder) {
    FakeTarget target;
    RunningServer running(target);
    auto exchange = [&](const std::string& line) {
        return LocalClient::exchange(running.paths.controlSocketPath(), line, 1.0, 5.0).line;
    };
    // A command of protocol 1 gets a reply it can read; one of a later version, one in ours.
    struct Row {
        std::string line;
        int version;
        const char* message;
    };
    const Row rows[] = {
        {ControlProtocol::encodeFirstVersionProbe(running.secret), 1,
         "This tidewick command is older than the Tidewick application running (control "
         "protocol 1 for the command, 2 for the application). Use the tidewick that came "
         "with the application, or restart the application with this one."},
        {R"({"v":3,"secret":")" + running.secret + "\",\"command\":\"x\"}\n", 2,
         "The Tidewick application running is older than this tidewick command (control "
         "protocol 3 for the command, 2 for the application). Restart the application so "
         "that both are the same version."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const auto envelope = ControlProtocol::decodeEnvelope(exchange(row.line).value_or(""));
        ASSERT_TRUE(envelope);
        EXPECT_EQ(envelope->version, row.version);
        EXPECT_EQ(envelope->message, row.message);
    }
    // Without the secret a stranger learns nothing, not even the version.
    EXPECT_FALSE(exchange(ControlProtocol::encodeFirstVersionProbe(running.secret + "0")));
    EXPECT_FALSE(exchange(R"({"v":0,"secret":")" + running.secret + "\"}\n"));

    // This command facing an application of protocol 1, which closes later versions' lines
    // without a word and answers its own.
    running.server.reset();
    LocalServer first(
        running.paths.controlSocketPath(),
        [](std::string_view line, const ClientProbe&) -> std::optional<std::string> {
            if (line.find(R"("v":1)") == std::string_view::npos)
                return std::nullopt;
            return "{\"v\":1,\"outcome\":\"done\"}\n";
        },
        LocalServer::Options{});
    first.start();
    EXPECT_THAT([&] { (void)ControlClient::send(makeRequest(pending), running.paths); },
                ::testing::ThrowsMessage<ControlClient::VersionMismatch>(
                    ::testing::StrEq(ControlProtocol::versionMismatchSentence(2, 1))));
    EXPECT_THROW((void)ControlClient::subscribe(running.paths), ControlClient::VersionMismatch);
}

TEST(ControlSocket, ASubscriberThatFallsBehindIsCutOffWithoutHoldingUpTheApplication) {
    FakeTarget target;
    RunningServer running(target);
    ControlClient::Subscription idle = ControlClient::subscribe(running.paths);
    ASSERT_TRUE(testing::eventually([&] { return target.watcherCount() == 1; }));

    // Changes far beyond what the socket buffers and the backlog hold (the connection's
    // thread may take a backlog's worth before it is stuck writing): each is told at once
    // although the subscriber reads nothing.
    Session big = sessionWith(AgentKind::claude, "busy");
    big.title = std::string(4096, 'x');
    for (std::size_t i = 0; i < 2 * ControlServer::subscriberBacklog + 1000; ++i)
        target.change(big);
    EXPECT_TRUE(testing::eventually([&] { return target.watcherCount() == 0; }))
        << "the subscription that fell behind is gone";
    // What it reads ends in the end of the stream; it then subscribes afresh.
    LineReader::Result line;
    do
        line = idle.lines->next(10);
    while (line.status == LineReader::Status::line);
    EXPECT_EQ(line.status, LineReader::Status::closed);
}

} // namespace
} // namespace tidewick
