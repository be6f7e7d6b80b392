#include "usage/ClaudeLimitsReader.h"
#include "usage/CodexLimitsReader.h"
#include "usage/UsageText.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"
#include "transcripts/TranscriptTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace tidewick {
namespace {

Date at(double seconds) {
    return dateFromSeconds(seconds);
}

/// "name used% minutes resetsAt" for each window, "-" for what is unknown.
std::vector<std::string> summary(const std::vector<UsageWindow>& windows) {
    std::vector<std::string> lines;
    for (const UsageWindow& w : windows) {
        std::ostringstream line;
        line << w.name << " " << w.usedPercent << " "
             << (w.windowMinutes ? std::to_string(*w.windowMinutes) : "-") << " "
             << (w.resetsAt
                     ? std::to_string(static_cast<std::int64_t>(secondsSince1970(*w.resetsAt)))
                     : "-");
        lines.push_back(line.str());
    }
    return lines;
}

using Lines = std::vector<std::string>;

TEST(ClaudeLimitsReader, ReadsWhatTheStatusLineRecordedAndSaysWhyWhenNothingIsThere) {
    TemporaryDirectory dir;
    const std::string file = dir.path() + "/claude-limits.json";
    struct Row {
        const char* name;
        std::optional<std::string> contents; // nothing: no file
        Lines windows;
        std::string missingStart; // "" when there are windows
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"as recorded", R"({"at":1763700000.5,"rate_limits":{"five_hour":{"used_percentage":87.5,"resets_at":1763712000},"seven_day":{"used_percentage":0.4}}})", {"five_hour 87.5 300 1763712000", "seven_day 0.4 10080 -"}, ""},
        {"other spellings and per-model windows", R"({"rate_limits":{"seven_day_opus":{"utilization":120,"resets_at":"2025-11-21T08:00:00Z"},"hourly":{"used_percentage":-3,"resets_at":1763712000000}}})", {"seven_day_opus 100 10080 1763712000", "hourly 0 - 1763712000"}, ""},
        {"wrong types are left out", R"({"at":"x","rate_limits":{"five_hour":{"used_percentage":"87"},"seven_day":[1],"x":7,"opus":{"used_percentage":12,"resets_at":{"a":1}}}})", {"opus 12 - -"}, ""},
        {"no file", std::nullopt, {}, "No figures from Claude Code yet: they come from its status line"},
        {"no windows", R"({"at":1,"rate_limits":{}})", {}, "No figures from Claude Code yet"},
        {"root not an object", "[1,2]", {}, "No figures from Claude Code yet"},
        {"half written", R"({"at":1763700000,"rate_limits":{"five_hour":{"used_perc)", {}, "Tidewick couldn't read the usage figures in " + file},
        {"not text", std::string("\0\xff\xfe", 3), {}, "Tidewick couldn't read"},
        {"too large to be Tidewick's", R"({"rate_limits":{}, "pad":")" + std::string(2 << 20, 'x') + "\"}", {}, "Tidewick couldn't read the usage figures in " + file + ": it is larger than"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove(file);
        if (row.contents)
            testing::put(file, *row.contents);
        const AgentUsage usage = ClaudeLimitsReader::read(file);
        EXPECT_EQ(usage.agent, AgentKind::claude);
        EXPECT_EQ(summary(usage.windows), row.windows);
        EXPECT_TRUE(usage.missing.starts_with(row.missingStart)) << usage.missing;
        EXPECT_EQ(usage.missing.empty(), row.missingStart.empty()) << usage.missing;
    }
    testing::put(file, R"({"at":1763700000.5,"rate_limits":{"five_hour":{"used_percentage":1}}})");
    EXPECT_EQ(ClaudeLimitsReader::read(file).reportedAt, at(1763700000.5));

    // A folder where the file should be.
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_TRUE(ClaudeLimitsReader::read(file).missing.starts_with("Tidewick couldn't read"));
}

TEST(CodexLimitsReader, ReadsTheLastTokenCountOfARecord) {
    const CodexLimitsReader::RecordLimits recorded =
        CodexLimitsReader::readRecord(testing::codexRollout("exec-rate-limits"));
    EXPECT_TRUE(recorded.reported);
    EXPECT_EQ(summary(recorded.windows),
              (Lines{"primary 42 300 1795488138", "secondary 7.5 10080 1795743738"}));
    ASSERT_TRUE(recorded.reportedAt);
    EXPECT_NEAR(secondsSince1970(*recorded.reportedAt), 1795484538.935, 0.001);

    TemporaryDirectory dir;
    const std::string record = dir.path() + "/rollout.jsonl";
    const std::string good =
        R"({"timestamp":"2026-11-24T01:42:18.915Z","type":"event_msg","payload":{"type":"token_count",)"
        R"("rate_limits":{"primary":{"used_percent":95,"window_minutes":300,"resets_at":null},"secondary":null}}})";
    struct Row {
        const char* name;
        std::string contents;
        bool reported;
        Lines windows;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"a half-written last event is passed over", good + "\n" + R"({"timestamp":"2026-11-24T01:43:00Z","type":"event_msg","payload":{"type":"token_count","rate_li)", true, {"primary 95 300 -"}},
        {"wrong types", good + "\n" + R"({"type":"event_msg","payload":{"type":"token_count","rate_limits":{"primary":{"used_percent":"95","window_minutes":300},"secondary":{"used_percent":12,"window_minutes":"a week","resets_at":"soon"}}}})" "\n", true, {"secondary 12 - -"}},
        {"rate_limits not an object, then garbage", R"({"type":"event_msg","payload":{"type":"token_count","rate_limits":[1]}})" "\n\x01\x02 token_count\n", false, {}},
        {"no token count at all", R"({"type":"session_meta","payload":{}})" "\n", false, {}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        testing::put(record, row.contents);
        const CodexLimitsReader::RecordLimits limits = CodexLimitsReader::readRecord(record);
        EXPECT_EQ(limits.reported, row.reported);
        EXPECT_EQ(summary(limits.windows), row.windows);
    }

    // Only the tail of a long record is read: the event at its end is found all the same.
    testing::put(record, std::string(3 << 20, 'x') + "\n" +
                             R"({"type":"response_item","payload":{"text":")" +
                             std::string(100000, 'y') + "\"}}\n" + good + "\n");
    EXPECT_EQ(summary(CodexLimitsReader::readRecord(record).windows), Lines{"primary 95 300 -"});
    EXPECT_THROW((void)CodexLimitsReader::readRecord(dir.path() + "/none.jsonl"), std::exception);
}

