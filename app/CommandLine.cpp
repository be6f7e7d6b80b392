#include "CommandLine.h"

#include "AppCommand.h"
#include "CommandFailure.h"
#include "ConnectCommands.h"
#include "ControlCommands.h"
#include "DemoCommand.h"
#include "ServiceCommands.h"
#include "SettingsCommands.h"
#include "TranscriptCommands.h"
#include "UsageCommand.h"
#include "UsageError.h"
#include "install/ConnectionError.h"
#include "install/HookConfigError.h"

#include <CLI/CLI.hpp>

#ifndef TIDEWICK_VERSION
#define TIDEWICK_VERSION "0.0.0"
#endif

namespace tidewick {

int runCommandLine(int argc, const char* const* argv, AppContext& context) {
    CLI::App app("Tidewick: a companion for your AI coding agents", "tidewick");
    app.set_version_flag("--version", "tidewick " TIDEWICK_VERSION);
    app.require_subcommand(1);
    app.fallthrough(false);
    // Every command group adds its own subcommands here.
    registerConnectCommands(app, context);
    registerAppCommand(app, context);
    registerControlCommands(app, context);
    registerDemoCommand(app, context);
    registerServiceCommands(app, context);
    registerSettingsCommands(app, context);
    registerTranscriptCommands(app, context);
    registerUsageCommand(app, context);

    Terminal& terminal = context.terminal();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version are "errors" with exit code 0 in CLI11.
        int code = app.exit(error, terminal.out(), terminal.err());
        return code == 0 ? static_cast<int>(ExitStatus::success)
                         : static_cast<int>(ExitStatus::usage);
    } catch (const UsageError& error) {
        terminal.err() << error.what() << "\n";
        return static_cast<int>(ExitStatus::usage);
    } catch (const HookConfigError& error) {
        terminal.err() << error.what() << "\n";
        return static_cast<int>(ExitStatus::refused);
    } catch (const ConnectionError& error) {
        terminal.err() << error.what() << "\n";
        return static_cast<int>(ExitStatus::refused);
    } catch (const CommandFailure& failure) {
        if (*failure.what())
            terminal.err() << failure.what() << "\n";
        return failure.status();
    }
    return static_cast<int>(ExitStatus::success);
}

} // namespace tidewick
