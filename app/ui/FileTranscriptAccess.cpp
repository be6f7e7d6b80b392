#include "FileTranscriptAccess.h"

#include "transcripts/Handoff.h"
#include "transcripts/TranscriptText.h"
#include "transcripts/Transcripts.h"

namespace tidewick {

FileTranscriptAccess::FileTranscriptAccess(TidewickPaths paths, TranscriptLocations locations,
                                           StepRecorder recordStep)
    : paths_(std::move(paths)), locations_(std::move(locations)),
      recordStep_(std::move(recordStep)) {}

Transcript FileTranscriptAccess::read(const Session& session) {
    return Transcripts::read(session, locations_);
}

std::string FileTranscriptAccess::writeHandoff(const Session& session, Date now) {
    const Transcript transcript = read(session);
    markRead(session.key, transcript.position);
    const std::string secret = paths_.secretIfReadable().value_or("");
    const std::string path = Handoff::defaultPath(paths_, session, now);
    Handoff::write(Handoff::render(session, transcript, now, secret), path, secret);
    return TranscriptText::handoffWritten(path);
}

void FileTranscriptAccess::markRead(const SessionKey& key, std::int64_t position) {
    if (recordStep_)
        recordStep_(key, position);
}

} // namespace tidewick
