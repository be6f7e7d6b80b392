// `tidewick app` on a real terminal: the interface runs in a tmux pane, held
// requests come from the real hook command, and keys sent to the pane answer
// them.
#include "testing/ProgramRun.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "testing/TemporaryDirectory.h"

#include <atomic>
#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;
using testing::ProgramResult;
using testing::runProgram;

const std::string tidewick = std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick";
const std::string hook = std::string(TIDEWICK_BINARY_DIR) + "/bin/tidewick-hook";
const std::string tmux = "/usr/bin/tmux";

/// A tmux server of our own (its own socket and directory), killed at the end.
class Tmux {
public:
    Tmux() {
        static std::atomic<int> counter{0};
        socket_ = "tw-ui-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    }
    ~Tmux() { (void)run({"kill-server"}); }

    ProgramResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {tmux, "-L", socket_, "-f", "/dev/null"});
        return runProgram(arguments,
                          {"TMUX_TMPDIR=" + directory_.path(), "TERM=xterm-256color",
                           "LANG=C.UTF-8", "PATH=/usr/bin:/bin"},
                          {}, {}, std::chrono::seconds(20));
    }

    /// Starts `command` (a shell command line) in a detached 100×30 pane.
    bool start(const std::string& command) const {
        return run({"new-session", "-d", "-s", "ui", "-x", "100", "-y", "30", command}).status == 0;
    }
    std::string screen() const { return run({"capture-pane", "-p", "-t", "ui"}).out; }
    void keys(std::vector<std::string> keys) const {
        keys.insert(keys.begin(), {"send-keys", "-t", "ui"});
        (void)run(keys);
    }
    bool isRunning() const { return run({"has-session", "-t", "ui"}).status == 0; }

private:
    TemporaryDirectory directory_;
    std::string socket_;
};

class TerminalApp : public ::testing::Test {
protected:
    void SetUp() override {
        if (!File::isExecutableFile(tmux))
            GTEST_SKIP() << "tmux is not installed (Debian package tmux): the terminal "
                            "interface tests need it";
        ASSERT_TRUE(File::isExecutableFile(tidewick) && File::isExecutableFile(hook));
        // No session bus: desktop notifications stay off and nothing leaves the test.
        const std::string command = "exec env -i TERM=\"$TERM\" LANG=C.UTF-8 TIDEWICK_HOME='" +
                                    home.path() + "' HOME='" + home.path() + "' '" + tidewick +
                                    "' app 2>'" + File::join(home.path(), "app.err") + "'";
        ASSERT_TRUE(terminal.start(command));
        ASSERT_TRUE(waitForScreen("0 sessions")) << terminal.screen() << appErrors();
    }

    std::string appErrors() const {
        const std::string path = File::join(home.path(), "app.err");
        return File::exists(path) ? "\nstandard error: " + File::read(path) : "";
    }

    /// Polls the pane until every part shows (generous: a loaded machine, sanitizers).
    bool waitForScreen(std::initializer_list<std::string> parts) {
        for (int i = 0; i < 300; ++i) {
            const std::string screen = terminal.screen();
            bool all = true;
            for (const std::string& part : parts)
                all = all && screen.find(part) != std::string::npos;
            if (all)
                return true;
            std::this_thread::sleep_for(100ms);
        }
        return false;
    }
    bool waitForScreen(const std::string& part) { return waitForScreen({part}); }

    std::future<ProgramResult> sendHook(std::string agent, std::string event, JSONValue payload) {
        return std::async(std::launch::async, [this, agent, event, payload] {
            return runProgram({hook, "--agent", agent, "--event", event},
                              {"TIDEWICK_HOME=" + home.path()}, payload.compact(), {},
                              std::chrono::seconds(120));
        });
    }

    static JSONValue claudePermission(const std::string& session, const std::string& command) {
        return JSONValue::parse(
            R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
            R"(","cwd":"/home/ana/src/webshop","tool_name":"Bash","tool_input":{"command":)" +
            JSONValue::quote(command) + "}}");
    }

    TemporaryDirectory home;
    Tmux terminal;
};

