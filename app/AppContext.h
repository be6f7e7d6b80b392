// What every `tidewick` command needs: the per-user paths, the home whose
// agent files are edited, the bundled hook command and the terminal.
#pragma once

#include "Terminal.h"
#include "foundation/TidewickPaths.h"
#include "install/ConnectionManager.h"

#include <memory>
#include <optional>
#include <string>

namespace tidewick {

/// Shared by the command groups; built once in main.
class AppContext {
public:
    /// `home` holds both Tidewick's files and the agents' configuration files.
    AppContext(std::string home, std::optional<std::string> bundledHelper, Terminal terminal)
        : home_(std::move(home)), paths_(home_), bundledHelper_(std::move(bundledHelper)),
          terminal_(terminal) {}

    /// The context of this process: TIDEWICK_HOME (else the user's home) for
    /// every file, and the `tidewick-hook` beside this executable.
    [[nodiscard]] static AppContext forCurrentProcess(Terminal terminal);

    [[nodiscard]] const std::string& home() const { return home_; }
    [[nodiscard]] const TidewickPaths& paths() const { return paths_; }
    [[nodiscard]] Terminal& terminal() { return terminal_; }

    /// The connection manager, made on first use (it loads connections.json).
    [[nodiscard]] ConnectionManager& connections();

private:
    std::string home_;
    TidewickPaths paths_;
    std::optional<std::string> bundledHelper_;
    Terminal terminal_;
    std::unique_ptr<ConnectionManager> connections_;
};

/// The directory holding this process's executable (Linux: /proc/self/exe), if known.
[[nodiscard]] std::optional<std::string> ownExecutableDirectory();

} // namespace tidewick
