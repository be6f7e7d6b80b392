// Reads Codex's record of a session: the rollout file it keeps under
// ~/.codex/sessions/YYYY/MM/DD/, one JSON line per item or event.
#pragma once

#include "transcripts/HeadTailFile.h"
#include "transcripts/Transcript.h"

#include <optional>
#include <string>

namespace tidewick {

class CodexTranscriptReader {
public:
    /// Reads the rollout file at `path`: the session's facts (session_meta, turn_context),
    /// the user's prompts (event_msg user_message, or item_completed UserMessage), the
    /// agent's messages and thinking (response_item message, reasoning), tool calls paired
    /// with their output (function_call, custom_tool_call, local_shell_call and their
    /// outputs) and token counts (token_count). Unknown lines are passed over. Throws
    /// SystemError (or std::runtime_error for something that is not a file).
    [[nodiscard]] static Transcript read(const std::string& path, const std::string& sessionId,
                                         HeadTailFile::Limits limits = {});

    /// The rollout file of `sessionId` under `sessionsFolder` ("rollout-<time>-<id>.jsonl" in
    /// a YYYY/MM/DD folder; the time in the name is local, so every day is searched, newest
    /// first). Nothing when there is none or the folder cannot be read.
    [[nodiscard]] static std::optional<std::string> find(const std::string& sessionsFolder,
                                                         const std::string& sessionId);
};

} // namespace tidewick
