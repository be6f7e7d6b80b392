// Where each agent keeps its records of sessions, for one user.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class TranscriptLocations {
public:
    /// The records under `home` (the user's home folder); Codex's under `codexHome` when
    /// given (its CODEX_HOME), else "<home>/.codex".
    explicit TranscriptLocations(std::string home, std::optional<std::string> codexHome = {});

    /// The locations for this process: `home`, and CODEX_HOME when it is set and not empty.
    [[nodiscard]] static TranscriptLocations forHome(std::string home);

    /// "<home>/.claude/projects".
    [[nodiscard]] std::string claudeProjects() const;
    /// "<codex home>/sessions".
    [[nodiscard]] std::string codexSessions() const;
    /// "<home>/.cursor/projects".
    [[nodiscard]] std::string cursorProjects() const;
    /// The "conversations" folders of Antigravity, its command-line and its editor builds
    /// ("<home>/.gemini/antigravity", "antigravity-cli", "antigravity-ide").
    [[nodiscard]] std::vector<std::string> antigravityConversations() const;

private:
    std::string home_;
    std::string codexHome_;
};

} // namespace tidewick
