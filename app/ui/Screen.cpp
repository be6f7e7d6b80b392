#include "Screen.h"

#include "DisplayText.h"
#include "foundation/File.h"
#include "sessions/CommandRisk.h"
#include "sessions/SessionText.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

namespace tidewick::Screen {

namespace {

double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}

/// When the session started waiting for the user: its oldest held request.
Date waitingSince(const Session& session) {
    if (session.pending.empty())
        return session.lastActivityAt;
    Date earliest = session.pending.front().createdAt;
    for (const PendingRequest& request : session.pending)
        earliest = std::min(earliest, request.createdAt);
    return earliest;
}

/// 0: needs the user, 1: live, 2: ended.
int group(const Session& session) {
    if (needsYou(session.status) || !session.pending.empty())
        return 0;
    return session.status == SessionStatus::ended ? 2 : 1;
}

std::string twoDigits(long value) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "%02ld", value);
    return buffer;
}

} // namespace

std::vector<Session> ordered(std::vector<Session> sessions) {
    std::sort(sessions.begin(), sessions.end(), [](const Session& a, const Session& b) {
        const int groupA = group(a), groupB = group(b);
        if (groupA != groupB)
            return groupA < groupB;
        if (groupA == 0) {
            const Date sinceA = waitingSince(a), sinceB = waitingSince(b);
            if (sinceA != sinceB)
                return sinceA < sinceB;
        } else if (a.lastActivityAt != b.lastActivityAt) {
            return a.lastActivityAt > b.lastActivityAt;
        }
        return a.key < b.key;
    });
    return sessions;
}

std::optional<std::string> projectName(const Session& session) {
    if (!session.projectPath || session.projectPath->empty())
        return std::nullopt;
    std::string path = *session.projectPath;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return DisplayText::singleLine(File::lastComponent(path));
}

std::string who(const Session& session) {
    std::string name(displayName(session.key.agent));
    if (std::optional<std::string> project = projectName(session))
        name += " · " + *project;
    return name;
}

SessionRow row(const Session& session, Date now) {
    SessionRow row;
    row.key = session.key;
    row.agent = std::string(displayName(session.key.agent));
    row.project = projectName(session).value_or("—");
    row.status = session.status;
    row.statusLabel = std::string(label(session.status));
    if (session.currentAction)
        row.action = DisplayText::singleLine(*session.currentAction);
    row.held = session.pending.size();
    row.sinceActivity = age(secondsBetween(session.lastActivityAt, now));
    return row;
}

namespace {

bool isToolCall(TimelineKind kind) {
    return kind == TimelineKind::tool || kind == TimelineKind::shell ||
           kind == TimelineKind::edit || kind == TimelineKind::read;
}

// The entry's text on one line. A command's entry often names the command in its text
// already ("Run ls — ls"), so the detail is added only when it says more.
std::string lineText(const TimelineItem& item) {
    std::string text = item.text;
    if (item.detail && !item.detail->empty()) {
        const std::string_view firstLine =
            std::string_view(*item.detail).substr(0, item.detail->find('\n'));
        if (text.find(firstLine) == std::string::npos)
            text += " — " + *item.detail;
    }
    return DisplayText::singleLine(text);
}

// The timeline as lines: the entry that finishes a tool call (the same kind and text as
// its start, or the text followed by " failed") marks the start's line instead of taking
// one of its own.
std::vector<TimelineLine> timelineLines(const Timeline& timeline) {
    static constexpr std::string_view failedSuffix = " failed";
    std::vector<TimelineLine> lines;
    std::map<std::pair<TimelineKind, std::string>, std::size_t> started;
    for (const TimelineItem& item : timeline) {
        if (isToolCall(item.kind)) {
            std::string call = item.text;
            const bool failed = call.ends_with(failedSuffix);
            if (failed)
                call.resize(call.size() - failedSuffix.size());
            auto open = started.find({item.kind, call});
            if (open != started.end()) {
                lines[open->second].outcome = failed ? ToolOutcome::failed : ToolOutcome::finished;
                started.erase(open);
                continue;
            }
            started[{item.kind, call}] = lines.size();
        }
        lines.push_back({item.time, item.kind, lineText(item), ToolOutcome::none});
    }
    return lines;
}

} // namespace

SessionDetail detail(const Session& session, Date now, std::size_t timelineLimit) {
    SessionDetail detail;
    detail.row = row(session, now);
    detail.projectPath = session.projectPath;
    detail.title = session.title;
    detail.model = session.model;
    detail.hostApp = session.hostApp;
    detail.lastMessage = session.lastMessage;
    for (const PendingRequest& request : session.pending) {
        HeldRequestView view;
        view.id = request.id;
        view.kind = request.kind;
        view.title = request.title;
        view.detail = request.detail;
        view.question = request.isQuestion();
        view.options = view.question ? request.questions.front().options.size() : 0;
        view.canAlwaysAllow = request.kind == PendingKind::permission && !view.question &&
                              session.key.agent != AgentKind::codex;
        if (request.kind == PendingKind::permission && !view.question)
            if (auto finding = CommandRisk::assessDetail(request.detail))
                view.risk = finding->reason;
        const double left = secondsBetween(now, request.deadline);
        view.expired = left <= 0;
        if (view.expired) {
            // The agent has been answered with the time-out by now: say what it does instead.
            view.waiting = request.kind == PendingKind::permission
                               ? SessionText::askingInstead(session.key.agent)
                               : std::string(SessionText::noReplyItStopped);
        } else {
            view.waiting = request.kind == PendingKind::permission ? SessionText::waitingForYou
                                                                   : SessionText::waitingForReply;
            view.countdown = countdown(left);
        }
        detail.held.push_back(std::move(view));
    }
    detail.timeline = timelineLines(session.timeline);
    if (detail.timeline.size() > timelineLimit)
        detail.timeline.erase(detail.timeline.begin(),
                              detail.timeline.end() - static_cast<std::ptrdiff_t>(timelineLimit));
    return detail;
}

std::string age(double seconds) {
    if (!(seconds > 0))
        return "0s";
    const auto whole = static_cast<long long>(seconds);
    if (whole < 60)
        return std::to_string(whole) + "s";
    if (whole < 3600)
        return std::to_string(whole / 60) + "m";
    if (whole < 86400)
        return std::to_string(whole / 3600) + "h";
    return std::to_string(whole / 86400) + "d";
}

std::string countdown(double seconds) {
    const long total = seconds > 0 ? static_cast<long>(std::ceil(seconds)) : 0;
    const long hours = total / 3600, minutes = total / 60 % 60, rest = total % 60;
    if (hours > 0)
        return std::to_string(hours) + ":" + twoDigits(minutes) + ":" + twoDigits(rest);
    return std::to_string(minutes) + ":" + twoDigits(rest);
}

} // namespace tidewick::Screen
