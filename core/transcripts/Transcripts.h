// Finds and reads the record of any session, whichever agent it belongs to.
#pragma once

#include "sessions/Session.h"
#include "transcripts/HeadTailFile.h"
#include "transcripts/Transcript.h"
#include "transcripts/TranscriptLocations.h"
#include "transcripts/TranscriptUnavailable.h"

#include <optional>
#include <string>

namespace tidewick::Transcripts {

/// Where the record of `session` is: its `transcriptPath` when that exists, else the file
/// found by the session identifier (Claude Code's projects, Codex's rollouts, Cursor's agent
/// transcripts, Antigravity's conversation databases). Nothing when there is none.
[[nodiscard]] std::optional<std::string> locate(const Session& session,
                                                const TranscriptLocations& locations);

/// The record of `session`, read by its agent's reader; the project folder and model the
/// record does not name are taken from the session. Throws TranscriptUnavailable with a
/// sentence when it cannot be found or read.
[[nodiscard]] Transcript read(const Session& session, const TranscriptLocations& locations,
                              HeadTailFile::Limits limits = {});

} // namespace tidewick::Transcripts
