// The application's answer to one HookRequest.
#pragma once

#include "events/HookOutput.h"

namespace tidewick {

struct HookResponse {
    /// What the hook command prints and the status it exits with.
    HookOutput output;

    friend bool operator==(const HookResponse&, const HookResponse&) = default;
};

} // namespace tidewick
