// `tidewick usage` through the real programs: Claude Code's figures as the hook
// command records them from a status line, Codex's from its newest session
// record, and the tokens of a session the running application knows.
#include "TidewickPrograms.h"

#include "foundation/Text.h"
#include "foundation/TidewickPaths.h"
#include "testing/TestFiles.h"
#include "transcripts/TranscriptTestSupport.h"

#include <gmock/gmock.h>
#include <sstream>

namespace tidewick {
namespace {

using ::testing::HasSubstr;
using testing::ProgramResult;

const std::string codexRunId = "01a20b37-d645-7623-a7ce-23e948420d36";

/// What `path` names in `value`: members and array positions separated by "/"; null when
/// there is no such thing.
JSONValue at(const JSONValue& value, const std::string& path) {
    const JSONValue* found = &value;
    std::istringstream steps(path);
    for (std::string step; found && std::getline(steps, step, '/');) {
        const auto* array = found->arrayValue();
        if (!array)
            found = found->get(step);
        else if (const std::size_t index = std::stoul(step); index < array->size())
            found = &(*array)[index];
        else
            found = nullptr;
    }
    return found ? *found : JSONValue();
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
                                codexRunId + ".jsonl";
    testing::put(rollout, record);

    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(
        run.hook(
               "codex", "SessionStart",
               R"({"session_id":")" + codexRunId + R"(","transcript_path":")" + rollout +
                   R"(","cwd":"/home/dev/work","hook_event_name":"SessionStart","source":"startup"})")
            .waitFor(std::chrono::seconds(15)),
        0);

    const ProgramResult json = run.succeeded({"usage", "--json"});
    const JSONValue report = JSONValue::parse(json.out);
    // Each window's name, label, percentage used, level and whether it is reset.
    std::vector<std::string> windows;
    for (const std::string window :
         {"0/windows/0/", "0/windows/1/", "1/windows/0/", "1/windows/1/"}) {
        std::string line;
        for (const char* name : {"name", "label", "usedPercent", "level", "reset"})
            line += at(report, "agents/" + window + name).compact() + " ";
        windows.push_back(line);
    }
    EXPECT_EQ(windows, (std::vector<std::string>{R"("five_hour" "5h" 93.2 "critical" false )",
                                                 R"("seven_day" "7d" null null true )",
                                                 R"("primary" "5h" 42 "normal" false )",
                                                 R"("secondary" "7d" null null true )"}));
    EXPECT_EQ(at(report, "agents/0/source"),
              JSONValue(TidewickPaths(run.home()).claudeLimitsFile()));
    EXPECT_EQ(at(report, "agents/1/source"), JSONValue(rollout));
    EXPECT_TRUE(at(report, "agents/1/ageSeconds").isNumber());
    EXPECT_EQ(at(report, "sessions/0/sessionId"), JSONValue(codexRunId));
    EXPECT_EQ(at(report, "sessions/0/tokens/total").intValue(), 30);

    const ProgramResult text = run.succeeded({"usage"});
    EXPECT_THAT(text.out, HasSubstr("Claude Code · as of "));
    EXPECT_THAT(text.out, HasSubstr("  5h        ██████████████████░░  93%     resets in 2h "));
    EXPECT_THAT(text.out, HasSubstr("  7d        ░░░░░░░░░░░░░░░░░░░░  reset\n"));
    EXPECT_THAT(text.out,
                HasSubstr("  Codex        work                      30 tokens (20 in, 10 out)"));
}

} // namespace
} // namespace tidewick
