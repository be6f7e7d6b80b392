#include "control/ControlProtocol.h"

#include "control/ControlTestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using testing::heldRequest;
using testing::sessionWith;

TEST(ControlProtocol, RequestsRoundTripAndMalformedOnesAreRefused) {
    ControlRequest deny;
    deny.command = ControlCommand::deny;
    deny.session = "abc";
    deny.agent = AgentKind::cursor;
    deny.message = "Not in production, \"please\"\n";
    deny.text = "Run the tests.";
    const std::string line = ControlProtocol::encode(deny, "s3cret");
    ASSERT_EQ(line.back(), '\n');
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "one line, whatever the texts hold";
    auto decoded = ControlProtocol::decodeRequest(line.substr(0, line.size() - 1));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->first, "s3cret");
    EXPECT_EQ(decoded->second, deny);
    ControlRequest answer;
    answer.command = ControlCommand::answer;
    answer.session = "abc";
    answer.answers = {"Blue", "Search, Sync"};
    ControlRequest always;
    always.command = ControlCommand::allowAlways;
    always.session = "abc";
    always.rule = "npm test:*";
    for (const ControlRequest& request : {answer, always}) {
        const std::string encoded = ControlProtocol::encode(request, "s");
        EXPECT_EQ(ControlProtocol::decodeRequest(encoded)->second, request) << encoded;
    }

    for (const char* bad : {
             R"({"v":2,"secret":"s","command":"sessions"})",
             R"({"secret":"s","command":"sessions"})",
             R"({"v":1,"command":"sessions"})",
             R"({"v":1,"secret":"s","command":"erase"})",
             R"({"v":1,"secret":"s","command":"allow","agent":"vim"})",
             R"({"v":1,"secret":"s","command":"allow","agent":3})",
             R"(["v",1])",
             "not json",
         })
        EXPECT_FALSE(ControlProtocol::decodeRequest(bad)) << bad;
    // Mistyped optional fields take their defaults.
    auto lenient = ControlProtocol::decodeRequest(
        R"({"v":1,"secret":"s","command":"deny","session":5,"message":false})");
    ASSERT_TRUE(lenient);
    EXPECT_EQ(lenient->second.session, "");
    EXPECT_FALSE(lenient->second.message);

    deny.text = std::string("caf\xC3", 4);
    EXPECT_THROW((void)ControlProtocol::encode(deny, "s"), std::invalid_argument);
}

TEST(ControlProtocol, RepliesCarrySessionsAndHeldRequests) {
    Session session = sessionWith(AgentKind::claude, "abc",
                                  {heldRequest(PendingKind::permission, "Bash: rm -rf build")});
    session.projectPath = "/home/me/project";
    session.startedAt = dateFromSeconds(1'700'000'000.25);
    session.lastActivityAt = dateFromSeconds(1'700'000'010.75);

    ControlReply listing;
    listing.outcome = ControlOutcome::notDelivered;
    listing.session = session.key;
    listing.message = "Nothing waits.";
    listing.sessions = {session, sessionWith(AgentKind::codex, "def")};
    listing.pending = {{session.key, session.pending[0]}};
    auto decoded = ControlProtocol::decodeReply(ControlProtocol::encode(listing));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(*decoded, listing);

    ControlReply broken;
    broken.message = std::string("\xFF", 1);
    auto fallback = ControlProtocol::decodeReply(ControlProtocol::encode(broken));
    ASSERT_TRUE(fallback);
    EXPECT_EQ(fallback->outcome, ControlOutcome::badRequest);

    for (
        const char* bad : {
            R"({"v":1})",
            R"({"v":1,"outcome":"maybe"})",
            R"({"v":2,"outcome":"done"})",
            R"({"v":1,"outcome":"done","sessions":[{"key":1}]})",
            R"({"v":1,"outcome":"done","pending":[{"session":{"agent":"claude","sessionId":"a"}}]})",
            R"({"v":1,"outcome":"done","session":{"agent":"emacs","sessionId":"a"}})",
            // A deadline beyond what the clock can hold.
            R"({"v":1,"outcome":"done","pending":[{"session":{"agent":"claude","sessionId":"a"},)"
            R"("request":{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","kind":"reply","title":"t",)"
            R"("createdAt":1,"deadline":1e10}}]})",
        })
        EXPECT_FALSE(ControlProtocol::decodeReply(bad)) << bad;
}

} // namespace
} // namespace tidewick
