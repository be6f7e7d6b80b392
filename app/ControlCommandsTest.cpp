#include "ControlCommands.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(ControlCommands, ListingLinesStayOnOneLine) {
    Session session;
    session.key = {AgentKind::claude, "d4e23369-98ea-4e04"};
    session.status = SessionStatus::needsPermission;
    session.projectPath = "/home/me/project";
    session.currentAction = "Run npm test\nand more";
    session.pending.resize(2);
    EXPECT_EQ(describeSessionLine(session, "d4e23369", 10),
              "Claude Code d4e23369  Needs permission  /home/me/project  Run npm test and more  2 held");
    Session bare;
    bare.key = {AgentKind::antigravity, "g-1"};
    EXPECT_EQ(describeSessionLine(bare, "g-1", 12), "Antigravity g-1         Idle              -");

    PendingRequest request;
    request.kind = PendingKind::permission;
    request.title = "Run rm -rf build";
    request.detail = "rm -rf build\n\nRemove the build";
    request.createdAt = dateFromSeconds(1000);
    request.deadline = dateFromSeconds(1300);
    const HeldRequest held{SessionKey{AgentKind::cursor, "conv-1"}, request};
    EXPECT_EQ(describeHeldLine(held, "conv-1", 10, dateFromSeconds(1000.5)),
              "Cursor      conv-1    permission  Run rm -rf build — rm -rf build  Remove the "
              "build  ⚠ deletes files for good  (300 s left)");
    // Past the deadline (the answer is on its way): never a negative count.
    const std::string late = describeHeldLine(held, "conv-1", 10, dateFromSeconds(2000));
    EXPECT_EQ(late.substr(late.size() - 10), "(0 s left)");
}

} // namespace
} // namespace tidewick
