// The interface's access to the agents' records on disk: read with the
// transcript readers, handoffs written to the Handoffs folder, and how far the
// application has read kept in the session store.
#pragma once

#include "TranscriptAccess.h"
#include "foundation/TidewickPaths.h"
#include "transcripts/TranscriptLocations.h"

#include <functional>

namespace tidewick {

class FileTranscriptAccess final : public TranscriptAccess {
public:
    /// Records the read position of a session (the service's setTranscriptStep).
    using StepRecorder = std::function<void(const SessionKey&, std::int64_t)>;

    /// Records under `locations`; handoffs under `paths`, with its secret kept out of them.
    FileTranscriptAccess(TidewickPaths paths, TranscriptLocations locations,
                         StepRecorder recordStep);

    Transcript read(const Session& session) override;
    std::string writeHandoff(const Session& session, Date now) override;
    void markRead(const SessionKey& key, std::int64_t position) override;

private:
    TidewickPaths paths_;
    TranscriptLocations locations_;
    StepRecorder recordStep_;
};

} // namespace tidewick