void touch(const std::string& path, double secondsAgo) {
    const auto when = std::filesystem::file_time_type::clock::now() -
                      std::chrono::duration_cast<std::filesystem::file_time_type::duration>(
                          std::chrono::duration<double>(secondsAgo));
    std::filesystem::last_write_time(path, when);
}

TEST(CodexLimitsReader, TakesTheNewestRecordThatReportsAndSaysWhyWhenNoneDoes) {
    TemporaryDirectory dir;
    const std::string sessions = dir.path() + "/sessions";
    EXPECT_EQ(CodexLimitsReader::read(sessions).missing, UsageText::codexNoRecord(sessions));

    const std::string figures = File::read(testing::codexRollout("exec-rate-limits"));
    const std::string noFigures = File::read(testing::codexRollout("exec"));
    auto put = [&](const std::string& day, const std::string& name, const std::string& text,
                   double secondsAgo) {
        const std::string path = sessions + "/" + day + "/rollout-" + name + ".jsonl";
        testing::put(path, text);
        touch(path, secondsAgo);
        return path;
    };
    // Older days are not searched; the newest day with a record that reports is.
    put("2026/10/01", "a", figures, 5);
    put("2026/11/23", "b", figures, 300);
    put("2026/11/24", "c",
        R"({"type":"session_meta"})"
        "\n",
        1);
    AgentUsage usage = CodexLimitsReader::read(sessions);
    EXPECT_EQ(usage.source, sessions + "/2026/11/23/rollout-b.jsonl");
    EXPECT_EQ(usage.windows.size(), 2U);
    EXPECT_TRUE(usage.missing.empty());

    // The newest record that reports decides, even when it says the service sent nothing.
    const std::string newest = put("2026/11/24", "d", noFigures, 2);
    usage = CodexLimitsReader::read(sessions);
    EXPECT_TRUE(usage.windows.empty());
    EXPECT_EQ(usage.missing, UsageText::codexNoneSent(newest));

    // A followed session resumed in an old record is newer still.
    const std::string resumed = dir.path() + "/elsewhere.jsonl";
    testing::put(resumed, figures);
    usage = CodexLimitsReader::read(sessions, {resumed, dir.path() + "/gone.jsonl"});
    EXPECT_EQ(usage.source, resumed);
    EXPECT_EQ(usage.windows.size(), 2U);
}

TEST(UsageWindow, ReadsAsResetPastItsResetTimeAndTellsItsLevel) {
    UsageWindow window{"five_hour", 90.6, 300, at(1000)};
    struct Row {
        double now;
        std::string percent, reset, bar;
        std::optional<UsageLevel> level;
    };
    const std::vector<Row> rows = {
        {1000 - 7800, "90%", "resets in 2h 10m", "█████████░", UsageLevel::critical},
        {999.5, "90%", "resets in 0s", "█████████░", UsageLevel::critical},
        {1000, "reset", "reset", "░░░░░░░░░░", std::nullopt},
        {90000, "reset", "reset", "░░░░░░░░░░", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.now);
        EXPECT_EQ(UsageText::percent(window, at(row.now)), row.percent);
        EXPECT_EQ(UsageText::resetPhrase(window, at(row.now)), row.reset);
        EXPECT_EQ(UsageText::bar(window, at(row.now), 10), row.bar);
        const std::optional<double> used = window.usedAt(at(row.now));
        EXPECT_EQ(used ? std::optional(usageLevel(*used)) : std::nullopt, row.level);
    }
    // The 90 % edge is where alerts start (UsageAlertsTest); 70 % is where the colour changes.
    for (auto [percent, level] : {std::pair{69.9, UsageLevel::normal}, {70.0, UsageLevel::high}})
        EXPECT_EQ(usageLevel(percent), level) << percent;
    EXPECT_EQ(UsageText::bar({"w", 0.2, {}, {}}, at(0), 10), "█░░░░░░░░░");
    for (auto [minutes, name, label] : {std::tuple{300, "primary", "5h"},
                                        {10080, "seven_day_opus", "7d opus"},
                                        {90, "x", "90m"},
                                        {0, "secondary", "secondary"}})
        EXPECT_EQ((UsageWindow{name, 1, minutes, {}}.label()), label) << name;
    for (auto [seconds, text] :
         {std::pair{0.5, "0s"}, {59.0, "59s"}, {3600.0, "1h"}, {93784.0, "1d 2h"}, {-5.0, "0s"}})
        EXPECT_EQ(UsageText::duration(seconds), text) << seconds;
}

} // namespace
} // namespace tidewick
