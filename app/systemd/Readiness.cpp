#include "systemd/Readiness.h"

#include <string>
#include <systemd/sd-daemon.h>

namespace tidewick::Readiness {

void ready(std::string_view status) {
    // The variable stays set: stopping() needs it too.
    (void)sd_notify(0, ("READY=1\nSTATUS=" + std::string(status)).c_str());
}

void stopping() {
    (void)sd_notify(0, "STOPPING=1");
}

} // namespace tidewick::Readiness
