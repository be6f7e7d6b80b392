// How connection previews and statuses are shown on the command line.
#pragma once

#include "Terminal.h"
#include "install/ConfigChange.h"
#include "install/ConnectionState.h"

#include <string>
#include <vector>

namespace tidewick {

/// Lines of context shown around each change of a preview.
inline constexpr int previewContext = 3;

/// The preview of `change`: the file, the condensed diff ("+ " added in
/// green, "- " removed in red, "  " kept) and the events added and removed.
[[nodiscard]] std::string describeChange(const ConfigChange& change, const Terminal& terminal);

/// One line for `status`: agent, state (with its reason or missing items),
/// configuration path, evidence and notes.
[[nodiscard]] std::string describeStatus(const ConnectionStatus& status, const Terminal& terminal);

/// The statuses as a pretty JSON array, one object per agent.
[[nodiscard]] std::string statusesAsJSON(const std::vector<ConnectionStatus>& statuses);

} // namespace tidewick
