// Everything Tidewick knows of the agents' usage at one moment: each agent's
// rate-limit windows and the tokens each session has used.
#pragma once

#include "sessions/Session.h"
#include "transcripts/TokenUse.h"
#include "transcripts/TranscriptLocations.h"
#include "usage/UsageWindow.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class JSONWriter;

/// Tokens one session used, as its agent's record tells.
struct SessionTokens {
    SessionKey key;
    std::optional<std::string> projectPath;
    std::optional<std::string> title;
    TokenUse tokens;
    /// The middle of a long record was not read: the session used at least this many.
    bool partial = false;

    friend bool operator==(const SessionTokens&, const SessionTokens&) = default;
};

struct UsageReport {
    /// The moment the report describes: windows past their reset by then read as reset.
    Date at;
    /// Claude Code's, then Codex's.
    std::vector<AgentUsage> agents;
    /// Sessions whose record was read, most tokens first.
    std::vector<SessionTokens> sessions;
    /// Sessions whose record could not be found or read.
    std::size_t sessionsWithoutRecord = 0;
};

/// Where the figures are read from.
struct UsageSources {
    /// The status line's "claude-limits.json".
    std::string claudeLimitsFile;
    /// The agents' records; Codex's session records are under its sessions folder.
    TranscriptLocations locations;
};

namespace Usage {

/// Claude Code's and Codex's windows, read now. The records of the Codex sessions among
/// `sessions` are looked at as well as the newest ones. Never throws.
[[nodiscard]] std::vector<AgentUsage> readAgents(const UsageSources& sources,
                                                 const std::vector<Session>& sessions);

/// The agents' windows and the token use of every one of `sessions` whose record can be
/// read, described at `at`. Never throws.
[[nodiscard]] UsageReport readReport(const UsageSources& sources,
                                     const std::vector<Session>& sessions, Date at);

} // namespace Usage

/// {"at", "agents": [{"agent", "name", "windows": [{"name", "label", "usedPercent" (left
/// out once reset), "level", "reset", "windowMinutes", "resetsAt", "resetsInSeconds"}],
/// "reportedAt", "ageSeconds", "source", "missing"}], "sessions": [{"agent", "sessionId",
/// "projectPath", "title", "tokens", "partial"}], "sessionsWithoutRecord"}; absent values
/// left out.
void writeJSON(JSONWriter& out, const UsageReport& report);

} // namespace tidewick
