// An agent's own record of one session, read into one agent-neutral form: the
// session's facts, its entries in order, and the work of its sub-agents.
#pragma once

#include "events/AgentKind.h"
#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "transcripts/TokenUse.h"
#include "transcripts/TranscriptEntry.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class JSONWriter;

/// Whether the agent's last turn had ended when the record was read.
enum class TurnState { unknown, running, finished };

template <> struct RawValues<TurnState> {
    static constexpr EnumTable<TurnState, 3> table{{{
        {TurnState::unknown, "unknown"},
        {TurnState::running, "running"},
        {TurnState::finished, "finished"},
    }}};
};

/// The work of one sub-agent the session started, kept apart from the main thread.
struct SubagentThread {
    /// The agent's identifier of the sub-agent.
    std::string id;
    /// What it was asked to do, or its kind, where recorded.
    std::optional<std::string> description;
    /// The tool call of the main thread that started it, where recorded.
    std::optional<std::string> toolCallId;
    std::vector<TranscriptEntry> entries;
    /// Tokens of its entries.
    TokenUse tokens;

    friend bool operator==(const SubagentThread&, const SubagentThread&) = default;
};

struct Transcript {
    AgentKind agent = AgentKind::claude;
    std::string sessionId;
    /// The file or database read.
    std::string source;

    /// The project folder, the model (the latest one named), the version-control branch
    /// and the agent's version, where the record names them.
    std::optional<std::string> projectPath;
    std::optional<std::string> model;
    std::optional<std::string> branch;
    std::optional<std::string> agentVersion;
    /// The first and the latest time recorded.
    std::optional<Date> startedAt;
    std::optional<Date> lastActivityAt;

    /// The main thread, oldest first. When the middle of a long record was skipped, one
    /// system entry with `skippedBytes` stands where it was.
    std::vector<TranscriptEntry> entries;
    /// The sub-agents' work, in the order they were found.
    std::vector<SubagentThread> subagents;

    /// Prompts the user typed (entries of role `user`) in the part read: with a skipped
    /// middle, those in it are not counted.
    std::int64_t userMessages = 0;
    /// Tool calls of the main thread, and how many of them failed.
    std::int64_t toolCalls = 0;
    std::int64_t failedToolCalls = 0;
    /// Tokens of the whole session, sub-agents included. Where the agent records a running
    /// total (Codex) this is its latest figure; otherwise the sum of the entries read.
    TokenUse tokens;
    /// Bytes of a long record's middle that were not read (0: it was read whole).
    std::int64_t skippedBytes = 0;
    /// Lines or records that could not be read (truncated, binary, not JSON) and were left out.
    std::int64_t unreadableLines = 0;
    /// How far the record was read: its size in bytes as it was when opened, or the number
    /// of steps in a database. What the session's `transcriptStep` keeps.
    std::int64_t position = 0;
    TurnState turn = TurnState::unknown;

    /// The entries of role `user`, oldest first.
    [[nodiscard]] std::vector<const TranscriptEntry*> userPrompts() const;
    /// The agent's latest message that is not thinking, if any.
    [[nodiscard]] const TranscriptEntry* lastAgentMessage() const;

    friend bool operator==(const Transcript&, const Transcript&) = default;
};

/// Every field under its name; absent optionals left out.
void writeJSON(JSONWriter& out, const SubagentThread& thread);
void writeJSON(JSONWriter& out, const Transcript& transcript);

} // namespace tidewick
