#include "presentation/Avatar.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <set>

namespace tidewick {
namespace {

/// The built-in avatar's JSON with the member at `path` replaced by (or added as) the JSON
/// `value`, or removed when `value` is empty.
std::string builtInWith(std::vector<std::string> path, std::string_view value) {
    JSONValue root = JSONValue::parse(AvatarDefinition::builtInJSON);
    JSONValue* at = &root;
    for (std::size_t i = 0; i + 1 < path.size(); ++i)
        at = at->get(path[i]);
    if (value.empty())
        at->remove(path.back());
    else
        at->set(path.back(), JSONValue::parse(value));
    return root.compact();
}

TEST(Avatar, TheBuiltInPosesDifferAnimateAtTheirFrameRateAndSleepStill) {
    const AvatarDefinition& avatar = AvatarDefinition::builtIn();
    EXPECT_LE(avatar.width(), 12) << "it fits the header";
    // The poses look different from one another, not only in their words.
    std::set<std::vector<AvatarDefinition::Frame>> looks;
    for (AvatarPose pose : allAvatarPoses)
        looks.insert(avatar.pose(pose).frames);
    EXPECT_EQ(looks.size(), allAvatarPoses.size());

    const Date start = dateFromSeconds(1'800'000'000); // a whole second
    const auto& working = avatar.pose(AvatarPose::working);
    ASSERT_EQ(working.framesPerSecond, 2);
    for (int step = 0; step < 8; ++step) {
        const Date now = addSeconds(start, step * 0.5 + 0.1);
        SCOPED_TRACE(step);
        EXPECT_EQ(avatar.frameAt(AvatarPose::working, now),
                  working.frames[static_cast<std::size_t>(step) % working.frames.size()]);
        EXPECT_EQ(avatar.nextFrameAt(AvatarPose::working, now),
                  addSeconds(start, step * 0.5 + 0.5));
    }
    const Date later = addSeconds(start, 7.3);
    EXPECT_EQ(avatar.frameAt(AvatarPose::sleeping, later),
              avatar.pose(AvatarPose::sleeping).frames.front());
    EXPECT_EQ(avatar.nextFrameAt(AvatarPose::sleeping, later), std::nullopt);
}

TEST(Avatar, AnInvalidDefinitionSaysWhatIsWrong) {
    struct Row {
        std::string json;
        std::string reason;
    };
    const std::vector<Row> rows = {
        {"{\"poses\": ", "it is not JSON: "},
        {"[]", "it is not an avatar definition"},
        {builtInWith({"poses", "idle", "frames"}, "\"(o)\""), "it is not an avatar definition"},
        {builtInWith({"poses", "sleeping"}, "null"), "it is not an avatar definition"},
        {builtInWith({"poses", "sleeping"}, ""), "the pose \"sleeping\" is missing"},
        {builtInWith({"poses", "working", "frames"}, "[]"),
         "the pose \"working\" has 0 frames (1 to 24 fit)"},
        {builtInWith({"poses", "error", "frames"}, R"([["1", "2", "3", "4", "5"]])"),
         "frame 1 of the pose \"error\" has 5 lines (1 to 4 fit)"},
        {builtInWith({"poses", "idle", "frames"}, R"([["ok"], ["a line far too wide for it"]])"),
         "a line of frame 2 of the pose \"idle\" is 26 columns wide (at most 16)"},
        {builtInWith({"poses", "idle", "frames"}, R"([["\u001b[2J"]])"),
         "a line of frame 1 of the pose \"idle\" holds a control character"},
        {builtInWith({"poses", "finished", "expression"}, R"("")"),
         "the pose \"finished\" has no expression"},
        {builtInWith({"poses", "finished", "framesPerSecond"}, "30"),
         "the pose \"finished\" has a framesPerSecond outside 0 to 4"},
        {builtInWith({"sleepAfterSeconds"}, "0"), "its sleepAfterSeconds is less than 1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        try {
            (void)AvatarDefinition::parse(row.json);
            ADD_FAILURE() << "accepted " << row.json;
        } catch (const AvatarDefinition::Invalid& invalid) {
            EXPECT_TRUE(std::string(invalid.what()).starts_with(row.reason)) << invalid.what();
        }
    }

    // A pose this version does not know is passed over.
    const std::string dancing = R"({"frames":[["\\o/"]],"expression":"Dancing"})";
    EXPECT_EQ(AvatarDefinition::parse(builtInWith({"poses", "dancing"}, dancing)),
              AvatarDefinition::builtIn());
}

TEST(Avatar, AFileReplacesTheBuiltInOneUnlessItIsInvalid) {
    TemporaryDirectory home;
    const std::string path = File::join(home.path(), "avatar.json");
    std::vector<std::string> reports;
    auto report = [&reports](const std::string& sentence) { reports.push_back(sentence); };

    EXPECT_EQ(loadAvatar(path, report), AvatarDefinition::builtIn()); // reports nothing

    File::writeAtomically(path, builtInWith({"poses", "idle", "expression"}, R"("Hi!")"), 0600);
    EXPECT_EQ(loadAvatar(path, report).pose(AvatarPose::idle).expression, "Hi!");

    File::writeAtomically(path, builtInWith({"poses", "idle", "expression"}, R"("")"), 0600);
    EXPECT_EQ(loadAvatar(path, report), AvatarDefinition::builtIn());
    EXPECT_EQ(reports, std::vector<std::string>{"Tidewick couldn't use the avatar in " + path +
                                                " because the pose \"idle\" has no expression, "
                                                "so it shows its own."});
}

} // namespace
} // namespace tidewick
