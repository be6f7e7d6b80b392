#include "TranscriptCommands.h"

#include "CommandFailure.h"
#include "ConnectCommands.h"
#include "UsageError.h"
#include "control/ControlClient.h"
#include "control/SessionMatcher.h"
#include "foundation/JSONCoding.h"
#include "foundation/Text.h"
#include "sessions/SessionPersistence.h"
#include "transcripts/Handoff.h"
#include "transcripts/TranscriptText.h"
#include "transcripts/Transcripts.h"

#include <ctime>
#include <memory>

namespace tidewick {

namespace {

struct TranscriptOptions {
    std::string session;
    std::string agent;
    bool json = false;
    std::optional<std::size_t> tail;
    std::optional<std::string> output;
};

Session findSession(AppContext& context, const TranscriptOptions& options) {
    const std::vector<Session> sessions = knownSessions(context);
    std::optional<AgentKind> agent;
    if (!options.agent.empty())
        agent = agentFromArgument(options.agent);
    const SessionMatch match = matchSession(sessions, options.session, agent);
    if (match.outcome == ControlOutcome::ambiguous || match.outcome == ControlOutcome::badRequest)
        throw UsageError(match.message);
    if (!match.key)
        throw CommandFailure(static_cast<int>(ExitStatus::refused), match.message);
    for (const Session& session : sessions)
        if (session.key == *match.key)
            return session;
    throw CommandFailure(static_cast<int>(ExitStatus::refused), match.message);
}

Transcript readTranscript(AppContext& context, const Session& session) {
    try {
        return Transcripts::read(session, TranscriptLocations::forHome(context.home()));
    } catch (const TranscriptUnavailable& error) {
        throw CommandFailure(static_cast<int>(ExitStatus::refused), error.what());
    }
}

std::string clockTime(const std::optional<Date>& date) {
    if (!date)
        return std::string(8, ' ');
    const std::time_t seconds = std::chrono::system_clock::to_time_t(*date);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

// `text` with every line after the first indented to `indent` columns.
std::string indented(std::string_view text, std::size_t indent) {
    return Text::replacingAll(Text::trimmed(text), "\n", "\n" + std::string(indent, ' '));
}

void formatEntries(std::string& out, const std::vector<TranscriptEntry>& entries) {
    constexpr std::size_t textColumn = 18;
    for (const TranscriptEntry& entry : entries) {
        if (entry.skippedBytes) {
            out += "\n" + std::string(textColumn, ' ') + entry.text + "\n\n";
            continue;
        }
        std::string label(TranscriptText::roleLabel(entry.role));
        label.resize(8, ' ');
        out += clockTime(entry.time) + "  " + label;
        if (!entry.tool) {
            out += (entry.thinking ? "(thinking) " : "") + indented(entry.text, textColumn) + "\n";
            continue;
        }
        const ToolCall& call = *entry.tool;
        out += std::string(TranscriptText::outcomeMark(call)) + " " + call.summary + "\n";
        if (call.result && !Text::trimmed(*call.result).empty()) {
            out += std::string(textColumn + 2, ' ') + indented(*call.result, textColumn + 2) + "\n";
            if (call.resultLinesCut > 0)
                out += std::string(textColumn + 2, ' ') + "(" +
                       std::to_string(call.resultLinesCut) + " more lines)\n";
        }
    }
}

void runTranscript(AppContext& context, const TranscriptOptions& options) {
    const Session session = findSession(context, options);
    const Transcript transcript = lastEntries(readTranscript(context, session), options.tail);
    std::ostream& out = context.terminal().out();
    if (options.json)
        out << encodeJSON(transcript, JSONWriter::Style::pretty) << "\n";
    else
        out << formatTranscript(transcript);
}

void runHandoff(AppContext& context, const TranscriptOptions& options) {
    const Session session = findSession(context, options);
    const Transcript transcript = readTranscript(context, session);
    const std::string secret = context.paths().secretIfReadable().value_or("");
    const Date now = tidewick::now();
    const std::string document = Handoff::render(session, transcript, now, secret);
    if (options.output == "-") {
        context.terminal().out() << document;
        return;
    }
    const std::string path =
        options.output ? *options.output : Handoff::defaultPath(context.paths(), session, now);
    try {
        Handoff::write(document, path, secret);
    } catch (const Handoff::Failure& failure) {
        throw CommandFailure(static_cast<int>(ExitStatus::refused), failure.what());
    }
    context.terminal().out() << TranscriptText::handoffWritten(path) << "\n";
}

void addSessionOptions(CLI::App* command, TranscriptOptions& options) {
    command->add_option("session", options.session, "Session identifier or the start of it")
        ->required();
    command->add_option("--agent", options.agent,
                        "Only sessions of this agent (claude, codex, cursor, antigravity)");
}

} // namespace

std::vector<Session> knownSessions(AppContext& context) {
    ControlRequest request;
    request.command = ControlCommand::sessions;
    try {
        const ControlReply reply = ControlClient::send(request, context.paths());
        if (reply.outcome == ControlOutcome::done)
            return reply.sessions;
    } catch (const ControlClient::NotRunning&) {
    }
    return SessionPersistence(context.paths().sessionsFile()).load();
}

Transcript lastEntries(Transcript transcript, std::optional<std::size_t> count) {
    if (!count)
        return transcript;
    const auto keepLast = [&](std::vector<TranscriptEntry>& entries) {
        if (entries.size() > *count)
            entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(*count));
    };
    keepLast(transcript.entries);
    for (SubagentThread& thread : transcript.subagents)
        keepLast(thread.entries);
    return transcript;
}

std::string formatTranscript(const Transcript& transcript) {
    std::string out = std::string(displayName(transcript.agent)) + " session " +
                      transcript.sessionId.substr(0, 8);
    if (transcript.projectPath)
        out += " — " + *transcript.projectPath;
    out += "\n";
    std::string facts;
    const auto fact = [&](const std::string& text) {
        facts += (facts.empty() ? "" : " · ") + text;
    };
    if (transcript.model)
        fact("model " + *transcript.model);
    if (transcript.branch)
        fact("branch " + *transcript.branch);
    fact(TranscriptText::counted(transcript.userMessages, "prompt"));
    fact(TranscriptText::counted(transcript.toolCalls, "tool call") +
         (transcript.failedToolCalls
              ? " (" + std::to_string(transcript.failedToolCalls) + " failed)"
              : ""));
    if (!transcript.tokens.isEmpty())
        fact(std::to_string(transcript.tokens.input) + " tokens in, " +
             std::to_string(transcript.tokens.output) + " out");
    out += facts + "\n\n";
    formatEntries(out, transcript.entries);
    for (const SubagentThread& thread : transcript.subagents) {
        out += "\nSub-agent " + thread.id.substr(0, 8) +
               (thread.description ? " (" + *thread.description + ")" : "") + "\n";
        formatEntries(out, thread.entries);
    }
    return out;
}

void registerTranscriptCommands(CLI::App& app, AppContext& context) {
    auto transcriptOptions = std::make_shared<TranscriptOptions>();
    CLI::App* transcript =
        app.add_subcommand("transcript", "Show a session's transcript, as its agent recorded it");
    addSessionOptions(transcript, *transcriptOptions);
    transcript->add_flag("--json", transcriptOptions->json, "Print the transcript as JSON");
    transcript->add_option("--tail", transcriptOptions->tail, "Only the last N entries")
        ->check(CLI::PositiveNumber);
    transcript->callback(
        [&context, transcriptOptions] { runTranscript(context, *transcriptOptions); });

    auto handoffOptions = std::make_shared<TranscriptOptions>();
    CLI::App* handoff = app.add_subcommand(
        "handoff", "Write a Markdown handoff from which another agent can carry a session on");
    addSessionOptions(handoff, *handoffOptions);
    handoff->add_option("-o,--output", handoffOptions->output,
                        "Where to write it (- for standard output); Handoffs/ by default");
    handoff->callback([&context, handoffOptions] { runHandoff(context, *handoffOptions); });
}

} // namespace tidewick
