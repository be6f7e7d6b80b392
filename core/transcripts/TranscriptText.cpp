#include "transcripts/TranscriptText.h"

#include <cstdio>

namespace tidewick::TranscriptText {

namespace {

std::string whose(AgentKind agent, std::string_view sessionId) {
    return std::string(displayName(agent)) + "'s record of session " +
           std::string(sessionId.substr(0, 8));
}

} // namespace

std::string notFound(AgentKind agent, std::string_view sessionId) {
    return "Tidewick couldn't find " + whose(agent, sessionId) + ".";
}

std::string unreadable(AgentKind agent, std::string_view sessionId, std::string_view reason) {
    std::string sentence = "Tidewick couldn't read " + whose(agent, sessionId) + ": ";
    sentence += reason;
    if (!sentence.ends_with('.'))
        sentence += '.';
    return sentence;
}

std::string handoffWritten(std::string_view path) {
    return "Handoff written to " + std::string(path);
}

std::string_view roleLabel(TranscriptRole role) {
    switch (role) {
    case TranscriptRole::user:
        return "You";
    case TranscriptRole::agent:
        return "Agent";
    case TranscriptRole::tool:
        return "Tool";
    case TranscriptRole::system:
        return "System";
    }
    return "System";
}

std::string_view outcomeMark(const ToolCall& call) {
    if (!call.finished())
        return "…";
    return call.failed ? "✗" : "✓";
}

std::string counted(long long count, std::string_view noun) {
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string skipped(long long bytes) {
    char amount[32];
    if (bytes >= (1LL << 30))
        std::snprintf(amount, sizeof amount, "%.1f GiB", static_cast<double>(bytes) / (1LL << 30));
    else if (bytes >= (1LL << 20))
        std::snprintf(amount, sizeof amount, "%.1f MiB", static_cast<double>(bytes) / (1LL << 20));
    else
        std::snprintf(amount, sizeof amount, "%lld bytes", bytes);
    return "[… " + std::string(amount) + " in the middle not read …]";
}

} // namespace tidewick::TranscriptText
