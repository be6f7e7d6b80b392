#include "presentation/Palette.h"

#include <gtest/gtest.h>

#include <set>

namespace tidewick {
namespace {

TEST(Palette, DepthFollowsTheTerminalAndTheUsersWishAndEveryStatusLooksItsOwn) {
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
             {2, Request::automatic, nullptr, none},
             {256, Request::never, nullptr, none},    // --no-color
             {256, Request::automatic, "1", none},    // NO_COLOR=1
             {256, Request::automatic, "", extended}, // NO_COLOR= (empty) does not count
         }) {
        SCOPED_TRACE(std::to_string(row.colours) + (row.noColor ? " NO_COLOR" : ""));
        EXPECT_EQ(Palette::depthFor(row.colours, row.request, row.noColor), row.depth);
    }

    for (Palette::Depth depth : {extended, basic, none}) {
        const Palette palette(depth);
        std::set<std::tuple<std::optional<short>, bool, bool>> looks;
        for (Tint tint : allTints) {
            const Palette::Look look = palette.look(tint);
            looks.insert({look.colour, look.bold, look.dim});
            EXPECT_LT(look.colour.value_or(0), depth == extended ? 256 : depth == basic ? 8 : 1);
        }
        // Without colour, weight alone tells: what wants the user is bold, what is over dim.
        EXPECT_EQ(looks.size(), depth == none ? 3 : allTints.size());
    }
}

} // namespace
} // namespace tidewick
