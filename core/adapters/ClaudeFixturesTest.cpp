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

const std::string bash = "rm -rf build && echo removed-ok";
const std::string notes = "/home/dev/proj/notes.txt";
const std::string newFile = "/home/dev/proj/new_file.txt";

// Every recorded file, by name; nothing means the event must be ignored.
const std::map<std::string, std::optional<Row>> expectations = {
    {"MessageDisplay", std::nullopt},
    {"PostToolBatch", std::nullopt},
    {"PermissionRequest-Bash",
     Row{"PermissionRequest", "", EventKind::permissionRequested, "Run " + bash,
         bash + "\n\nRun a command", "Bash", HoldKind::permission}},
    {"PermissionRequest-Edit", Row{"PermissionRequest", "", EventKind::permissionRequested,
                                   "Edit notes.txt", notes, "Edit", HoldKind::permission}},
    {"PermissionRequest-Write", Row{"PermissionRequest", "", EventKind::permissionRequested,
                                    "Write new_file.txt", newFile, "Write", HoldKind::permission}},
    {"PreToolUse-Bash",
     Row{"PreToolUse", "", EventKind::toolStarted, "Run " + bash, bash, "Bash", HoldKind::none}},
    {"PreToolUse-Edit", Row{"PreToolUse", "", EventKind::toolStarted, "Edit notes.txt", notes,
                            "Edit", HoldKind::none}},
    {"PreToolUse-Read", Row{"PreToolUse", "", EventKind::toolStarted, "Read notes.txt", notes,
                            "Read", HoldKind::none}},
    {"PreToolUse-Write", Row{"PreToolUse", "", EventKind::toolStarted, "Write new_file.txt",
                             newFile, "Write", HoldKind::none}},
    {"PostToolUse-Bash",
     Row{"PostToolUse", "", EventKind::toolFinished, "Run " + bash, bash, "Bash", HoldKind::none}},
    {"PostToolUse-Edit", Row{"PostToolUse", "", EventKind::toolFinished, "Edit notes.txt", notes,
                             "Edit", HoldKind::none}},
    {"PostToolUse-Read", Row{"PostToolUse", "", EventKind::toolFinished, "Read notes.txt", notes,
                             "Read", HoldKind::none}},
    {"PostToolUse-Write", Row{"PostToolUse", "", EventKind::toolFinished, "Write new_file.txt",
                              newFile, "Write", HoldKind::none}},
    {"SessionStart", Row{"SessionStart", "", EventKind::sessionStarted, std::nullopt, "startup",
                         std::nullopt, HoldKind::none}},
    {"SessionEnd", Row{"SessionEnd", "", EventKind::sessionEnded, std::nullopt, "other",
                       std::nullopt, HoldKind::none}},
    {"Stop", Row{"Stop", "", EventKind::turnFinished, "Finished the turn", "All done.",
                 std::nullopt, HoldKind::reply}},
    {"UserPromptSubmit", Row{"UserPromptSubmit", "", EventKind::userPrompt, "You",
                             "clean the build", std::nullopt, HoldKind::none}},
};

TEST(ClaudeFixtures, EveryRecordedPayloadParsesToTheExpectedEvent) {
    ASSERT_TRUE(std::filesystem::is_directory(fixtures))
        << "The recorded payloads are missing: expected them in " << fixtures
        << " (the shared/ folder beside the repository).";
    ClaudeAdapter claude;
    size_t seen = 0;
    for (const auto& entry : std::filesystem::directory_iterator(fixtures)) {
        if (entry.path().extension() != ".json")
            continue;
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        auto expected = expectations.find(name);
        ASSERT_NE(expected, expectations.end()) << "a recorded payload without an expectation";
        ++seen;
        // The command line names the event as the agent was configured to; the payload agrees.
        const std::string event = name.substr(0, name.find('-'));
        Payload recorded(JSONValue::parse(File::read(entry.path().string())));
        auto parsed = claude.parse(event, recorded);
        if (!expected->second) {
            EXPECT_FALSE(parsed);
            continue;
        }
        ASSERT_TRUE(parsed);
        expectRow(claude, recorded, *expected->second);
        EXPECT_EQ(parsed->event.projectPath, "/home/dev/proj");
        EXPECT_EQ(parsed->event.sessionId, *recorded.string("session_id"));
        EXPECT_EQ(parsed->event.transcriptPath, "/home/dev/.claude/projects/-home-dev-proj/" +
                                                    parsed->event.sessionId + ".jsonl");
        EXPECT_EQ(parsed->event.model, std::nullopt);
    }
    EXPECT_EQ(seen, expectations.size());
}

} // namespace
} // namespace tidewick
