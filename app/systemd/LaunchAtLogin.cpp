#include "systemd/LaunchAtLogin.h"

namespace tidewick {

void applyLaunchAtLogin(bool enabled, UserService& service, SettingsFile& settings,
                        UserService::Start start) {
    if (enabled)
        service.install(start);
    else
        (void)service.uninstall();
    TidewickSettings current = settings.current();
    if (current.launchAtLogin == enabled)
        return;
    current.launchAtLogin = enabled;
    settings.save(current);
}

} // namespace tidewick
