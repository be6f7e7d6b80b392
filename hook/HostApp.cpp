#include "HostApp.h"

#include "foundation/Text.h"

#include <string_view>

namespace tidewick::HostApp {

namespace {

bool mentions(const Environment& environment, std::string_view name, std::string_view word) {
    auto value = environment.get(name);
    return value && Text::lowercased(*value).find(word) != std::string::npos;
}

// The editors built on VS Code all announce themselves as "vscode"; the
// paths of their helper programs tell them apart.
std::string vscodeFamily(const Environment& environment) {
    if (environment.contains("CURSOR_TRACE_ID"))
        return "cursor";
    for (std::string_view variable : {"VSCODE_GIT_ASKPASS_NODE", "VSCODE_GIT_ASKPASS_MAIN",
                                      "VSCODE_IPC_HOOK_CLI", "VSCODE_CWD", "GIT_ASKPASS"}) {
        for (std::string_view editor :
             {"cursor", "antigravity", "windsurf", "vscodium", "insiders"})
            if (mentions(environment, variable, editor))
                return editor == "insiders" ? "vscode-insiders" : std::string(editor);
    }
    return "vscode";
}

std::string fromTermProgram(std::string_view program) {
    std::string name = Text::lowercased(program);
    struct Known {
        std::string_view termProgram;
        std::string_view identifier;
    };
    static constexpr Known known[] = {
        {"iterm.app", "iterm"},
        {"apple_terminal", "terminal"},
        {"wezterm", "wezterm"},
        {"ghostty", "ghostty"},
        {"warpterminal", "warp"},
        {"hyper", "hyper"},
        {"tabby", "tabby"},
        {"rio", "rio"},
        {"zed", "zed"},
        {"kitty", "kitty"},
        {"alacritty", "alacritty"},
        {"tmux", "tmux"},
        {"screen", "screen"},
        {"lapce", "lapce"},
        {"contour", "contour"},
    };
    for (const Known& entry : known)
        if (name == entry.termProgram)
            return std::string(entry.identifier);
    for (char& c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'))
            c = '-';
    return name;
}

} // namespace

std::optional<std::string> detect(const Environment& environment) {
    auto termProgram = environment.get("TERM_PROGRAM");
    // Editors first: their integrated terminals inherit the variables of
    // whatever terminal started the editor.
    if (termProgram && Text::lowercased(*termProgram) == "vscode")
        return vscodeFamily(environment);
    if (environment.contains("CURSOR_TRACE_ID"))
        return "cursor";
    // An editor's extension runs the agent without a terminal, but with its VSCODE_* variables.
    if (environment.containsPrefix("VSCODE_"))
        return vscodeFamily(environment);
    if (mentions(environment, "TERMINAL_EMULATOR", "jetbrains"))
        return "jetbrains";
    if (environment.contains("ZED_TERM"))
        return "zed";

    // Terminals that set a variable of their own, which survives tmux.
    struct Marker {
        std::string_view variable;
        std::string_view identifier;
    };
    static constexpr Marker markers[] = {
        {"KITTY_WINDOW_ID", "kitty"},
        {"WEZTERM_PANE", "wezterm"},
        {"ITERM_SESSION_ID", "iterm"},
        {"GHOSTTY_RESOURCES_DIR", "ghostty"},
        {"ALACRITTY_WINDOW_ID", "alacritty"},
        {"WARP_IS_LOCAL_SHELL_SESSION", "warp"},
        {"KONSOLE_VERSION", "konsole"},
        {"TILIX_ID", "tilix"},
        {"GNOME_TERMINAL_SCREEN", "gnome-terminal"},
        {"TERMINATOR_UUID", "terminator"},
    };
    for (const Marker& marker : markers)
        if (environment.contains(marker.variable))
            return std::string(marker.identifier);

    // A multiplexer hides the real terminal; report it only when nothing
    // else is known.
    if (termProgram && !termProgram->empty()) {
        std::string name = fromTermProgram(*termProgram);
        if (name != "tmux" && name != "screen")
            return name;
    }
    if (environment.contains("TMUX"))
        return "tmux";
    if (environment.contains("STY"))
        return "screen";
    if (termProgram && !termProgram->empty())
        return fromTermProgram(*termProgram);
    if (auto term = environment.get("TERM")) {
        if (*term == "xterm-kitty")
            return "kitty";
        if (*term == "alacritty")
            return "alacritty";
        if (*term == "foot" || term->starts_with("foot-"))
            return "foot";
    }
    if (environment.contains("XTERM_VERSION"))
        return "xterm";
    if (environment.contains("VTE_VERSION"))
        return "vte";
    return std::nullopt;
}

} // namespace tidewick::HostApp
