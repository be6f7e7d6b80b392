#include "transcripts/Transcripts.h"

#include "foundation/File.h"
#include "transcripts/AntigravityTranscriptReader.h"
#include "transcripts/ClaudeTranscriptReader.h"
#include "transcripts/CodexTranscriptReader.h"
#include "transcripts/CursorTranscriptReader.h"
#include "transcripts/TranscriptText.h"

#include <algorithm>

namespace tidewick::Transcripts {

namespace {

std::optional<std::string> findClaude(const std::string& projects, const std::string& sessionId) {
    if (sessionId.empty() || sessionId.find('/') != std::string::npos)
        return std::nullopt;
    std::vector<std::string> folders;
    try {
        folders = File::listFolder(projects);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    std::sort(folders.begin(), folders.end());
    for (const std::string& folder : folders) {
        const std::string path = File::join(File::join(projects, folder), sessionId + ".jsonl");
        if (File::exists(path))
            return path;
    }
    return std::nullopt;
}

Transcript readFound(const Session& session, const std::string& path, HeadTailFile::Limits limits) {
    const std::string& id = session.key.sessionId;
    switch (session.key.agent) {
    case AgentKind::claude:
        return ClaudeTranscriptReader::read(path, id, limits);
    case AgentKind::codex:
        return CodexTranscriptReader::read(path, id, limits);
    case AgentKind::cursor:
        return CursorTranscriptReader::read(path, id, limits);
    case AgentKind::antigravity:
        if (path.ends_with(".db"))
            return AntigravityTranscriptReader::readDatabase(path, id);
        return AntigravityTranscriptReader::readMirror(path, id, limits);
    }
    return ClaudeTranscriptReader::read(path, id, limits);
}

} // namespace

std::optional<std::string> locate(const Session& session, const TranscriptLocations& locations) {
    if (session.transcriptPath && !session.transcriptPath->empty() &&
        File::exists(*session.transcriptPath))
        return session.transcriptPath;
    const std::string& id = session.key.sessionId;
    switch (session.key.agent) {
    case AgentKind::claude:
        return findClaude(locations.claudeProjects(), id);
    case AgentKind::codex:
        return CodexTranscriptReader::find(locations.codexSessions(), id);
    case AgentKind::cursor:
        return CursorTranscriptReader::find(locations.cursorProjects(), id);
    case AgentKind::antigravity:
        return AntigravityTranscriptReader::find(locations.antigravityConversations(), id);
    }
    return std::nullopt;
}

Transcript read(const Session& session, const TranscriptLocations& locations,
                HeadTailFile::Limits limits) {
    const std::optional<std::string> path = locate(session, locations);
    if (!path)
        throw TranscriptUnavailable(
            TranscriptText::notFound(session.key.agent, session.key.sessionId));
    Transcript transcript;
    try {
        transcript = readFound(session, *path, limits);
    } catch (const std::exception& error) {
        throw TranscriptUnavailable(
            TranscriptText::unreadable(session.key.agent, session.key.sessionId, error.what()));
    }
    if (!transcript.projectPath)
        transcript.projectPath = session.projectPath;
    if (!transcript.model)
        transcript.model = session.model;
    return transcript;
}

} // namespace tidewick::Transcripts
