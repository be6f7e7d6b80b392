// `tidewick transcript` and `tidewick handoff`: show a session's record as its
// agent kept it, and write the document another agent carries on from.
#pragma once

#include "AppContext.h"
#include "sessions/Session.h"
#include "transcripts/Transcript.h"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// Adds `transcript SESSION [--json] [--tail N] [--agent A]` and `handoff SESSION
/// [--output FILE] [--agent A]`. The session is matched among the running application's
/// sessions (or, when none runs, those saved in the sessions file) as `tidewick allow`
/// matches it; its record is then read here. Their callbacks throw CommandFailure (status
/// 1) when the record cannot be found or read or the handoff cannot be written, UsageError
/// for an ambiguous or empty identifier.
void registerTranscriptCommands(CLI::App& app, AppContext& context);

/// The running application's sessions, or, when none runs, those saved in the sessions
/// file (none when it cannot be read).
[[nodiscard]] std::vector<Session> knownSessions(AppContext& context);

/// The transcript as `tidewick transcript` prints it: a header with the session's facts,
/// then one line per entry (time, who, text; a tool call on one line with its outcome and
/// the first lines of its result below), then each sub-agent's entries.
[[nodiscard]] std::string formatTranscript(const Transcript& transcript);

/// `transcript` keeping only the last `count` entries of the main thread and of each
/// sub-agent (all of them for nothing).
[[nodiscard]] Transcript lastEntries(Transcript transcript, std::optional<std::size_t> count);

} // namespace tidewick
