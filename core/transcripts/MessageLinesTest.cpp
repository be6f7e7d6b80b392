// Cursor's agent transcripts and Antigravity's JSON Lines mirror, for which no
// real sample is available here: the records below were made here, in the
// shapes those agents are known to write, and mixed with lines nobody writes.
#include "foundation/JSONValue.h"
#include "transcripts/AntigravityTranscriptReader.h"
#include "transcripts/CursorTranscriptReader.h"
#include "transcripts/RecordedTime.h"
#include "transcripts/TranscriptTestSupport.h"

#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using namespace tidewick::testing;
using ::testing::ElementsAreArray;

TEST(MessageLines, RecognisedShapesAreKeptAndTheRestPassedOver) {
    // Made here: one conversation in each form.
    const std::string jsonLines =
        R"({"role":"user","message":{"content":[{"type":"text","text":"<user_query>\nfix the build\n</user_query>"}]}})"
        "\n"
        R"({"role":"assistant","message":{"content":[{"type":"thinking","thinking":"Look first."},{"type":"text","text":"Running it."},{"type":"tool_use","id":"t1","name":"Shell","input":{"command":"make"}}]}})"
        "\n"
        R"({"role":"tool","tool_call_id":"t1","content":"make: *** No rule","is_error":true})"
        "\n"
        R"({"role":"assistant","content":"Added the rule.","tool_calls":[{"id":"t2","function":{"name":"edit_file","arguments":"{\"path\":\"/w/Makefile\"}"}}],"timestamp":"2026-11-21T05:00:00Z"})"
        "\n"
        R"({"role":"tool","toolCallId":"t2","content":[{"type":"text","text":"ok"}]})"
        "\n"
        R"({"kind":"unknown","payload":[1,2]})"
        "\n"
        R"({"role":"user","content":"thanks"})"
        "\n";
    const std::string plainText = "user:\n<user_query>\nfix the build\n</user_query>\n\n"
                                  "assistant:\n[Thinking] Look first.\nRunning it.\n"
                                  "[Tool call] Shell\n  command: make\n"
                                  "[Tool result] Shell\n  make: *** No rule\n\n"
                                  "assistant:\nAdded the rule.\n\nuser:\nthanks\n";
    struct Row {
        std::string name;
        std::string text;
        std::vector<std::string> entries;
    };
    // clang-format off
    const Row rows[] = {
        {"a.jsonl", jsonLines, {"user: fix the build", "agent: (thinking) Look first.", "agent: Running it.", "tool: Run make -> make: *** No rule [failed]", "agent: Added the rule.", "tool: edit_file Makefile -> ok", "user: thanks"}},
        // The plain form records no outcome: a result is taken as it is.
        {"b.txt", plainText, {"user: fix the build", "agent: (thinking) Look first.\nRunning it.", "tool: Run make -> make: *** No rule", "agent: Added the rule.", "user: thanks"}},
    };
    // clang-format on
    TemporaryDirectory home;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string path =
            home.path() + "/.cursor/projects/home-dev-w/agent-transcripts/" + row.name;
        put(path, row.text);
        const Transcript cursor = CursorTranscriptReader::read(path, "chat");
        EXPECT_THAT(describe(cursor.entries), ElementsAreArray(row.entries));
        EXPECT_EQ(cursor.userMessages, 2);
        EXPECT_EQ(cursor.turn, TurnState::running);
        const std::string id = row.name.substr(0, 1);
        EXPECT_EQ(CursorTranscriptReader::find(home.path() + "/.cursor/projects", id), path);
    }
    // Antigravity's mirror is read the same way.
    put(home.path() + "/mirror.jsonl", jsonLines);
    const Transcript mirror =
        AntigravityTranscriptReader::readMirror(home.path() + "/mirror.jsonl", "c");
    ASSERT_THAT(describe(mirror.entries), ElementsAreArray(rows[0].entries));
    EXPECT_EQ(mirror.failedToolCalls, 1);
    EXPECT_EQ(mirror.lastActivityAt, RecordedTime::parseISO8601("2026-11-21T05:00:00Z"));
    EXPECT_EQ(mirror.entries[5].tool->files,
              (std::vector<FileTouched>{{"/w/Makefile", FileChange::edited}}));
}

TEST(MessageLines, RecordedTimesReadInEveryFormAgentsUse) {
    const Date base = dateFromSeconds(1795234562);
    const std::pair<std::string, std::optional<Date>> rows[] = {
        {"\"2026-11-21T04:16:02Z\"", base},
        {"\"2026-11-21T04:16:02.500Z\"", addSeconds(base, 0.5)},
        {"\"2026-11-21T13:16:02+09:00\"", base},
        {"\"2026-11-21 04:16:02\"", base},
        {"1795234562", base},
        {"1795234562000", base},
        {"1795234562000000", base},
        {"\"2026-13-21T04:16:02Z\"", std::nullopt},
        {"\"yesterday\"", std::nullopt},
        {"1e300", std::nullopt},
        {"null", std::nullopt},
    };
    for (const auto& [text, expected] : rows) {
        SCOPED_TRACE(text);
        const JSONValue value = JSONValue::parse(text);
        EXPECT_EQ(RecordedTime::fromJSON(&value), expected);
    }
}

} // namespace
} // namespace tidewick
