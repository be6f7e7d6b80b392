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
    EXPECT_EQ(matchSession(sessions, "abc", std::nullopt).key,
              (SessionKey{AgentKind::claude, "abc"}));
    EXPECT_EQ(matchSession(sessions, "abcd", std::nullopt).key,
              (SessionKey{AgentKind::claude, "abcdef"}));
    EXPECT_EQ(matchSession(sessions, "01", std::nullopt).key,
              (SessionKey{AgentKind::codex, "0199a"}));

    auto ambiguous = matchSession(sessions, "ab", std::nullopt);
    EXPECT_EQ(ambiguous.outcome, ControlOutcome::ambiguous);
    EXPECT_EQ(ambiguous.message, "\"ab\" matches 3 sessions: Claude Code abc, Claude Code abcdef, "
                                 "Cursor abd-cursor. Give more of the identifier or --agent.");

    // --agent narrows the candidates to one.
    EXPECT_EQ(matchSession(sessions, "ab", AgentKind::cursor).key,
              (SessionKey{AgentKind::cursor, "abd-cursor"}));

    auto none = matchSession(sessions, "zz", std::nullopt);
    EXPECT_EQ(none.outcome, ControlOutcome::noMatch);
    EXPECT_EQ(none.message, "No session matches \"zz\".");
    auto otherAgent = matchSession(sessions, "abc", AgentKind::codex);
    EXPECT_EQ(otherAgent.outcome, ControlOutcome::noMatch);
    EXPECT_EQ(otherAgent.message, "No session matches \"abc\" among Codex sessions.");

    EXPECT_EQ(matchSession(sessions, "", std::nullopt).outcome, ControlOutcome::badRequest);
    EXPECT_EQ(matchSession({}, "a", std::nullopt).outcome, ControlOutcome::noMatch);
}

} // namespace
} // namespace tidewick
