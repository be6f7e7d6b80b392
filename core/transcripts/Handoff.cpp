#include "transcripts/Handoff.h"

#include "events/SessionStatus.h"
#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "transcripts/TranscriptText.h"

#include <algorithm>
#include <ctime>
#include <sys/stat.h>

namespace tidewick {

namespace {

std::string formatUTC(Date date, const char* format) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[64];
    std::strftime(text, sizeof text, format, &parts);
    return text;
}

std::string utc(Date date) {
    return formatUTC(date, "%Y-%m-%d %H:%M UTC");
}

std::string oneLine(std::string_view text, std::size_t limit) {
    std::string line = Text::replacingAll(Text::replacingAll(text, "\r", ""), "\n", " ");
    return Text::cut(Text::trimmed(line), limit, Text::ellipsis);
}

// `text` as inline code, fenced by more backticks than it holds in a row.
std::string code(std::string_view text) {
    std::size_t longest = 0, run = 0;
    for (char c : text) {
        run = c == '`' ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    const std::string fence(longest + 1, '`');
    const bool pad = !text.empty() && (text.front() == '`' || text.back() == '`');
    return fence + (pad ? " " : "") + std::string(text) + (pad ? " " : "") + fence;
}

// `text` as a Markdown quotation, cut to the handoff's text limit.
std::string quoted(std::string_view text) {
    const std::string kept = Text::cut(Text::trimmed(text), Handoff::textLimit, Text::ellipsis);
    std::string out;
    std::size_t start = 0;
    while (start <= kept.size()) {
        std::size_t end = kept.find('\n', start);
        if (end == std::string::npos)
            end = kept.size();
        const std::string_view line = std::string_view(kept).substr(start, end - start);
        out += line.empty() ? ">\n" : "> " + std::string(line) + "\n";
        start = end + 1;
    }
    return out;
}

std::string shellQuoted(std::string_view text) {
    return "'" + Text::replacingAll(text, "'", "'\\''") + "'";
}

std::string outcome(const ToolCall& call) {
    if (!call.finished())
        return "no result recorded";
    std::string said = call.failed ? "failed" : "succeeded";
    const std::string first =
        oneLine(call.result->substr(0, call.result->find('\n')), Handoff::resultLimit);
    if (!first.empty())
        said += ": " + code(first);
    return said;
}

std::vector<const ToolCall*> calls(const std::vector<TranscriptEntry>& entries) {
    std::vector<const ToolCall*> found;
    for (const TranscriptEntry& entry : entries)
        if (entry.tool)
            found.push_back(&*entry.tool);
    return found;
}

// The latest `limit` of `items`, and a line saying how many earlier ones were left out.
template <typename T>
std::vector<T> latest(const std::vector<T>& items, std::size_t limit, std::string& out) {
    if (items.size() <= limit)
        return items;
    out += "- (" + std::to_string(items.size() - limit) + " earlier not listed)\n";
    return std::vector<T>(items.end() - static_cast<std::ptrdiff_t>(limit), items.end());
}

struct Work {
    std::vector<const ToolCall*> commands;
    std::vector<const ToolCall*> others;
    std::vector<FileTouched> files;
    std::vector<const ToolCall*> failed;
};

Work workOf(const Transcript& transcript) {
    Work work;
    for (const ToolCall* call : calls(transcript.entries)) {
        (call->command ? work.commands : work.others).push_back(call);
        if (call->failed)
            work.failed.push_back(call);
        for (const FileTouched& file : call->files) {
            auto known = std::find_if(work.files.begin(), work.files.end(),
                                      [&](const FileTouched& f) { return f.path == file.path; });
            if (known == work.files.end())
                work.files.push_back(file);
        }
    }
    return work;
}

std::string displayPath(const std::string& path, const std::optional<std::string>& project) {
    if (project && Text::startsWith(path, *project + "/"))
        return path.substr(project->size() + 1);
    return path;
}

void writeWhere(std::string& out, const Session& session, const Transcript& transcript) {
    out += "## Where\n\n";
    out += "- Project folder: " +
           (transcript.projectPath ? code(*transcript.projectPath) : std::string("not recorded")) +
           "\n";
    std::string agent(displayName(session.key.agent));
    if (transcript.agentVersion)
        agent += " " + *transcript.agentVersion;
    if (transcript.model)
        agent += ", model " + code(*transcript.model);
    out += "- Agent: " + agent + "\n";
    if (transcript.branch)
        out += "- Branch: " + code(*transcript.branch) + "\n";
    out += "- Session: " + code(session.key.sessionId);
    if (transcript.startedAt)
        out += ", started " + utc(*transcript.startedAt);
    if (transcript.lastActivityAt)
        out += ", last active " + utc(*transcript.lastActivityAt);
    out += "\n- Status in Tidewick: " + std::string(label(session.status)) + "\n";
    out += "- Record: " + code(transcript.source) + " (" +
           TranscriptText::counted(transcript.userMessages, "prompt") + ", " +
           TranscriptText::counted(transcript.toolCalls, "tool call");
    if (!transcript.tokens.isEmpty())
        out += ", " + std::to_string(transcript.tokens.input) + " tokens in and " +
               std::to_string(transcript.tokens.output) + " out";
    out += ")\n\n";
}

void writePrompts(std::string& out, const Transcript& transcript) {
    const std::vector<const TranscriptEntry*> prompts = transcript.userPrompts();
    out += "## Goal\n\nThe first prompt";
    out += transcript.skippedBytes > 0 ? " read" : "";
    out +=
        ":\n\n" + (prompts.empty() ? std::string("> (none recorded)\n") : quoted(prompts[0]->text));
    if (prompts.size() > 1) {
        out += "\n## Latest prompts\n\n";
        const std::size_t from = std::max<std::size_t>(
            1, prompts.size() - std::min(prompts.size() - 1, Handoff::latestPrompts));
        for (std::size_t i = from; i < prompts.size(); ++i) {
            const TranscriptEntry& prompt = *prompts[i];
            out += std::to_string(i + 1) + ". " + (prompt.time ? utc(*prompt.time) : "") + "\n\n" +
                   quoted(prompt.text) + "\n";
        }
    }
    out += "\n## The agent's last message\n\n";
    const TranscriptEntry* last = transcript.lastAgentMessage();
    out += last ? quoted(last->text) : "> (none recorded)\n";
    out += "\n";
}

void writeWork(std::string& out, const Transcript& transcript, const Work& work) {
    out += "## What was done\n\n";
    if (work.commands.empty() && work.files.empty() && work.others.empty() &&
        transcript.subagents.empty())
        out += "No tool calls were recorded.\n\n";
    if (!work.commands.empty()) {
        out += "Commands run:\n\n";
        for (const ToolCall* call : latest(work.commands, Handoff::listedCalls, out))
            out += "- " + code(oneLine(*call->command, Handoff::resultLimit)) + " — " +
                   outcome(*call) + "\n";
        out += "\n";
    }
    if (!work.files.empty()) {
        out += "Files created and edited:\n\n";
        for (const FileTouched& file : latest(work.files, Handoff::listedCalls, out))
            out += "- " + code(displayPath(file.path, transcript.projectPath)) + " (" +
                   std::string(rawValue(file.change)) + ")\n";
        out += "\n";
    }
    if (!work.others.empty()) {
        out += "Other tool calls:\n\n";
        for (const ToolCall* call : latest(work.others, Handoff::listedCalls, out))
            out +=
                "- " + oneLine(call->summary, Handoff::resultLimit) + " — " + outcome(*call) + "\n";
        out += "\n";
    }
    for (const SubagentThread& thread : transcript.subagents) {
        out += "Sub-agent " + code(thread.id);
        if (thread.description)
            out += " (" + oneLine(*thread.description, 80) + ")";
        out += ": " + TranscriptText::counted(static_cast<long long>(calls(thread.entries).size()),
                                              "tool call");
        for (auto entry = thread.entries.rbegin(); entry != thread.entries.rend(); ++entry)
            if (entry->role == TranscriptRole::agent && !entry->thinking) {
                out += "; it said: " + oneLine(entry->text, Handoff::resultLimit);
                break;
            }
        out += "\n\n";
    }
}

void writeOpen(std::string& out, const Session& session, const Transcript& transcript,
               const Work& work) {
    std::string open;
    for (const ToolCall* call : work.failed)
        open +=
            "- Failed: " +
            (call->command ? code(oneLine(*call->command, 120)) : oneLine(call->summary, 120)) +
            (call->result ? " — " + code(oneLine(call->result->substr(0, call->result->find('\n')),
                                                 Handoff::resultLimit))
                          : "") +
            "\n";
    for (const PendingRequest& request : session.pending)
        open +=
            "- Waiting in Tidewick: " + oneLine(request.title, 120) +
            (request.detail ? " — " + code(oneLine(*request.detail, Handoff::resultLimit)) : "") +
            "\n";
    if (transcript.turn == TurnState::running)
        open += "- The agent was still working when this was written.\n";
    for (const ToolCall* call : calls(transcript.entries))
        if (!call->finished() && transcript.turn == TurnState::running)
            open += "- No result yet: " + oneLine(call->summary, 120) + "\n";
    if (transcript.skippedBytes > 0)
        open += "- " + TranscriptText::skipped(transcript.skippedBytes) +
                " Prompts and work from that part are not listed here.\n";
    out += "## What failed or is still open\n\n" + (open.empty() ? "Nothing.\n" : open) + "\n";
}

void writeContinue(std::string& out, const Session& session, const Transcript& transcript,
                   const Work& work) {
    out += "## How to continue\n\n";
    out += transcript.userPrompts().size() > 1 ? "Read first: the goal and the latest prompts above"
                                               : "Read first: the goal above";
    std::vector<std::string> names;
    for (std::size_t i = 0; i < work.files.size() && names.size() < 5; ++i)
        names.push_back(code(displayPath(work.files[i].path, transcript.projectPath)));
    for (std::size_t i = 0; i < names.size(); ++i)
        out += (i == 0 ? ", then " : i + 1 == names.size() ? " and " : ", ") + names[i];
    out += ".\n\n";
    const std::optional<std::string> resume = Handoff::resumeCommand(session.key);
    const std::string agent(displayName(session.key.agent));
    if (resume) {
        out += "To resume this session in " + agent + ", run in the project folder:\n\n```sh\n";
        if (transcript.projectPath)
            out += "cd " + shellQuoted(*transcript.projectPath) + "\n";
        out += *resume + "\n```\n\n";
        if (session.key.agent == AgentKind::codex)
            out += "Without the interactive interface: `codex exec resume " +
                   session.key.sessionId + " \"<what to do next>\"`.\n\n";
    } else {
        out += "To resume this session, open the conversation in " + agent +
               " and continue there.\n\n";
    }
    out += "To carry on with another agent, start it in the project folder and give it this "
           "document.\n";
}

} // namespace

std::string Handoff::render(const Session& session, const Transcript& transcript, Date now,
                            std::string_view secret) {
    std::string project = transcript.projectPath ? File::lastComponent(*transcript.projectPath)
                                                 : std::string("a project");
    std::string out = "# Handoff: " + project + " — " +
                      std::string(displayName(session.key.agent)) + " session " +
                      session.key.sessionId.substr(0, 8) + "\n\n";
    out += "Written by Tidewick at " + utc(now) + " from " +
           std::string(displayName(session.key.agent)) +
           "'s own record of the session, for whoever carries the work on.\n\n";
    const Work work = workOf(transcript);
    writeWhere(out, session, transcript);
    writePrompts(out, transcript);
    writeWork(out, transcript, work);
    writeOpen(out, session, transcript, work);
    writeContinue(out, session, transcript, work);
    if (!secret.empty())
        out = Text::replacingAll(out, secret, secretRemoved);
    return out;
}

std::optional<std::string> Handoff::resumeCommand(const SessionKey& key) {
    switch (key.agent) {
    case AgentKind::claude:
        return "claude --resume " + key.sessionId;
    case AgentKind::codex:
        return "codex resume " + key.sessionId;
    case AgentKind::cursor:
        return "cursor-agent --resume " + key.sessionId;
    case AgentKind::antigravity:
        return std::nullopt;
    }
    return std::nullopt;
}

std::string Handoff::defaultPath(const TidewickPaths& paths, const Session& session, Date now) {
    std::string project =
        session.projectPath ? File::lastComponent(*session.projectPath) : std::string("session");
    for (char& c : project)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.')
            c = '-';
    const std::string name = project + "-" + std::string(rawValue(session.key.agent)) + "-" +
                             session.key.sessionId.substr(0, 8) + "-" +
                             formatUTC(now, "%Y%m%d-%H%M%S") + ".md";
    return File::join(paths.handoffsDirectory(), name);
}

void Handoff::write(const std::string& document, const std::string& path, std::string_view secret) {
    if (!secret.empty() && document.find(secret) != std::string::npos)
        throw Failure(std::string(TranscriptText::handoffRefused));
    try {
        const std::string folder = File::parent(path);
        if (!File::exists(folder))
            File::makeDirectories(folder, 0700);
        File::writeAtomically(path, document, 0600);
    } catch (const SystemError& error) {
        throw Failure("Tidewick couldn't write the handoff: " + std::string(error.what()) + ".");
    }
}

} // namespace tidewick
