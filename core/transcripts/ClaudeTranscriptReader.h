// Reads Claude Code's transcript of a session: the JSON Lines file its hook
// payloads name, with the files of its sub-agents beside it.
#pragma once

#include "transcripts/HeadTailFile.h"
#include "transcripts/Transcript.h"

#include <string>

namespace tidewick {

class ClaudeTranscriptReader {
public:
    /// Reads the transcript at `path` ("<project>/<session>.jsonl") and every sub-agent file
    /// in "<project>/<session>/subagents/" ("agent-<id>.jsonl", described by the
    /// "agent-<id>.meta.json" beside it). Lines of a sub-agent inside the main file
    /// ("isSidechain") are kept apart too. Unknown line types are passed over. Throws
    /// SystemError (or std::runtime_error for something that is not a file) when the main
    /// file cannot be read; a sub-agent file that cannot be read is left out.
    [[nodiscard]] static Transcript read(const std::string& path, const std::string& sessionId,
                                         HeadTailFile::Limits limits = {});

    /// The folder holding the sub-agent files of the transcript at `path`.
    [[nodiscard]] static std::string subagentFolder(const std::string& path);
};

} // namespace tidewick
