#include "control/SessionMatcher.h"

#include "control/ControlTestSupport.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

using testing::sessionWith;

TEST(SessionMatcher, WholeIdentifierOrUniquePrefixWithinTheAgent) {
    const std::vector<Session> sessions = {
        sessionWith(AgentKind::claude, "abc"),
        sessionWith(AgentKind::claude, "abcdef"),
        sessionWith(AgentKind::cursor, "abd-cursor"),
        sessionWith(AgentKind::codex, "0199a"),
    };

    // A whole identifier wins although it also starts another one.
    auto exact = matchSession(sessions, "abc", std::nullopt);
    ASSERT_EQ(exact.outcome, ControlOutcome::done);
    EXPECT_EQ(*exact.key, (SessionKey{AgentKind::claude, "abc"}));

    auto prefix = matchSession(sessions, "abcd", std::nullopt);
    ASSERT_TRUE(prefix.key);
    EXPECT_EQ(prefix.key->sessionId, "abcdef");
    EXPECT_EQ(matchSession(sessions, "01", std::nullopt).key->agent, AgentKind::codex);

    auto ambiguous = matchSession(sessions, "ab", std::nullopt);
    EXPECT_EQ(ambiguous.outcome, ControlOutcome::ambiguous);
    EXPECT_FALSE(ambiguous.key);
    EXPECT_EQ(ambiguous.message, "\"ab\" matches 3 sessions: Claude Code abc, Claude Code abcdef, "
                                 "Cursor abd-cursor. Give more of the identifier or --agent.");

    // --agent narrows the candidates to one.
    auto narrowed = matchSession(sessions, "ab", AgentKind::cursor);
    ASSERT_EQ(narrowed.outcome, ControlOutcome::done);
    EXPECT_EQ(narrowed.key->sessionId, "abd-cursor");

    auto none = matchSession(sessions, "zz", std::nullopt);
    EXPECT_EQ(none.outcome, ControlOutcome::noMatch);
    EXPECT_EQ(none.message, "No session matches \"zz\".");
    auto otherAgent = matchSession(sessions, "abc", AgentKind::codex);
    EXPECT_EQ(otherAgent.outcome, ControlOutcome::noMatch);
    EXPECT_EQ(otherAgent.message, "No session matches \"abc\" among Codex sessions.");

    EXPECT_EQ(matchSession(sessions, "", std::nullopt).outcome, ControlOutcome::badRequest);
    EXPECT_EQ(matchSession({}, "a", std::nullopt).outcome, ControlOutcome::noMatch);
}

TEST(SessionMatcher, ShortIdentifiersAndDescriptions) {
    EXPECT_EQ(shortSessionId("0b7e6c3a-1111-2222"), "0b7e6c3a");
    EXPECT_EQ(shortSessionId("abc"), "abc");
    EXPECT_EQ(describeSession({AgentKind::cursor, "conv-123456789"}), "Cursor session conv-123");
}

} // namespace
} // namespace tidewick
