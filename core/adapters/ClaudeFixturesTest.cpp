// Payloads recorded from a real Claude Code run must parse to the events Tidewick shows.
#include "adapters/ClaudeAdapter.h"
#include "foundation/File.h"

#include "adapters/AdapterTestSupport.h"

#include <filesystem>
#include <map>

namespace tidewick {
namespace {

using namespace tidewick::testing;

const std::string fixtures = TIDEWICK_SOURCE_DIR "/../shared/fixtures/claude";

TEST(ClaudeFixtures, EveryRecordedPayloadParsesToTheExpectedEvent) {
    const std::string bash = "rm -rf build && echo removed-ok";
    const std::string notes = "/home/dev/proj/notes.txt", newFile = "/home/dev/proj/new_file.txt";
    // What each recorded file, by name, parses to; nothing means the event is ignored.
    // clang-format off
    std::map<std::string, std::optional<Row>> expected = {
        {"MessageDisplay", std::nullopt},
        {"PostToolBatch", std::nullopt},
        {"PermissionRequest-Bash", Row{"PermissionRequest", "", permissionRequested, "Run " + bash, bash + "\n\nRun a command", "Bash", permission}},
        {"PermissionRequest-Edit", Row{"PermissionRequest", "", permissionRequested, "Edit notes.txt", notes, "Edit", permission}},
        {"PermissionRequest-Write", Row{"PermissionRequest", "", permissionRequested, "Write new_file.txt", newFile, "Write", permission}},
        {"SessionStart", Row{"SessionStart", "", sessionStarted, {}, "startup", {}, none}},
        {"SessionEnd", Row{"SessionEnd", "", sessionEnded, {}, "other", {}, none}},
        {"Stop", Row{"Stop", "", turnFinished, "Finished the turn", "All done.", {}, reply}},
        {"UserPromptSubmit", Row{"UserPromptSubmit", "", userPrompt, "You", "clean the build", {}, none}},
    };
    // A tool call is described alike before and after it runs.
    const std::tuple<std::string, std::string, std::string> tools[] = {{"Bash", "Run " + bash, bash}, {"Edit", "Edit notes.txt", notes}, {"Read", "Read notes.txt", notes}, {"Write", "Write new_file.txt", newFile}};
    for (const auto& [tool, title, detail] : tools) {
        expected["PreToolUse-" + tool] = Row{"PreToolUse", "", toolStarted, title, detail, tool, none};
        expected["PostToolUse-" + tool] = Row{"PostToolUse", "", toolFinished, title, detail, tool, none};
    }
    // clang-format on
    ASSERT_TRUE(std::filesystem::is_directory(fixtures))
        << "The recorded payloads are missing: " << fixtures << " (beside the repository)";
    size_t seen = 0;
    for (const auto& entry : std::filesystem::directory_iterator(fixtures)) {
        if (entry.path().extension() != ".json")
            continue;
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        auto row = expected.find(name);
        ASSERT_NE(row, expected.end()) << "a recorded payload without an expectation";
        ++seen;
        Payload recorded(JSONValue::parse(File::read(entry.path().string())));
        const std::string session = recorded.string("session_id").value_or("");
        const std::string transcript = "/home/dev/.claude/projects/-home-dev-proj/" + session;
        if (!row->second) // the command line names the event as the agent was configured to
            EXPECT_FALSE(ClaudeAdapter().parse(name.substr(0, name.find('-')), recorded));
        else
            expectEvent(ClaudeAdapter(), recorded, *row->second,
                        {session, "/home/dev/proj", transcript + ".jsonl", {}});
    }
    EXPECT_EQ(seen, expected.size());
}

} // namespace
} // namespace tidewick
