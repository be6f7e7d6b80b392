// Reads Antigravity's record of a conversation: the JSON Lines mirror its
// payloads name when there is one, else its step database, read with SQLite
// and never written.
#pragma once

#include "transcripts/HeadTailFile.h"
#include "transcripts/SQLiteDatabase.h"
#include "transcripts/Transcript.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class AntigravityTranscriptReader {
public:
    /// Steps read from the start and from the end of a long database.
    static constexpr int headSteps = 50;
    static constexpr int tailSteps = 200;
    /// Characters of plain text kept per step.
    static constexpr std::size_t stepTextLimit = 1000;

    /// Reads the JSON Lines mirror at `path` (see MessageLines). Throws SystemError (or
    /// std::runtime_error for something that is not a file).
    [[nodiscard]] static Transcript readMirror(const std::string& path,
                                               const std::string& conversationId,
                                               HeadTailFile::Limits limits = {});

    /// Reads the conversation database at `path`. Its steps are binary records, so what can
    /// be read reliably is shown: the number of steps, each step's time where a column holds
    /// one, and the plain text found in it, as system entries; the first headSteps and the
    /// last tailSteps steps, with a marker for those between. The step table is the first
    /// whose name contains "step", else the first table. Throws SQLiteDatabase::Failure
    /// (not a database, corrupt, locked past the busy time, too slow).
    [[nodiscard]] static Transcript readDatabase(const std::string& path,
                                                 const std::string& conversationId,
                                                 SQLiteDatabase::Limits limits = {});

    /// The database of `conversationId` in the first of `folders` (each a "conversations"
    /// folder) that has "<conversationId>.db"; nothing when none has.
    [[nodiscard]] static std::optional<std::string> find(const std::vector<std::string>& folders,
                                                         const std::string& conversationId);

    /// The runs of readable text in `bytes` (valid UTF-8, no control characters, at least
    /// eight bytes and one space), one per line, cut to stepTextLimit characters.
    [[nodiscard]] static std::string plainText(std::string_view bytes);
};

} // namespace tidewick
