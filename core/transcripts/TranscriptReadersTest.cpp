// The readers on records the real agents wrote: entries and roles in order,
// tool calls paired with their results, token counts. The facts a handoff names
// (project, model, version, branch, the cost record's totals) are pinned by the
// handoff's reviewed documents, which read these same records.
#include "transcripts/ClaudeTranscriptReader.h"
#include "transcripts/CodexTranscriptReader.h"
#include "transcripts/TranscriptTestSupport.h"
#include "transcripts/Transcripts.h"

#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using ::testing::ElementsAreArray;
using ::testing::ThrowsMessage;

const std::string claudeRecords = recorded + "/claude-transcripts/";

TEST(TranscriptReaders, ClaudeCodeRecordsReadAsTheirTurns) {
    struct Row {
        std::string file;
        std::vector<std::string> entries;
    };
    const std::string fed = "Message from the user, sent via Tidewick: hello";
    // clang-format off
    const Row rows[] = {
        {"perm-allow.jsonl", {"user: clean the build", "tool: Run rm -rf build && echo removed-ok -> removed-ok", "agent: All done."}},
        {"stop-block-once.jsonl", {"user: say hi", "agent: First answer.", "system: Stop hook feedback:\n" + fed, "system: Stop hook answered: " + fed, "agent: Second answer (after Stop was blocked)."}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string path = claudeRecords + row.file;
        const Transcript transcript = ClaudeTranscriptReader::read(path, "id");
        EXPECT_THAT(describe(transcript.entries), ElementsAreArray(row.entries));
        EXPECT_EQ(transcript.userMessages, 1) << "Stop hook feedback is not the user's";
        EXPECT_EQ(transcript.turn, TurnState::finished);
        EXPECT_EQ(transcript.unreadableLines, 0);
        EXPECT_EQ(transcript.skippedBytes, 0);
        EXPECT_EQ(transcript.position, static_cast<std::int64_t>(std::filesystem::file_size(path)));
        EXPECT_TRUE(transcript.startedAt);
        EXPECT_LT(transcript.startedAt, transcript.lastActivityAt);
    }
}

TEST(TranscriptReaders, ClaudeSubagentWorkIsKeptApartAndCounted) {
    // Laid out as Claude Code keeps them: the sub-agent's file in "<session>/subagents/".
    TemporaryDirectory home;
    const std::string project = home.path() + "/.claude/projects/-home-dev-proj/";
    const std::string session = "1948e0f2-1c32-4774-a21d-7446ccd76656";
    const std::string agentFile = project + session + "/subagents/agent-a5709cbc8bc982a96";
    put(project + session + ".jsonl", File::read(claudeRecords + "subagent.jsonl"));
    put(agentFile + ".jsonl", File::read(claudeRecords + "subagent.agent.jsonl"));
    // The shape of a ".meta.json" Claude Code 2.1.328 wrote in a run made here.
    put(agentFile + ".meta.json",
        R"({"agentType":"general-purpose","description":"Sub task","toolUseId":"toolu_mock_0_0","finished":true})");

    const Transcript transcript =
        ClaudeTranscriptReader::read(project + session + ".jsonl", session);
    EXPECT_THAT(
        describe(transcript.entries),
        ElementsAreArray({"user: delegate",
                          "tool: Agent: Sub task -> Async agent launched successfully. (This "
                          "tool result is internal metadata \u2014 never quote or paste any "
                          "part of it, including the agentId below, into a user-facing reply.)",
                          "agent: All done.",
                          "system: Agent \"Sub task\" finished: Subagent finished: two entries.",
                          "agent: All done."}));
    EXPECT_EQ(transcript.userMessages, 1) << "the sub-agent's report is not the user's";
    ASSERT_EQ(transcript.subagents.size(), 1u);
    const SubagentThread& thread = transcript.subagents[0];
    EXPECT_EQ(thread.id, "a5709cbc8bc982a96");
    EXPECT_EQ(thread.description, "Sub task");
    EXPECT_EQ(thread.toolCallId, "toolu_mock_0_0");
    EXPECT_THAT(describe(thread.entries),
                ElementsAreArray({"user: SUBAGENT-MARKER: list the files", "tool: Run ls -> build",
                                  "agent: Subagent finished: two entries."}));
    EXPECT_EQ(thread.entries[1].tool->result, "build\nnotes.txt");
    EXPECT_EQ(thread.tokens.total(), 20);
    // Claude Code's cost record counts the sub-agent too: 25 in, 25 out.
    EXPECT_EQ(transcript.tokens.input, 25);
    EXPECT_EQ(transcript.tokens.output, 25);
    EXPECT_EQ(transcript.toolCalls, 1);
}

TEST(TranscriptReaders, CodexRolloutsReadAsTheirTurns) {
    const std::string refused = "exec_command failed: CreateProcess { message: \"Rejected(\\\"";
    const std::string policy = "`/bin/bash -lc 'rm -rf build'` rejected: rm -f style commands are "
                               "not permitted. Use a safer approach\\\")\" }";
    struct Row {
        std::string run;
        std::vector<std::string> entries;
        TokenUse total;
        std::vector<std::optional<std::int64_t>> tokensPerEntry;
    };
    // clang-format off
    const Row rows[] = {
        {"exec", {"user: please clean the build dir", "tool: Run rm -rf build -> " + refused + policy + " [failed]", "agent: Done: tool said " + refused + policy}, {20, 0, 0, 10, 0}, {{}, 15, 15}},
        {"perm-allow", {"user: please clean the build dir", "tool: Run rm -rf build -> Exited with code 0", "agent: Done: tool said Chunk ID: ab5773\nWall time: 0.0000 seconds\nProcess exited with code 0\nOriginal token count: 0\nOutput:\n"}, {20, 0, 0, 10, 0}, {{}, 15, 15}},
        {"stop-block", {"user: please clean the build dir", "tool: Run rm -rf build -> " + refused + "rejected by user\\\")\" } [failed]", "agent: Done: tool said " + refused + "rejected by user\\\")\" }", "system: Hook: Please also run the tests", "agent: Continued: <hook_prompt hook_run_id=\"stop:8:/home/dev/.codex/hooks.json\">Please also run the tests</hook_prompt>"}, {30, 0, 0, 15, 0}, {{}, 15, 15, {}, 15}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.run);
        const std::string path = codexRollout(row.run);
        const Transcript transcript = CodexTranscriptReader::read(path, "id");
        EXPECT_THAT(describe(transcript.entries), ElementsAreArray(row.entries));
        EXPECT_EQ(transcript.tokens, row.total);
        std::vector<std::optional<std::int64_t>> perEntry;
        for (const TranscriptEntry& entry : transcript.entries)
            perEntry.push_back(entry.tokens ? std::optional(entry.tokens->total()) : std::nullopt);
        EXPECT_EQ(perEntry, row.tokensPerEntry);
        EXPECT_EQ(transcript.userMessages, 1);
        EXPECT_EQ(transcript.turn, TurnState::finished);
        EXPECT_EQ(transcript.unreadableLines, 0);
    }
}

TEST(TranscriptReaders, ACodexRolloutIsFoundByItsIdentifierInAnyDayFolderOrNamedAsMissing) {
    TemporaryDirectory home;
    const TranscriptLocations locations(home.path());
    const std::string sessions = home.path() + "/.codex/sessions";
    Session session;
    session.key = {AgentKind::codex, "01a1fc51-7fe1-70d0-aad1-88fe95216210"};
    session.transcriptPath = home.path() + "/gone.jsonl";
    EXPECT_THAT([&] { (void)Transcripts::read(session, locations); },
                ThrowsMessage<TranscriptUnavailable>(
                    "Tidewick couldn't find Codex's record of session 01a1fc51."));
    // The name carries local time, which may fall on another day than the record's UTC.
    const std::string path =
        sessions + "/2026/11/22/rollout-2026-11-22T00-16-02-" + session.key.sessionId + ".jsonl";
    put(path, File::read(codexRollout("exec")));
    put(sessions + "/2026/11/21/rollout-2026-11-21T04-16-19-other.jsonl", "{}\n");
    EXPECT_EQ(CodexTranscriptReader::find(sessions, session.key.sessionId), path);
    EXPECT_EQ(CodexTranscriptReader::find(sessions, "01a1fc51"), std::nullopt);
    EXPECT_EQ(CodexTranscriptReader::find(home.path() + "/nowhere", session.key.sessionId),
              std::nullopt);
    // Once it exists, the missing record is read from there.
    EXPECT_EQ(Transcripts::read(session, locations).userMessages, 1);
}

} // namespace
} // namespace tidewick
