// The `service` commands of `tidewick`: Tidewick as a systemd user service that
// runs from login in the background.
#pragma once

#include "AppContext.h"

#include <CLI/CLI.hpp>

namespace tidewick {

/// Adds `service install`, `service uninstall` and `service status` to `app`. Where no
/// user systemd answers, each says so in one sentence, changes nothing and fails with
/// status 1; `status` exits 3 when the service is not running.
void registerServiceCommands(CLI::App& app, AppContext& context);

/// Installs (`enabled`) or removes the user service and records launchAtLogin, saying
/// what it did: `service install`/`uninstall` and `settings set launchAtLogin`. Throws
/// CommandFailure with the sentence when it cannot.
void setLaunchAtLogin(AppContext& context, bool enabled);

} // namespace tidewick
