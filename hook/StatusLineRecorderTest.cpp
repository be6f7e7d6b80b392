#include "StatusLineRecorder.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(StatusLineRecorder, KeepsTheRateLimitWindowsWithTheTime) {
    TemporaryDirectory dir;
    const std::string file =
        dir.path() + "/Library/Application Support/Tidewick/claude-limits.json";
    JSONValue payload =
        JSONValue::parse(R"({"session_id":"s","rate_limits":{)"
                         R"("five_hour":{"used_percentage":87.5,"resets_at":1763712000,"extra":1},)"
                         R"("seven_day":{"utilization":0.4,"resets_at":null},)"
                         R"("opus":{"resets_at":1763712000},"junk":7}})");
    ASSERT_TRUE(StatusLineRecorder::record(
        payload, file, Date(std::chrono::seconds(1763700000) + std::chrono::milliseconds(500))));
    EXPECT_EQ(File::read(file),
              R"({"at":1763700000.5,"rate_limits":{"five_hour":{"used_percentage":87.5,)"
              R"("resets_at":1763712000},"seven_day":{"used_percentage":0.4}}})"
              "\n");
    EXPECT_EQ(testing::modeOf(file), 0600);
    EXPECT_EQ(testing::modeOf(File::parent(file)), 0700);

    // A payload without usable windows leaves the last figures in place.
    for (const char* other : {R"({"session_id":"s"})", R"({"rate_limits":[1]})",
                              R"({"rate_limits":{"five_hour":{"resets_at":1}}})"})
        EXPECT_FALSE(StatusLineRecorder::record(JSONValue::parse(other), file, now())) << other;
    EXPECT_NE(File::read(file).find("87.5"), std::string::npos);
}

} // namespace
} // namespace tidewick
