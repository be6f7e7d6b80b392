// The commands that talk to the running application over its control socket:
// `sessions`, `pending`, `allow` (also `--always`), `deny`, `answer`, `reply` and
// `let-stop`.
#pragma once

#include "AppContext.h"
#include "control/ControlProtocol.h"

#include <CLI/CLI.hpp>

namespace tidewick {

/// Adds the control commands (sessions, pending, allow, deny, reply, end, let-stop and those
/// of lasting allows and answers) to `app`. Their callbacks throw CommandFailure: status 1
/// when a decision was not delivered or no session matches, 2 for an ambiguous or empty
/// session identifier, 3 when no application answers.
void registerControlCommands(CLI::App& app, AppContext& context);

/// One line for `tidewick sessions`: agent, short identifier (padded to `idWidth`
/// characters), status, project, current action and the number of held requests.
[[nodiscard]] std::string describeSessionLine(const Session& session, std::string_view shortId,
                                              std::size_t idWidth);

/// One line for `tidewick pending`: agent, short identifier, kind, title, detail, the risk
/// of a command when it has one, and the seconds left before the time-out at `now`.
[[nodiscard]] std::string describeHeldLine(const HeldRequest& held, std::string_view shortId,
                                           std::size_t idWidth, Date now);

} // namespace tidewick
