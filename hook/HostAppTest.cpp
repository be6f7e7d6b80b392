#include "HostApp.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

std::optional<std::string> hostOf(std::vector<std::string> variables) {
    variables.push_back("PATH=/usr/bin");
    variables.push_back("TERM=xterm-256color");
    return HostApp::detect(Environment(std::move(variables)));
}

TEST(HostApp, NamesTerminalsAndEditorsByTheirOwnVariables) {
    EXPECT_EQ(hostOf({"TERM_PROGRAM=iTerm.app", "ITERM_SESSION_ID=w0t0p0"}), "iterm");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=Apple_Terminal"}), "terminal");
    EXPECT_EQ(hostOf({"KITTY_WINDOW_ID=1"}), "kitty");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=vscode", "VSCODE_GIT_ASKPASS_NODE=/usr/share/code/code"}),
              "vscode");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=vscode",
                      "VSCODE_GIT_ASKPASS_NODE=/Applications/Cursor.app/Contents/MacOS/Cursor"}),
              "cursor");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=vscode", "VSCODE_GIT_ASKPASS_MAIN=/opt/Antigravity/x.js"}),
              "antigravity");
    EXPECT_EQ(hostOf({"VSCODE_PID=12", "VSCODE_CWD=/home/u"}), "vscode")
        << "an editor extension runs the agent without TERM_PROGRAM";
    EXPECT_EQ(hostOf({"TERMINAL_EMULATOR=JetBrains-JediTerm"}), "jetbrains");
    EXPECT_EQ(hostOf({"GNOME_TERMINAL_SCREEN=/org/gnome/Terminal/screen/1"}), "gnome-terminal");
    EXPECT_FALSE(hostOf({}));
}

TEST(HostApp, SeesThroughMultiplexers) {
    // tmux overwrites TERM_PROGRAM, but the terminal's own variable survives.
    EXPECT_EQ(hostOf({"TERM_PROGRAM=tmux", "TMUX=/tmp/tmux-0/default,1,0", "KITTY_WINDOW_ID=2"}),
              "kitty");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=tmux", "TMUX=/tmp/tmux-0/default,1,0"}), "tmux");
    EXPECT_EQ(hostOf({"STY=123.pts-0.host"}), "screen");
    // An editor's terminal wins over the terminal the editor was started from.
    EXPECT_EQ(hostOf({"TERM_PROGRAM=vscode", "KITTY_WINDOW_ID=2"}), "vscode");
}

TEST(HostApp, UnknownProgramsGetAStableShortName) {
    EXPECT_EQ(hostOf({"TERM_PROGRAM=My Fancy Term 2"}), "my-fancy-term-2");
    EXPECT_EQ(hostOf({"TERM_PROGRAM=WarpTerminal"}), "warp");
    EXPECT_FALSE(hostOf({"TERM_PROGRAM="}));
}

} // namespace
} // namespace tidewick