TEST_F(TerminalApp, HeldPermissionIsShownAndAnsweredWithTheAllowAndDenyKeys) {
    auto claude = sendHook("claude", "PermissionRequest",
                           claudePermission("s-claude", "rm -rf build && npm run build"));
    ASSERT_TRUE(
        waitForScreen({"Run rm -rf build && npm run build", "⚠ Risk: deletes files for good",
                       "Waiting for you", "Needs permission", "webshop", "1 held"}))
        << terminal.screen() << appErrors();
    terminal.keys({"y"});
    ASSERT_EQ(claude.wait_for(60s), std::future_status::ready);
    const ProgramResult allowed = claude.get();
    EXPECT_EQ(allowed.status, 0);
    EXPECT_EQ(allowed.out, "{\"hookSpecificOutput\":{\"hookEventName\":\"PermissionRequest\","
                           "\"decision\":{\"behavior\":\"allow\"}}}\n");
    EXPECT_TRUE(waitForScreen("Allowed: Run rm -rf build")) << terminal.screen();

    // A denial with a message typed on the line that the deny key opens.
    auto cursor = sendHook(
        "cursor", "beforeShellExecution",
        JSONValue::parse(R"({"conversation_id":"s-cursor","workspace_roots":)"
                         R"(["/home/ana/src/notes"],"command":"git push --force origin main"})"));
    ASSERT_TRUE(
        waitForScreen({"Run git push --force origin main", "overwrites the remote history"}))
        << terminal.screen();
    terminal.keys({"n"});
    ASSERT_TRUE(waitForScreen("Deny — message for the agent")) << terminal.screen();
    terminal.keys({"-l", "Not on main"});
    terminal.keys({"Enter"});
    ASSERT_EQ(cursor.wait_for(60s), std::future_status::ready);
    const JSONValue denied = JSONValue::parse(cursor.get().out);
    EXPECT_EQ(*denied.get("permission"), JSONValue("deny"));
    EXPECT_EQ(*denied.get("user_message"), JSONValue("Not on main"));

    // Nothing is held now: q quits at once.
    terminal.keys({"q"});
    for (int i = 0; i < 100 && terminal.isRunning(); ++i)
        std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(terminal.isRunning()) << terminal.screen();
}

TEST_F(TerminalApp, ReplyChosenFromTheQuickReplies) {
    auto codex = sendHook("codex", "Stop",
                          JSONValue::parse(R"({"hook_event_name":"Stop","session_id":"s-codex",)"
                                           R"("cwd":"/home/ana/src/api","last_assistant_message":)"
                                           R"("The signup checks are in. Anything else?"})"));
    ASSERT_TRUE(
        waitForScreen({"Waiting for your reply", "Waiting for reply", "The signup checks are in."}))
        << terminal.screen() << appErrors();
    terminal.keys({"r"});
    ASSERT_TRUE(waitForScreen({"1 Continue working.", "2 Run the tests."})) << terminal.screen();
    terminal.keys({"2"});
    ASSERT_EQ(codex.wait_for(60s), std::future_status::ready);
    EXPECT_EQ(codex.get().out, "{\"decision\":\"block\",\"reason\":\"Message from the user, sent "
                               "via Tidewick: Run the tests.\"}\n");
}

TEST_F(TerminalApp, QuittingWithAHeldRequestAsksFirstThenLetsTheAgentAskItself) {
    auto claude = sendHook("claude", "PermissionRequest", claudePermission("s-quit", "make"));
    ASSERT_TRUE(waitForScreen("Run make")) << terminal.screen() << appErrors();
    terminal.keys({"q"});
    ASSERT_TRUE(waitForScreen("1 request is held. Quit anyway?")) << terminal.screen();
    terminal.keys({"n"});
    ASSERT_TRUE(waitForScreen("Still running.")) << terminal.screen();
    terminal.keys({"q"});
    ASSERT_TRUE(waitForScreen("Quit anyway?"));
    terminal.keys({"y"});
    ASSERT_EQ(claude.wait_for(60s), std::future_status::ready);
    const ProgramResult answer = claude.get();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.out, "") << "the time-out answer: Claude Code asks in its own window";
}

} // namespace
} // namespace tidewick
