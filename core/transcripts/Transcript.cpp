#include "transcripts/Transcript.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

std::vector<const TranscriptEntry*> Transcript::userPrompts() const {
    std::vector<const TranscriptEntry*> prompts;
    for (const TranscriptEntry& entry : entries)
        if (entry.role == TranscriptRole::user)
            prompts.push_back(&entry);
    return prompts;
}

const TranscriptEntry* Transcript::lastAgentMessage() const {
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        if (entry->role == TranscriptRole::agent && !entry->thinking && !entry->text.empty())
            return &*entry;
    return nullptr;
}

void writeJSON(JSONWriter& out, const SubagentThread& thread) {
    out.beginObject();
    out.member("id", thread.id);
    out.member("description", thread.description);
    out.member("toolCallId", thread.toolCallId);
    out.member("tokens", thread.tokens);
    out.member("entries", thread.entries);
    out.endObject();
}

void writeJSON(JSONWriter& out, const Transcript& transcript) {
    out.beginObject();
    out.member("agent", transcript.agent);
    out.member("sessionId", transcript.sessionId);
    out.member("source", transcript.source);
    out.member("projectPath", transcript.projectPath);
    out.member("model", transcript.model);
    out.member("branch", transcript.branch);
    out.member("agentVersion", transcript.agentVersion);
    out.member("startedAt", transcript.startedAt);
    out.member("lastActivityAt", transcript.lastActivityAt);
    out.member("userMessages", transcript.userMessages);
    out.member("toolCalls", transcript.toolCalls);
    out.member("failedToolCalls", transcript.failedToolCalls);
    out.member("tokens", transcript.tokens);
    out.member("skippedBytes", transcript.skippedBytes);
    out.member("unreadableLines", transcript.unreadableLines);
    out.member("position", transcript.position);
    out.member("turn", transcript.turn);
    out.member("entries", transcript.entries);
    out.member("subagents", transcript.subagents);
    out.endObject();
}

} // namespace tidewick
