// The `launchAtLogin` setting and the user service kept in step: turning it on
// installs and starts the service, turning it off removes it.
#pragma once

#include "service/TidewickSettings.h"
#include "systemd/UserService.h"

namespace tidewick {

/// Installs the user service (started as `start` says) when `enabled`, removes it when
/// not, and then records `enabled` as launchAtLogin in `settings`. Whatever sets the
/// setting calls this. Throws UserService::Unavailable (nothing changed),
/// UserService::Failed or SystemError; the setting then stays as it was.
void applyLaunchAtLogin(bool enabled, UserService& service, SettingsFile& settings,
                        UserService::Start start = UserService::Start::now);

} // namespace tidewick
