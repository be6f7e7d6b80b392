// Reads Cursor's agent transcripts: one file per conversation under
// ~/.cursor/projects/<project>/agent-transcripts/, JSON Lines or, in an older
// form, plain text.
#pragma once

#include "transcripts/HeadTailFile.h"
#include "transcripts/Transcript.h"

#include <optional>
#include <string>

namespace tidewick {

class CursorTranscriptReader {
public:
    /// Reads the transcript at `path`: JSON Lines (see MessageLines) when its first line is a
    /// JSON object, else the plain-text form, in which "user:" and "assistant:" lines start
    /// messages and "[Tool call] <name>", "[Tool result] <name>" and "[Thinking]" lines
    /// start a call (its "key: value" lines are its input), a result and a thought. What is
    /// not recognised is passed over. Throws SystemError (or std::runtime_error for
    /// something that is not a file).
    [[nodiscard]] static Transcript read(const std::string& path, const std::string& sessionId,
                                         HeadTailFile::Limits limits = {});

    /// The transcript of conversation `chatId` under `projectsFolder`
    /// ("<project>/agent-transcripts/<chatId>.jsonl", else ".txt"); nothing when there is none.
    [[nodiscard]] static std::optional<std::string> find(const std::string& projectsFolder,
                                                         const std::string& chatId);
};

} // namespace tidewick
