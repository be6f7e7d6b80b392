// What the hook command prints and the status it exits with.
#pragma once

#include <cstdint>
#include <string>

namespace tidewick {

struct HookOutput {
    /// Printed followed by one line feed; nothing at all is printed when empty.
    std::string stdoutText;
    std::int32_t exitCode = 0;

    /// Print nothing and exit 0: every agent carries on as if there were no hook.
    [[nodiscard]] static HookOutput silent() { return {}; }

    friend bool operator==(const HookOutput&, const HookOutput&) = default;
};

} // namespace tidewick
