#include "agents/AgentProbe.h"

#include "transcripts/Transcripts.h"

#include <set>
#include <sys/stat.h>

namespace tidewick {

namespace {

std::optional<std::int64_t> sizeOf(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return std::nullopt;
    return static_cast<std::int64_t>(info.st_size);
}

} // namespace

AgentProbe::AgentProbe(const ProcessAccess& processes, TranscriptLocations locations)
    : processes_(processes), locations_(std::move(locations)) {}

std::vector<AgentProbe::Finding> AgentProbe::check(const std::vector<Session>& sessions,
                                                   Date now) {
    std::vector<Finding> findings;
    std::set<SessionKey> seen;
    for (const Session& session : sessions) {
        seen.insert(session.key);
        if (session.status == SessionStatus::ended || !session.agentPid)
            continue;
        if (!processes_.isSameProcess(*session.agentPid, session.agentStartTime)) {
            findings.push_back({Finding::Kind::exited, session.key, *session.agentPid});
            continue;
        }
        const bool quiet = addSeconds(session.lastActivityAt, quietSeconds) <= now;
        if (session.status == SessionStatus::working && session.pending.empty() && quiet &&
            turnFinished(session))
            findings.push_back({Finding::Kind::turnFinished, session.key, *session.agentPid});
    }
    std::erase_if(sizeRead_, [&seen](const auto& entry) { return !seen.contains(entry.first); });
    return findings;
}

bool AgentProbe::turnFinished(const Session& session) {
    const std::optional<std::string> path = Transcripts::locate(session, locations_);
    const std::optional<std::int64_t> size = path ? sizeOf(*path) : std::nullopt;
    if (!size)
        return false;
    auto [known, added] = sizeRead_.try_emplace(session.key, *size);
    if (!added && known->second == *size)
        return false;
    known->second = *size;
    try {
        return Transcripts::read(session, locations_).turn == TurnState::finished;
    } catch (const std::exception&) {
        return false; // Unreadable now; the next growth is read again.
    }
}

} // namespace tidewick
