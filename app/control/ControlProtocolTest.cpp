#include "control/ControlProtocol.h"

#include "control/ControlTestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using testing::heldRequest;
using testing::sessionWith;

TEST(ControlProtocol, RequestsRoundTripAndMalformedOnesAreRefused) {
    // Every field set, whatever the command: each crosses as it was, on one line.
    ControlRequest full;
    full.command = ControlCommand::deny;
    full.session = "abc";
    full.agent = AgentKind::cursor;
    full.message = "Not in production, \"please\"\n";
    full.text = "Run the tests.";
    full.rule = "npm test:*";
    full.answers = {"Blue", "Search, Sync"};
    full.step = 4096;
    full.until = dateFromSeconds(1'800'000'600);
    full.setting = "gating.safePrefixes";
    full.change = SettingCatalog::Change::add;
    const std::string line = ControlProtocol::encode(full, "s3cret");
    ASSERT_EQ(line.back(), '\n');
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    auto decoded = ControlProtocol::decodeRequest(line.substr(0, line.size() - 1));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->first, "s3cret");
    EXPECT_EQ(decoded->second, full);
    // Found by the fuzz program: a change named without its setting.
    ControlRequest unnamed;
    unnamed.command = ControlCommand::setting;
    unnamed.change = SettingCatalog::Change::add;
    EXPECT_EQ(ControlProtocol::decodeRequest(ControlProtocol::encode(unnamed, "s"))->second,
              unnamed);
    // Found by the fuzz program: a date finer than the millisecond dates are written to.
    const auto fine = ControlProtocol::decodeRequest(
        R"({"v":2,"secret":"s","command":"pause","until":1763.7630050})");
    ASSERT_TRUE(fine);
    EXPECT_EQ(ControlProtocol::decodeRequest(ControlProtocol::encode(fine->second, "s"))->second,
              fine->second);

    for (const char* bad : {
             R"({"v":1,"secret":"s","command":"sessions"})",
             R"({"secret":"s","command":"sessions"})",
             R"({"v":2,"command":"sessions"})",
             R"({"v":2,"secret":"s","command":"erase"})",
             R"({"v":2,"secret":"s","command":"allow","agent":"vim"})",
             R"({"v":2,"secret":"s","command":"allow","agent":3})",
             R"(["v",1])",
             "not json",
         })
        EXPECT_FALSE(ControlProtocol::decodeRequest(bad)) << bad;
    // Mistyped optional fields take their defaults.
    auto lenient = ControlProtocol::decodeRequest(
        R"({"v":2,"secret":"s","command":"deny","session":5,"message":false})");
    ASSERT_TRUE(lenient);
    EXPECT_EQ(lenient->second.session, "");
    EXPECT_FALSE(lenient->second.message);

    full.text = std::string("caf\xC3", 4);
    EXPECT_THROW((void)ControlProtocol::encode(full, "s"), std::invalid_argument);
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
            R"({"v":2})",
            R"({"v":2,"outcome":"maybe"})",
            R"({"v":1,"outcome":"done"})",
            R"({"v":2,"outcome":"done","sessions":[{"key":1}]})",
            R"({"v":2,"outcome":"done","pending":[{"session":{"agent":"claude","sessionId":"a"}}]})",
            R"({"v":2,"outcome":"done","session":{"agent":"emacs","sessionId":"a"}})",
            // A deadline beyond what the clock can hold.
            R"({"v":2,"outcome":"done","pending":[{"session":{"agent":"claude","sessionId":"a"},)"
            R"("request":{"id":"0f8fad5b-d9cb-469f-a165-70867728950e","kind":"reply","title":"t",)"
            R"("createdAt":1,"deadline":1e10}}]})",
        })
        EXPECT_FALSE(ControlProtocol::decodeReply(bad)) << bad;
}

TEST(ControlProtocol, EventsCarryChangesAndAlertsWhateverTheirTexts) {
    Session session = sessionWith(AgentKind::codex, "abc",
                                  {heldRequest(PendingKind::reply, "Finished its turn")});
    session.startedAt = session.lastActivityAt = dateFromSeconds(1'700'000'000.5);
    Alert alert{.kind = Alert::Kind::needsPermission,
                .session = session.key,
                .title = "Run ls",
                .detail = "ls -la",
                .requestId = session.pending[0].id,
                .alsoHeld = 2,
                .bell = true};
    using Kind = ControlEvent::Kind;
    const std::vector<ControlEvent> events = {
        {Kind::change, StoreChange::changed(session), std::nullopt},
        {Kind::change, StoreChange::pendingChanged(session.key, session.pending), std::nullopt},
        {Kind::change, StoreChange::pendingChanged(session.key, {}), std::nullopt},
        {Kind::change, StoreChange::removed(session.key), std::nullopt},
        {Kind::alert, std::nullopt, alert},
        {Kind::alert, std::nullopt,
         Alert{.kind = Alert::Kind::error,
               .session = session.key,
               .title = "The agent hit an error",
               .detail = std::nullopt,
               .requestId = std::nullopt,
               .informational = true}},
        {Kind::ready, std::nullopt, std::nullopt},
    };
    for (const ControlEvent& event : events) {
        const std::string line = ControlProtocol::encode(event);
        SCOPED_TRACE(line);
        EXPECT_EQ(line.find('\n'), line.size() - 1);
        EXPECT_EQ(ControlProtocol::decodeEvent(line), event);
    }
    // A text that is not UTF-8 is repaired rather than costing the stream its line.
    session.title = std::string("caf\xC3", 4);
    const auto repaired = ControlProtocol::decodeEvent(
        ControlProtocol::encode(ControlEvent{Kind::change, StoreChange::changed(session), {}}));
    ASSERT_TRUE(repaired);
    EXPECT_EQ(repaired->change->session->title, "caf\uFFFD");
    for (
        const char* bad : {
            R"({"v":2,"event":"change"})",
            R"({"v":2,"event":"alert"})",
            R"({"v":2,"event":"change","change":{"kind":"session","key":{"agent":"codex","sessionId":"a"}}})",
            R"({"v":2,"event":"wave"})",
            R"({"v":1,"event":"ready"})",
        })
        EXPECT_FALSE(ControlProtocol::decodeEvent(bad)) << bad;
}

TEST(ControlProtocol, EnvelopesWithoutAVersionNumberAreRefused) {
    // The first version's probe, and what each side of another version is told, are checked
    // through the socket.
    for (const char* bad : {R"({"v":"2"})", R"({"secret":"s"})", "[2]", "v2"})
        EXPECT_FALSE(ControlProtocol::decodeEnvelope(bad)) << bad;
}

} // namespace
} // namespace tidewick
