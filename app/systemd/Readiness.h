// Telling the service manager that started the application how it stands:
// systemd waits for "ready" before it counts a Type=notify unit as started.
#pragma once

#include <string_view>

namespace tidewick::Readiness {

/// Tells the service manager (through $NOTIFY_SOCKET) that the application serves now,
/// with `status` for `systemctl status`. Does nothing when no service manager started
/// this process or it cannot be told.
void ready(std::string_view status);

/// Tells it that the application is stopping. Does nothing when none started it.
void stopping();

} // namespace tidewick::Readiness
