// The Markdown document from which another agent, or the same one later, can
// carry on a session's work: where it happened, what was asked, what was done,
// what is still open and how to resume it.
#pragma once

#include "foundation/Clock.h"
#include "foundation/TidewickPaths.h"
#include "sessions/Session.h"
#include "transcripts/Transcript.h"

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace tidewick {

class Handoff {
public:
    /// Writing failed or was refused; carries the sentence for the user.
    class Failure : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Characters kept of a prompt or message; of one line of a result.
    static constexpr std::size_t textLimit = 1500;
    static constexpr std::size_t resultLimit = 200;
    /// Latest prompts listed after the first; commands and other tool calls listed (the
    /// latest ones).
    static constexpr std::size_t latestPrompts = 3;
    static constexpr std::size_t listedCalls = 25;
    /// What stands where the secret was found in a text.
    static constexpr std::string_view secretRemoved = "[removed]";

    /// The document for `session` from its `transcript`, written at `now` (shown in UTC).
    /// Every occurrence of `secret` (unless empty) is replaced by secretRemoved.
    [[nodiscard]] static std::string render(const Session& session, const Transcript& transcript,
                                            Date now, std::string_view secret);

    /// The command that resumes the session in its own agent, run in the project folder:
    /// "claude --resume <id>", "codex resume <id>", "cursor-agent --resume <id>"; nothing for
    /// Antigravity, which continues in its own window.
    [[nodiscard]] static std::optional<std::string> resumeCommand(const SessionKey& key);

    /// "<project>-<agent>-<short id>-<YYYYMMDD-HHMMSS>.md" in the Handoffs folder.
    [[nodiscard]] static std::string defaultPath(const TidewickPaths& paths, const Session& session,
                                                 Date now);

    /// Writes `document` to `path` atomically with mode 0600 (the Handoffs folder is made
    /// with 0700 when `path` is in it). Throws Failure with TranscriptText::handoffRefused,
    /// writing nothing, when the document contains `secret`; throws Failure with the
    /// system's reason when the file cannot be written.
    static void write(const std::string& document, const std::string& path,
                      std::string_view secret);
};

} // namespace tidewick
