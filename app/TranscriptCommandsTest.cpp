// `tidewick transcript` and `tidewick handoff` through the real programs: the
// session is known to the running application (or its saved file), the record
// is read from where the agent wrote it.
#include "TidewickPrograms.h"

#include "foundation/TidewickPaths.h"
#include "transcripts/TranscriptTestSupport.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using ::testing::HasSubstr;
using testing::ProgramResult;
using testing::put;

const std::string claudeId = testing::TidewickPrograms::recordedClaudeId;
const std::string codexId = "01a1fc51-7fe1-70d0-aad1-88fe95216210";

class TranscriptCommands : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        if (!File::exists(testing::recorded + "/claude-transcripts/perm-allow.jsonl"))
            GTEST_SKIP() << "the recorded transcripts are not at " << testing::recorded;
    }

    testing::TidewickPrograms run;
};

TEST_F(TranscriptCommands, PrintTheRecordAndWriteAHandoffForASessionTheApplicationKnows) {
    put(run.home() + "/.codex/sessions/2026/11/21/rollout-2026-11-21T04-16-02-" + codexId +
            ".jsonl",
        File::read(testing::codexRollout("exec")));

    ASSERT_TRUE(run.startApp());
    const std::string transcript = run.recordedClaudeSession();
    // Codex's payload names its rollout too; without it the file is found by the identifier.
    EXPECT_EQ(
        run.hook(
               "codex", "SessionStart",
               R"({"session_id":")" + codexId +
                   R"(","cwd":"/home/dev/work","hook_event_name":"SessionStart","source":"startup"})")
            .waitFor(std::chrono::seconds(15)),
        0);

    const ProgramResult printed = run.succeeded({"transcript", "bc2a"});
    EXPECT_THAT(printed.out, HasSubstr("Claude Code session bc2ae821 — /home/dev/proj\n"));
    EXPECT_THAT(printed.out, HasSubstr("You     clean the build\n"));
    EXPECT_THAT(printed.out, HasSubstr("Tool    ✓ Run rm -rf build && echo removed-ok\n"
                                       "                    removed-ok\n"));
    EXPECT_THAT(printed.out, HasSubstr("Agent   All done.\n"));

    const ProgramResult json =
        run.succeeded({"transcript", "01a1", "--agent", "codex", "--json", "--tail", "2"});
    const JSONValue codex = JSONValue::parse(json.out);
    EXPECT_EQ(*codex.get("userMessages"), JSONValue::integer(1));
    EXPECT_EQ(*codex.get("tokens")->get("total"), JSONValue::integer(30));
    ASSERT_EQ(codex.get("entries")->arrayValue()->size(), 2u);
    EXPECT_EQ(*codex.get("entries")->arrayValue()->at(0).get("tool")->get("failed"),
              JSONValue::boolean(true));

    const ProgramResult written = run.succeeded({"handoff", "bc2a"});
    const std::string handoffs = TidewickPaths(run.home()).handoffsDirectory() + "/";
    ASSERT_THAT(written.out,
                ::testing::StartsWith("Handoff written to " + handoffs + "proj-claude-bc2ae821-"));
    const std::string path = written.out.substr(19, written.out.size() - 20);
    EXPECT_THAT(File::read(path), HasSubstr("claude --resume " + claudeId));
    EXPECT_THAT(run.tidewick({"handoff", codexId, "--output", "-"}).out,
                HasSubstr("codex resume " + codexId));

    // Once the application has stopped, the saved sessions still name the records.
    EXPECT_EQ(run.stopApp(), 0);
    (void)run.succeeded({"handoff", "01a1", "-o", run.home() + "/next.md"});
    EXPECT_THAT(File::read(run.home() + "/next.md"), HasSubstr("`rm -rf build` — failed"));

    std::filesystem::remove(transcript);
    EXPECT_EQ(run.fails({"transcript", "bc2a"}, 1),
              "Tidewick couldn't find Claude Code's record of session bc2ae821.\n");
    EXPECT_EQ(run.tidewick({"transcript", "ffff"}).status, 1);
    EXPECT_EQ(run.tidewick({"transcript", "bc2a", "--tail", "0"}).status, 2);
}

} // namespace
} // namespace tidewick
