// What the interface needs to show a session's record and hand it on, behind
// an interface so that the screens are tested without files.
#pragma once

#include "foundation/Clock.h"
#include "sessions/Session.h"
#include "transcripts/Transcript.h"

#include <cstdint>
#include <string>

namespace tidewick {

class TranscriptAccess {
public:
    virtual ~TranscriptAccess() = default;

    /// The record of `session`. Throws TranscriptUnavailable with a sentence.
    [[nodiscard]] virtual Transcript read(const Session& session) = 0;
    /// Writes the handoff of `session` at `now`; the sentence saying where. Throws
    /// TranscriptUnavailable or Handoff::Failure with a sentence.
    [[nodiscard]] virtual std::string writeHandoff(const Session& session, Date now) = 0;
    /// Records that the application has read the record of `key` up to `position` (the
    /// session's transcriptStep).
    virtual void markRead(const SessionKey& key, std::int64_t position) = 0;
};

} // namespace tidewick
