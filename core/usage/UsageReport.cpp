#include "usage/UsageReport.h"

#include "foundation/JSONCoding.h"
#include "transcripts/Transcripts.h"
#include "usage/ClaudeLimitsReader.h"
#include "usage/CodexLimitsReader.h"

#include <algorithm>

namespace tidewick {

namespace Usage {

std::vector<AgentUsage> readAgents(const UsageSources& sources,
                                   const std::vector<Session>& sessions) {
    std::vector<std::string> codexRecords;
    for (const Session& session : sessions)
        if (session.key.agent == AgentKind::codex && session.transcriptPath)
            codexRecords.push_back(*session.transcriptPath);
    return {ClaudeLimitsReader::read(sources.claudeLimitsFile),
            CodexLimitsReader::read(sources.locations.codexSessions(), codexRecords)};
}

UsageReport readReport(const UsageSources& sources, const std::vector<Session>& sessions, Date at) {
    UsageReport report;
    report.at = at;
    report.agents = readAgents(sources, sessions);
    for (const Session& session : sessions) {
        try {
            const Transcript transcript = Transcripts::read(session, sources.locations);
            report.sessions.push_back({session.key, session.projectPath, session.title,
                                       transcript.tokens, transcript.skippedBytes > 0});
        } catch (const std::exception&) {
            ++report.sessionsWithoutRecord;
        }
    }
    std::stable_sort(report.sessions.begin(), report.sessions.end(),
                     [](const SessionTokens& a, const SessionTokens& b) {
                         return a.tokens.total() > b.tokens.total();
                     });
    return report;
}

} // namespace Usage

namespace {

double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}

void writeWindow(JSONWriter& out, const UsageWindow& window, Date at) {
    out.beginObject();
    out.member("name", window.name);
    out.member("label", window.label());
    const std::optional<double> used = window.usedAt(at);
    out.member("usedPercent", used);
    if (used)
        out.member("level", usageLevel(*used));
    out.member("reset", window.isReset(at));
    out.member("windowMinutes", window.windowMinutes);
    out.member("resetsAt", window.resetsAt);
    if (window.resetsAt && !window.isReset(at))
        out.member("resetsInSeconds", secondsBetween(at, *window.resetsAt));
    out.endObject();
}

void writeAgent(JSONWriter& out, const AgentUsage& usage, Date at) {
    out.beginObject();
    out.member("agent", usage.agent);
    out.member("name", std::string(displayName(usage.agent)));
    out.key("windows");
    out.beginArray();
    for (const UsageWindow& window : usage.windows)
        writeWindow(out, window, at);
    out.endArray();
    out.member("reportedAt", usage.reportedAt);
    if (usage.reportedAt)
        out.member("ageSeconds", secondsBetween(*usage.reportedAt, at));
    out.member("source", usage.source);
    if (!usage.missing.empty())
        out.member("missing", usage.missing);
    out.endObject();
}

} // namespace

void writeJSON(JSONWriter& out, const UsageReport& report) {
    out.beginObject();
    out.member("at", report.at);
    out.key("agents");
    out.beginArray();
    for (const AgentUsage& usage : report.agents)
        writeAgent(out, usage, report.at);
    out.endArray();
    out.key("sessions");
    out.beginArray();
    for (const SessionTokens& session : report.sessions) {
        out.beginObject();
        out.member("agent", session.key.agent);
        out.member("sessionId", session.key.sessionId);
        out.member("projectPath", session.projectPath);
        out.member("title", session.title);
        out.member("tokens", session.tokens);
        out.member("partial", session.partial);
        out.endObject();
    }
    out.endArray();
    out.member("sessionsWithoutRecord", static_cast<std::int64_t>(report.sessionsWithoutRecord));
    out.endObject();
}

} // namespace tidewick
