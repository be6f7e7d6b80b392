#include "HostApp.h"

#include <gtest/gtest.h>

namespace tidewick {
namespace {

TEST(HostApp, NamesTheTerminalOrEditorByItsOwnVariables) {
    using Variables = std::vector<std::string>;
    // clang-format off
    const std::pair<Variables, std::optional<std::string>> rows[] = {
        {{"TERM_PROGRAM=iTerm.app", "ITERM_SESSION_ID=w0t0p0"}, "iterm"},
        {{"TERM_PROGRAM=Apple_Terminal"}, "terminal"},
        {{"KITTY_WINDOW_ID=1"}, "kitty"},
        {{"TERM_PROGRAM=vscode", "VSCODE_GIT_ASKPASS_NODE=/usr/share/code/code"}, "vscode"},
        {{"TERM_PROGRAM=vscode", "VSCODE_GIT_ASKPASS_NODE=/Applications/Cursor.app/Contents/MacOS/Cursor"}, "cursor"},
        {{"TERM_PROGRAM=vscode", "VSCODE_GIT_ASKPASS_MAIN=/opt/Antigravity/x.js"}, "antigravity"},
        {{"VSCODE_PID=12", "VSCODE_CWD=/home/u"}, "vscode"}, // an editor extension: no TERM_PROGRAM
        {{"TERMINAL_EMULATOR=JetBrains-JediTerm"}, "jetbrains"},
        {{"GNOME_TERMINAL_SCREEN=/org/gnome/Terminal/screen/1"}, "gnome-terminal"},
        {{}, std::nullopt},
        // tmux overwrites TERM_PROGRAM, but the terminal's own variable survives.
        {{"TERM_PROGRAM=tmux", "TMUX=/tmp/tmux-0/default,1,0", "KITTY_WINDOW_ID=2"}, "kitty"},
        {{"TERM_PROGRAM=tmux", "TMUX=/tmp/tmux-0/default,1,0"}, "tmux"},
        {{"STY=123.pts-0.host"}, "screen"},
        // An editor's terminal wins over the terminal the editor was started from.
        {{"TERM_PROGRAM=vscode", "KITTY_WINDOW_ID=2"}, "vscode"},
        // Unknown programs get a stable short name.
        {{"TERM_PROGRAM=My Fancy Term 2"}, "my-fancy-term-2"},
        {{"TERM_PROGRAM=WarpTerminal"}, "warp"},
        {{"TERM_PROGRAM="}, std::nullopt},
    };
    // clang-format on
    for (const auto& [variables, host] : rows) {
        Variables all = variables;
        all.insert(all.end(), {"PATH=/usr/bin", "TERM=xterm-256color"});
        EXPECT_EQ(HostApp::detect(Environment(std::move(all))), host)
            << ::testing::PrintToString(variables);
    }
}

} // namespace
} // namespace tidewick
