// `tidewick usage` through the real programs: Claude Code's figures as the hook
// command records them from a status line, Codex's from its newest session
// record, and the tokens of a session the running application knows.
#include "TidewickPrograms.h"

#include "foundation/Text.h"
#include "foundation/TidewickPaths.h"
#include "testing/TestFiles.h"
#include "transcripts/TranscriptTestSupport.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using ::testing::HasSubstr;
using testing::ProgramResult;

const std::string codexId = "01a20b37-d645-7623-a7ce-23e948420d36";

const JSONValue& member(const JSONValue& value, std::string_view name) {
    static const JSONValue none;
    const JSONValue* found = value.get(name);
    return found ? *found : none;
}

const JSONValue& element(const JSONValue& value, std::size_t index) {
    static const JSONValue none;
    const auto* array = value.arrayValue();
    return array && index < array->size() ? (*array)[index] : none;
}

TEST(UsageCommand, ShowsEachAgentsWindowsAndTheSessionsTokens) {
    if (!testing::TidewickPrograms::built())
        GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
    testing::TidewickPrograms run;

    // Nothing recorded yet: each agent says why in one line.
    const ProgramResult empty = run.succeeded({"usage"});
    EXPECT_THAT(empty.out, HasSubstr("they come from its status line"));
    EXPECT_THAT(empty.out, HasSubstr("they come from its session records"));

    // The status line as Claude Code runs it for a subscriber; its weekly window is over.
    run.claudeStatusLine(7800, -60);

    // Codex's record with its windows moved to now: the weekly one is over.
    std::string record = File::read(testing::codexRollout("exec-rate-limits"));
    record = Text::replacingAll(record, "1795488138", testing::secondsFromNow(3600));
    record = Text::replacingAll(record, "1795743738", testing::secondsFromNow(-60));
    const std::string rollout = run.home() +
                                "/.codex/sessions/2026/11/24/rollout-2026-11-24T01-42-18-" +
                                codexId + ".jsonl";
    testing::put(rollout, record);

    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(
        run.hook(
               "codex", "SessionStart",
               R"({"session_id":")" + codexId + R"(","transcript_path":")" + rollout +
                   R"(","cwd":"/home/dev/work","hook_event_name":"SessionStart","source":"startup"})")
            .waitFor(std::chrono::seconds(15)),
        0);

    const ProgramResult json = run.succeeded({"usage", "--json"});
    const JSONValue report = JSONValue::parse(json.out);
    const JSONValue& claude = element(member(report, "agents"), 0);
    const JSONValue& codex = element(member(report, "agents"), 1);
    struct Row {
        const JSONValue& window;
        std::string name, label;
        std::optional<double> used;
        std::string level;
        bool reset;
    };
    const std::vector<Row> rows = {
        {element(member(claude, "windows"), 0), "five_hour", "5h", 93.2, "critical", false},
        {element(member(claude, "windows"), 1), "seven_day", "7d", std::nullopt, "", true},
        {element(member(codex, "windows"), 0), "primary", "5h", 42.0, "normal", false},
        {element(member(codex, "windows"), 1), "secondary", "7d", std::nullopt, "", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(member(row.window, "name"), JSONValue(row.name));
        EXPECT_EQ(member(row.window, "label"), JSONValue(row.label));
        EXPECT_EQ(member(row.window, "usedPercent").doubleValue(), row.used);
        const std::string* level = member(row.window, "level").stringValue();
        EXPECT_EQ(level ? *level : "", row.level);
        EXPECT_EQ(member(row.window, "reset").boolValue(), row.reset);
    }
    EXPECT_EQ(member(claude, "source"), JSONValue(TidewickPaths(run.home()).claudeLimitsFile()));
    EXPECT_EQ(member(codex, "source"), JSONValue(rollout));
    EXPECT_TRUE(member(codex, "ageSeconds").isNumber());
    const JSONValue& session = element(member(report, "sessions"), 0);
    EXPECT_EQ(member(session, "sessionId"), JSONValue(codexId));
    EXPECT_EQ(member(member(session, "tokens"), "total").intValue(), 30);

    const ProgramResult text = run.succeeded({"usage"});
    EXPECT_THAT(text.out, HasSubstr("Claude Code · as of "));
    EXPECT_THAT(text.out, HasSubstr("  5h        ██████████████████░░  93%     resets in 2h "));
    EXPECT_THAT(text.out, HasSubstr("  7d        ░░░░░░░░░░░░░░░░░░░░  reset\n"));
    EXPECT_THAT(text.out,
                HasSubstr("  Codex        work                      30 tokens (20 in, 10 out)"));
}

} // namespace
} // namespace tidewick
