#include "transcripts/TranscriptLocations.h"

#include "foundation/File.h"

#include <cstdlib>

namespace tidewick {

TranscriptLocations::TranscriptLocations(std::string home, std::optional<std::string> codexHome)
    : home_(std::move(home)), codexHome_(codexHome.value_or(File::join(home_, ".codex"))) {}

TranscriptLocations TranscriptLocations::forHome(std::string home) {
    const char* codexHome = std::getenv("CODEX_HOME");
    if (codexHome && *codexHome)
        return TranscriptLocations(std::move(home), std::string(codexHome));
    return TranscriptLocations(std::move(home));
}

std::string TranscriptLocations::claudeProjects() const {
    return File::join(home_, ".claude/projects");
}

std::string TranscriptLocations::codexSessions() const {
    return File::join(codexHome_, "sessions");
}

std::string TranscriptLocations::cursorProjects() const {
    return File::join(home_, ".cursor/projects");
}

std::vector<std::string> TranscriptLocations::antigravityConversations() const {
    std::vector<std::string> folders;
    for (const char* build : {"antigravity", "antigravity-cli", "antigravity-ide"})
        folders.push_back(File::join(File::join(home_, ".gemini"), build) + "/conversations");
    return folders;
}

} // namespace tidewick
