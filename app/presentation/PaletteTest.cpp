#include "presentation/Palette.h"

#include <gtest/gtest.h>

#include <set>

namespace tidewick {
namespace {

TEST(Palette, DepthFollowsTheTerminalAndTheUsersWish) {
    using enum Palette::Depth;
    using Request = Palette::ColourRequest;
    struct Row {
        int colours;
        Request request;
        const char* noColor;
        Palette::Depth depth;
    };
    for (const Row& row : std::vector<Row>{
             {256, Request::automatic, nullptr, extended},
             {16777216, Request::automatic, nullptr, extended},
             {8, Request::automatic, nullptr, basic},
             {88, Request::automatic, nullptr, basic},
             {2, Request::automatic, nullptr, none},
             {256, Request::never, nullptr, none},    // --no-color
             {256, Request::automatic, "1", none},    // NO_COLOR=1
             {256, Request::automatic, "", extended}, // NO_COLOR= (empty) does not count
         }) {
        SCOPED_TRACE(std::to_string(row.colours) + (row.noColor ? " NO_COLOR" : ""));
        EXPECT_EQ(Palette::depthFor(row.colours, row.request, row.noColor), row.depth);
    }
}

TEST(Palette, EveryStatusHasItsOwnLookAtEveryDepth) {
    for (Palette::Depth depth : {Palette::Depth::extended, Palette::Depth::basic}) {
        const Palette palette(depth);
        std::set<std::tuple<std::optional<short>, bool, bool>> looks;
        for (Tint tint : allTints) {
            const Palette::Look look = palette.look(tint);
            looks.insert({look.colour, look.bold, look.dim});
            if (look.colour) {
                EXPECT_LT(*look.colour, depth == Palette::Depth::basic ? 8 : 256);
            }
        }
        EXPECT_EQ(looks.size(), allTints.size());
    }
    // Without colour, what wants the user is still bold and what is over still dim.
    const Palette plain(Palette::Depth::none);
    for (Tint tint : allTints)
        EXPECT_FALSE(plain.look(tint).colour);
    EXPECT_TRUE(plain.look(Tint::needsYou).bold && plain.look(Tint::error).bold);
    EXPECT_TRUE(plain.look(Tint::ended).dim);
    EXPECT_FALSE(plain.look(Tint::working).bold);

    EXPECT_EQ(tintOf(SessionStatus::waitingReply), tintOf(SessionStatus::needsPermission));
    EXPECT_EQ(tintOf(AvatarPose::needsYou), tintOf(SessionStatus::needsPermission));
}

} // namespace
} // namespace tidewick
