// `tidewick app` on a real terminal: the interface runs in a tmux pane, held
// requests come from the real hook command, and keys sent to the pane answer
// them.
#include "TidewickPrograms.h"
#include "TmuxTestSupport.h"

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::ProgramResult;

class TerminalApp : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::Tmux::isInstalled())
            GTEST_SKIP() << "tmux is not installed (Debian package tmux): the terminal "
                            "interface tests need it";
        ASSERT_TRUE(testing::TidewickPrograms::built());
        // No session bus: desktop notifications stay off and nothing leaves the test.
        const std::string command = "exec env -i TERM=\"$TERM\" LANG=C.UTF-8 TIDEWICK_HOME='" +
                                    run.home() + "' HOME='" + run.home() + "' '" +
                                    testing::TidewickPrograms::tidewickPath + "' app 2>'" + errors +
                                    "'";
        ASSERT_TRUE(terminal.start("ui", command));
        ASSERT_TRUE(waitForScreen({"0 sessions"}));
    }

    bool waitForScreen(std::initializer_list<std::string> parts) {
        const bool shown = terminal.waitForAll("ui", parts);
        if (!shown)
            ADD_FAILURE() << "standard error: " << (File::exists(errors) ? File::read(errors) : "");
        return shown;
    }

    testing::TidewickPrograms run;
    const std::string errors = File::join(run.home(), "app.err");
    testing::Tmux terminal;
};

TEST_F(TerminalApp, HeldRequestsAreShownAndAnsweredWithKeys) {
    auto& claude = run.hook("claude", "PermissionRequest",
                            R"({"hook_event_name":"PermissionRequest","session_id":"s-claude",)"
                            R"("cwd":"/home/ana/src/webshop","tool_name":"Bash","tool_input":)"
                            R"({"command":"rm -rf build && npm run build"}})");
    ASSERT_TRUE(
        waitForScreen({"Run rm -rf build && npm run build", "⚠ Risk: deletes files for good",
                       "Waiting for you", "Needs permission", "webshop", "1 held"}));
    terminal.keys("ui", {"y"});
    EXPECT_EQ(run.finished(claude),
              "{\"hookSpecificOutput\":{\"hookEventName\":\"PermissionRequest\","
              "\"decision\":{\"behavior\":\"allow\"}}}\n");
    EXPECT_TRUE(waitForScreen({"Allowed: Run rm -rf build"}));

    // A reply chosen from the quick replies.
    auto& codex = run.hook("codex", "Stop",
                           R"({"hook_event_name":"Stop","session_id":"s-codex",)"
                           R"("cwd":"/home/ana/src/api","last_assistant_message":)"
                           R"("The signup checks are in. Anything else?"})");
    ASSERT_TRUE(waitForScreen(
        {"Waiting for your reply", "Waiting for reply", "The signup checks are in."}));
    terminal.keys("ui", {"r"});
    ASSERT_TRUE(waitForScreen({"1 Continue working.", "2 Run the tests."}));
    terminal.keys("ui", {"2"});
    EXPECT_EQ(run.finished(codex),
              "{\"decision\":\"block\",\"reason\":\"Message from the user, sent "
              "via Tidewick: Run the tests.\"}\n");

    // Nothing is held now: q quits at once.
    terminal.keys("ui", {"q"});
    for (int i = 0; i < 100 && terminal.isRunning("ui"); ++i)
        std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(terminal.isRunning("ui")) << terminal.screen("ui");
}

} // namespace
} // namespace tidewick
