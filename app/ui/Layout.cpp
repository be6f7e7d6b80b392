#include "Layout.h"

#include "DisplayText.h"
#include "Screen.h"
#include "TranscriptView.h"
#include "service/SettingsText.h"
#include "foundation/File.h"
#include "usage/UsageText.h"
#include "sessions/SessionText.h"

#include <algorithm>
#include <ctime>
#include <map>

namespace tidewick {

namespace {

/// Builds one line of exactly `width` columns from segments.
class LineBuilder {
public:
    explicit LineBuilder(int width) : width_(width) {}

    int left() const { return width_ - used_; }

    /// Appends `text` cut to what is left (or to `columns` when given, padded to it).
    LineBuilder& add(std::string_view text, Style style, bool reverse = false, int columns = -1) {
        const int room = left();
        if (room <= 0)
            return *this;
        std::string piece = columns < 0 ? DisplayText::fit(text, room)
                                        : DisplayText::pad(text, std::min(columns, room));
        const int pieceWidth = DisplayText::width(piece);
        if (pieceWidth == 0)
            return *this;
        used_ += pieceWidth;
        line_.push_back({std::move(piece), style, reverse});
        return *this;
    }

    /// Appends `text` flush right, after padding; when it does not fit whole it is cut.
    LineBuilder& addRight(std::string_view text, Style style, bool reverse = false) {
        const int textWidth = std::min(DisplayText::width(text), left());
        spaces(left() - textWidth, Style::plain, reverse);
        return add(text, style, reverse);
    }

    /// Appends the segments of `line`, each cut to what is left.
    LineBuilder& append(const FrameLine& line) {
        for (const Segment& segment : line)
            add(segment.text, segment.style, segment.reverse);
        return *this;
    }

    LineBuilder& spaces(int count, Style style = Style::plain, bool reverse = false) {
        if (count > 0)
            add(std::string(static_cast<std::size_t>(count), ' '), style, reverse, count);
        return *this;
    }

    FrameLine finish(bool reverse = false) {
        spaces(left(), Style::plain, reverse);
        return std::move(line_);
    }

private:
    int width_;
    int used_ = 0;
    FrameLine line_;
};

std::string repeated(std::string_view piece, int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text.append(piece);
    return text;
}

std::string clockTime(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[16];
    std::strftime(buffer, sizeof buffer, "%H:%M:%S", &local);
    return buffer;
}

struct Columns {
    int marker = 2, agent = 12, project = 0, status = 18, action = 0, held = 5, age = 5;
};

Columns columnsFor(int width) {
    Columns columns;
    const int fixed = columns.marker + columns.agent + columns.status + columns.held + columns.age;
    const int rest = std::max(0, width - fixed);
    if (rest >= 16) {
        columns.project = std::clamp(width / 5, 8, 32);
        columns.project = std::min(columns.project, rest - 8);
        columns.action = rest - columns.project;
    } else {
        columns.project = rest;
    }
    return columns;
}

FrameLine headingRow(int width) {
    const Columns c = columnsFor(width);
    LineBuilder line(width);
    line.spaces(c.marker)
        .add("AGENT", Style::heading, false, c.agent)
        .add("PROJECT", Style::heading, false, c.project)
        .add("STATUS", Style::heading, false, c.status)
        .add("DOING", Style::heading, false, c.action)
        .add(DisplayText::pad("", c.held - 5) + " HELD", Style::heading, false, c.held)
        .addRight("AGO", Style::heading);
    return line.finish();
}

FrameLine sessionRow(const SessionRow& row, bool selected, int width) {
    const Columns c = columnsFor(width);
    LineBuilder line(width);
    const bool r = selected;
    line.add(selected ? "▸ " : "  ", Style::bold, r, c.marker)
        .add(row.agent, Style::plain, r, c.agent)
        .add(row.project, Style::plain, r, c.project)
        .add(row.statusLabel, styleFor(row.status), r, c.status)
        .add(row.action, Style::dim, r, c.action);
    const std::string held = std::to_string(row.held);
    line.add(std::string(
                 static_cast<std::size_t>(std::max(0, c.held - 1 - static_cast<int>(held.size()))),
                 ' ') +
                 held + " ",
             row.held > 0 ? Style::needsPermission : Style::dim, r, c.held);
    line.addRight(row.sinceActivity, Style::dim, r);
    return line.finish(r);
}

/// Appends wrapped `text` indented by `indent` columns, at most `maxLines` lines.
void addWrapped(std::vector<FrameLine>& lines, std::string_view text, int indent, Style style,
                int width, std::size_t maxLines) {
    for (const std::string& piece : DisplayText::wrap(text, width - indent, maxLines)) {
        LineBuilder line(width);
        line.spaces(indent).add(piece, style);
        lines.push_back(line.finish());
    }
}

// The question being answered: where it stands, its text and its options, the one under
// the cursor marked, and ticks for a multiple choice.
void addQuestionForm(std::vector<FrameLine>& lines, const QuestionForm& form, int width) {
    const AskedQuestion& question = form.current();
    LineBuilder heading(width);
    heading.add("Question " + std::to_string(form.index() + 1) + " of " +
                    std::to_string(form.questions().size()),
                Style::heading);
    if (question.header)
        heading.add(" · " + DisplayText::singleLine(*question.header), Style::dim);
    lines.push_back(heading.finish());
    addWrapped(lines, question.question, 2, Style::bold, width, 3);
    for (std::size_t i = 0; i < question.options.size(); ++i) {
        const QuestionOption& option = question.options[i];
        LineBuilder line(width);
        line.add(i == form.cursor() ? " › " : "   ", Style::key);
        if (question.multiSelect)
            line.add(form.isTicked(i) ? "[x] " : "[ ] ", Style::key);
        line.add(std::to_string(i + 1), Style::key).spaces(1);
        line.add(DisplayText::singleLine(option.label), Style::bold);
        if (option.description)
            line.add(" — " + DisplayText::singleLine(*option.description), Style::dim);
        lines.push_back(line.finish());
    }
}

// What "always allow" leaves behind, shown while the rule can still be changed.
void addAlwaysOffer(std::vector<FrameLine>& lines, const std::optional<AlwaysAllowOffer>& offer,
                    AgentKind agent, int width) {
    LineBuilder heading(width);
    heading.add("Always allow", Style::heading);
    lines.push_back(heading.finish());
    const std::string name(displayName(agent));
    std::string text;
    if (!offer)
        text = SessionText::noRuleOffered(agent) + " For example Edit(src/**).";
    else if (offer->kind == AlwaysAllowOffer::Kind::agentRule)
        text = name + " keeps the rule below for " + offer->tool +
               " in the project's local settings and stops asking for matching calls. " +
               std::string(SessionText::ruleStillAsks);
    else if (offer->kind == AlwaysAllowOffer::Kind::safePrefix)
        text = "Tidewick adds the prefix below to the commands it allows without asking.";
    else
        text =
            "Enter keeps what " + name + " suggests, or type a rule of your own:\n" + offer->text;
    addWrapped(lines, text, 2, Style::plain, width, 6);
}

std::vector<FrameLine> detailLines(const ScreenController& controller, Date now, int width,
                                   int height) {
    std::vector<FrameLine> lines;
    const Session* session = controller.selected();
    if (!session) {
        addWrapped(lines,
                   "No sessions yet. Connect an agent (for example: tidewick connect claude) "
                   "and start it; its sessions appear here. Try tidewick demo for a tour.",
                   0, Style::dim, width, 4);
        return lines;
    }
    const SessionDetail detail = Screen::detail(*session, now, static_cast<std::size_t>(height));
    {
        LineBuilder line(width);
        line.add(detail.row.agent, Style::bold).add(" · ", Style::dim);
        line.add(detail.row.statusLabel, styleFor(detail.row.status));
        if (detail.title && !detail.title->empty())
            line.add(" · ", Style::dim).add(DisplayText::singleLine(*detail.title), Style::plain);
        std::string where;
        if (detail.hostApp)
            where = *detail.hostApp;
        if (detail.model)
            where += (where.empty() ? "" : " · ") + *detail.model;
        if (!where.empty() && line.left() > DisplayText::width(where) + 2)
            line.addRight(DisplayText::singleLine(where), Style::dim);
        lines.push_back(line.finish());
    }
    if (detail.projectPath) {
        LineBuilder line(width);
        line.add(DisplayText::singleLine(*detail.projectPath), Style::dim);
        lines.push_back(line.finish());
    }
    if (controller.mode() == ScreenController::Mode::reply) {
        LineBuilder heading(width);
        heading.add("Quick replies — press a number, or type your own and press Enter:",
                    Style::key);
        lines.push_back(heading.finish());
        const auto& replies = controller.quickReplies();
        for (std::size_t i = 0; i < replies.size() && i < 9; ++i) {
            LineBuilder line(width);
            line.spaces(2)
                .add(std::to_string(i + 1), Style::key)
                .spaces(1)
                .add(DisplayText::singleLine(replies[i]), Style::plain);
            lines.push_back(line.finish());
        }
    }
    if (const QuestionForm* form = controller.questionForm())
        addQuestionForm(lines, *form, width);
    if (controller.mode() == ScreenController::Mode::alwaysRule && controller.targetAgent())
        addAlwaysOffer(lines, controller.alwaysOffer(), *controller.targetAgent(), width);
    for (std::size_t i = 0; i < detail.held.size(); ++i) {
        const HeldRequestView& request = detail.held[i];
        if (static_cast<int>(lines.size()) >= height - 1 && i < detail.held.size()) {
            LineBuilder more(width);
            more.add("… and " + std::to_string(detail.held.size() - i) + " more held", Style::dim);
            lines.push_back(more.finish());
            break;
        }
        LineBuilder head(width);
        const std::string state =
            request.expired ? request.waiting : request.waiting + " · " + request.countdown;
        const int stateWidth = DisplayText::width(state);
        head.add("● ", request.expired ? Style::expired : Style::waiting);
        head.add(DisplayText::fit(DisplayText::singleLine(request.title),
                                  std::max(8, head.left() - stateWidth - 2)),
                 Style::bold);
        head.addRight(state, request.expired ? Style::expired : Style::waiting);
        lines.push_back(head.finish());
        if (request.detail) {
            const std::size_t room = request.kind == PendingKind::permission ? 4 : 3;
            addWrapped(lines, *request.detail, 4, Style::plain, width, room);
        }
        if (request.risk) {
            LineBuilder risk(width);
            risk.spaces(4).add(" ⚠ Risk: " + *request.risk + " ", Style::risk);
            lines.push_back(risk.finish());
        }
        if (!request.expired) {
            LineBuilder keys(width);
            keys.spaces(4);
            if (request.question)
                keys.add("1–" + std::to_string(std::max<std::size_t>(request.options, 1)),
                         Style::key)
                    .add(" choose · ", Style::dim)
                    .add(controller.allowKey(), Style::key)
                    .add(" answer · ", Style::dim)
                    .add(controller.denyKey(), Style::key)
                    .add(" deny", Style::dim);
            else if (request.kind == PendingKind::permission) {
                keys.add(controller.allowKey(), Style::key).add(" allow · ", Style::dim);
                if (request.canAlwaysAllow)
                    keys.add("a", Style::key).add(" always allow · ", Style::dim);
                keys.add(controller.denyKey(), Style::key).add(" deny", Style::dim);
            } else
                keys.add("r", Style::key)
                    .add(" reply · ", Style::dim)
                    .add("s", Style::key)
                    .add(" let it stop", Style::dim);
            lines.push_back(keys.finish());
        }
    }
    // A turn held for a reply shows the agent's last message as its detail already.
    const bool messageShown =
        std::any_of(detail.held.begin(), detail.held.end(), [&](const HeldRequestView& r) {
            return r.detail && r.detail == detail.lastMessage;
        });
    if (detail.lastMessage && !detail.lastMessage->empty() && !messageShown &&
        static_cast<int>(lines.size()) + 2 <= height) {
        LineBuilder heading(width);
        heading.add("Last message", Style::heading);
        lines.push_back(heading.finish());
        addWrapped(lines, *detail.lastMessage, 2, Style::plain, width,
                   static_cast<std::size_t>(std::min(3, height - static_cast<int>(lines.size()))));
    }
    const int room = height - static_cast<int>(lines.size()) - 1;
    if (room > 0 && !detail.timeline.empty()) {
        LineBuilder heading(width);
        heading.add("Timeline", Style::heading);
        lines.push_back(heading.finish());
        const std::size_t shown =
            std::min<std::size_t>(static_cast<std::size_t>(room), detail.timeline.size());
        for (std::size_t i = detail.timeline.size() - shown; i < detail.timeline.size(); ++i) {
            const TimelineLine& item = detail.timeline[i];
            LineBuilder line(width);
            line.spaces(2)
                .add(clockTime(item.time), Style::dim)
                .spaces(1)
                .add(item.text, item.kind == TimelineKind::error ? Style::error : Style::plain);
            if (item.outcome == ToolOutcome::finished)
                line.add(" ✓", Style::success);
            else if (item.outcome == ToolOutcome::failed)
                line.add(" ✗", Style::error);
            lines.push_back(line.finish());
        }
    }
    if (static_cast<int>(lines.size()) > height)
        lines.resize(static_cast<std::size_t>(height));
    return lines;
}

Style styleFor(UsageLevel level) {
    switch (level) {
    case UsageLevel::normal:
        return Style::success;
    case UsageLevel::high:
        return Style::warning;
    case UsageLevel::critical:
        return Style::error;
    }
    return Style::plain;
}

/// Adds one window: its label, a bar and the percentage coloured by level, and the time to
/// reset (or "reset", dimmed, once it has).
void addWindow(LineBuilder& line, const UsageWindow& window, Date now, int barCells,
               bool longReset) {
    const std::optional<double> used = window.usedAt(now);
    const Style style = used ? styleFor(usageLevel(*used)) : Style::dim;
    line.add(window.label() + " ", Style::plain).add(UsageText::bar(window, now, barCells), style);
    line.add(" " + UsageText::percent(window, now), used ? style : Style::dim);
    if (!used || !window.resetsAt)
        return;
    const double left = std::chrono::duration<double>(*window.resetsAt - now).count();
    line.add(longReset ? "  " + UsageText::resetPhrase(window, now)
                       : " " + UsageText::duration(left),
             Style::dim);
}

/// The header's line: every agent's windows, as many as fit; nothing without figures.
std::optional<FrameLine> usageHeader(const std::vector<AgentUsage>& usage, Date now, int width) {
    LineBuilder line(width);
    bool any = false;
    for (const AgentUsage& agent : usage) {
        if (agent.windows.empty())
            continue;
        if (any)
            line.add("   ", Style::plain);
        line.add(std::string(displayName(agent.agent)), Style::bold);
        for (const UsageWindow& window : agent.windows) {
            // A window is shown whole or not at all.
            LineBuilder piece(width);
            piece.add("  ", Style::plain);
            addWindow(piece, window, now, 6, false);
            FrameLine segments = piece.finish();
            while (!segments.empty() &&
                   segments.back().text.find_first_not_of(' ') == std::string::npos)
                segments.pop_back();
            int pieceWidth = 0;
            for (const Segment& segment : segments)
                pieceWidth += DisplayText::width(segment.text);
            if (pieceWidth > line.left())
                break;
            for (const Segment& segment : segments)
                line.add(segment.text, segment.style);
        }
        any = true;
    }
    if (!any)
        return std::nullopt;
    return line.finish();
}

/// The usage view: each agent's windows (or why there are none) and the sessions' tokens.
std::vector<FrameLine> usageLines(const UsageReport& report, int width) {
    std::vector<FrameLine> lines;
    for (const AgentUsage& agent : report.agents) {
        LineBuilder heading(width);
        heading.add(std::string(displayName(agent.agent)), Style::heading);
        const std::string age = UsageText::age(agent, report.at);
        if (!age.empty())
            heading.add(" · " + age, Style::dim);
        lines.push_back(heading.finish());
        if (agent.windows.empty()) {
            LineBuilder why(width);
            why.spaces(2).add(agent.missing, Style::dim);
            lines.push_back(why.finish());
        }
        for (const UsageWindow& window : agent.windows) {
            LineBuilder line(width);
            line.spaces(2);
            addWindow(line, window, report.at, 20, true);
            lines.push_back(line.finish());
        }
    }
    lines.push_back(LineBuilder(width).finish());
    LineBuilder heading(width);
    heading.add("Tokens by session", Style::heading);
    lines.push_back(heading.finish());
    for (const SessionTokens& session : report.sessions) {
        const std::string where = session.projectPath ? File::lastComponent(*session.projectPath)
                                  : session.title     ? *session.title
                                                      : session.key.sessionId;
        LineBuilder line(width);
        line.spaces(2)
            .add(std::string(displayName(session.key.agent)), Style::plain, false, 13)
            .add(DisplayText::singleLine(where), Style::plain, false, 26)
            .add(UsageText::tokenUse(session.tokens.input, session.tokens.output, session.partial),
                 Style::dim);
        lines.push_back(line.finish());
    }
    if (report.sessions.empty()) {
        LineBuilder none(width);
        none.spaces(2).add("No session has a record Tidewick could read.", Style::dim);
        lines.push_back(none.finish());
    }
    return lines;
}

std::vector<FrameLine> helpLines(const ScreenController& controller, int width) {
    const std::string allow = controller.allowKey(), deny = controller.denyKey();
    const std::vector<std::pair<std::string, std::string>> keys = {
        {"↑ ↓  j k", "move between sessions (PgUp PgDn Home End jump)"},
        {allow, "allow the selected session's permission request"},
        {"a", "always allow: the agent (or Tidewick) stops asking for such calls"},
        {"1–9", "answer a question: choose (space ticks), or type your own"},
        {deny, "deny it; type a message for the agent or just press Enter"},
        {"r", "reply to a session waiting for you, or continue a finished one; 1–9 quick replies"},
        {"s", "let a session waiting for your reply stop"},
        {"t", "show the selected session's transcript (/ searches, Enter opens a line)"},
        {"h", "write a handoff another agent can carry the session on from"},
        {"e  g", "end the selected session (asks first); go to its agent's tmux pane"},
        {"u", "show every usage-limit window and the sessions' token use"},
        {"p  x  ,", std::string(controller.settings().gating.paused ? "resume" : "pause") +
                        " · forget the selected session (asks first) · settings"},
        {"Tab  Esc  ?", "go where the banner points · cancel the line you are typing · show keys"},
        {"q", controller.quitting() == ScreenController::Quitting::endsHeldRequests
                  ? "quit (asks first while requests are held)"
                  : "close this window; Tidewick keeps running and holding requests"},
    };
    std::vector<FrameLine> lines;
    LineBuilder title(width);
    title.add("Keys", Style::heading);
    lines.push_back(title.finish());
    for (const auto& [key, meaning] : keys) {
        LineBuilder line(width);
        line.spaces(2).add(key, Style::key, false, 12).add(meaning, Style::plain);
        lines.push_back(line.finish());
    }
    lines.push_back(LineBuilder(width).finish());
    LineBuilder quick(width);
    quick.add("Quick replies", Style::heading);
    lines.push_back(quick.finish());
    const auto& replies = controller.quickReplies();
    for (std::size_t i = 0; i < replies.size() && i < 9; ++i) {
        LineBuilder line(width);
        line.spaces(2)
            .add(std::to_string(i + 1), Style::key, false, 12)
            .add(DisplayText::singleLine(replies[i]), Style::plain);
        lines.push_back(line.finish());
    }
    lines.push_back(LineBuilder(width).finish());
    LineBuilder back(width);
    back.add("Press any key to go back.", Style::dim);
    lines.push_back(back.finish());
    return lines;
}

FrameLine framed(FrameLine content, Style frame) {
    FrameLine line;
    line.push_back({"│ ", frame, false});
    for (Segment& segment : content)
        line.push_back(std::move(segment));
    line.push_back({" │", frame, false});
    return line;
}

FrameLine rule(const char* leftCorner, const char* rightCorner, int width, Style frame) {
    return {{leftCorner + repeated("─", width - 2) + rightCorner, frame, false}};
}

std::vector<FrameLine> settingsLines(const SettingsView& view, const TidewickSettings& settings,
                                     int width, int height) {
    std::vector<FrameLine> lines;
    LineBuilder title(width);
    title.add("Settings", Style::heading)
        .add("  Enter or space switches, Esc goes back", Style::dim);
    lines.push_back(title.finish());
    const std::vector<SettingsView::Row> rows = SettingsView::rows(settings);
    // Two rows at the bottom say what the selected setting does.
    const int listRows = std::max(1, height - 3);
    const int count = static_cast<int>(rows.size());
    const int selected = static_cast<int>(view.selected());
    const int first = std::clamp(selected - listRows / 2, 0, std::max(0, count - listRows));
    for (int index = first; index < count && index < first + listRows; ++index) {
        const SettingsView::Row& row = rows[static_cast<std::size_t>(index)];
        const bool current = index == selected;
        LineBuilder line(width);
        line.add(current ? "▸ " : "  ", Style::bold, current, 2)
            .add(row.name, Style::plain, current, 34)
            .add(row.toggles ? (row.value == "true" ? "[on]  " : "[off] ") : "", Style::key,
                 current)
            .add(row.value, row.isDefault ? Style::dim : Style::bold, current);
        lines.push_back(line.finish(current));
    }
    while (static_cast<int>(lines.size()) < listRows + 1)
        lines.push_back(LineBuilder(width).finish());
    LineBuilder about(width);
    about.spaces(2).add(view.description(), Style::dim);
    lines.push_back(LineBuilder(width).finish());
    lines.push_back(about.finish());
    return lines;
}

FrameLine topRule(const ScreenController& controller, int width, Style frame,
                  LayoutOptions options) {
    LineBuilder line(width);
    line.add("┌─ ", frame).add("Tidewick", Style::bold);
    const std::size_t count = controller.sessions().size();
    line.add(" " + std::to_string(count) + (count == 1 ? " session " : " sessions "), Style::dim);
    const GatingPolicy& gating = controller.settings().gating;
    if (gating.paused)
        line.add(" " + SettingsText::pausedState(gating.pausedUntil) + " ", Style::chip)
            .add(" ", frame);
    std::string chip;
    if (options.alertChip && controller.heldCount() > 0)
        chip = " " + std::to_string(controller.heldCount()) + " held ";
    const int tail = DisplayText::width(chip) + 3;
    line.add(repeated("─", std::max(0, line.left() - tail)), frame);
    if (!chip.empty())
        line.add(chip, Style::chip);
    line.add(repeated("─", std::max(0, line.left() - 1)), frame).add("┐", frame);
    return line.finish();
}

std::string promptFor(const ScreenController& controller) {
    switch (controller.mode()) {
    case ScreenController::Mode::denyMessage:
        return "Deny — message for the agent (optional), Enter sends, Esc cancels: ";
    case ScreenController::Mode::alwaysRule:
        return "Always allow — Enter sends, Esc cancels: ";
    case ScreenController::Mode::question:
        return controller.questionForm()->current().multiSelect
                   ? "Numbers or space tick, Enter sends, or type your own answer: "
                   : "A number chooses, or type your own answer and press Enter: ";
    default:
        return "Reply (Enter sends, Esc cancels): ";
    }
}

FrameLine statusLine(const ScreenController& controller, Date now, int width,
                     std::optional<std::pair<int, int>>& cursor, int row) {
    LineBuilder line(width);
    switch (controller.mode()) {
    case ScreenController::Mode::denyMessage:
    case ScreenController::Mode::reply:
    case ScreenController::Mode::alwaysRule:
    case ScreenController::Mode::question: {
        const std::string prompt = promptFor(controller);
        // Show the end of a long line, where the user is typing.
        const int promptWidth = DisplayText::width(prompt);
        const int room = std::max(1, width - std::min(promptWidth, width / 2) - 1);
        std::string shown =
            controller.questionForm() ? controller.questionForm()->typed() : controller.input();
        while (DisplayText::width(shown) > room) {
            shown.erase(0, 1);
            while (!shown.empty() && (static_cast<unsigned char>(shown[0]) & 0xC0) == 0x80)
                shown.erase(0, 1);
        }
        line.add(DisplayText::fit(prompt, std::min(promptWidth, width / 2)), Style::key);
        const int column = width - line.left();
        line.add(shown, Style::plain);
        cursor = std::make_pair(row, std::min(width - 1, column + DisplayText::width(shown)));
        break;
    }
    case ScreenController::Mode::transcript: {
        const TranscriptView& view = *controller.transcript();
        if (view.isSearching()) {
            line.add("Search: ", Style::key).add(view.query(), Style::plain);
            cursor = std::make_pair(row, std::min(width - 1, 8 + DisplayText::width(view.query())));
            break;
        }
        if (auto message = controller.message(now)) {
            line.add(DisplayText::singleLine(message->text),
                     message->tone == ScreenController::Tone::warning ? Style::warning
                                                                      : Style::success);
            break;
        }
        if (!view.notice().empty()) {
            line.add(view.notice(), Style::warning);
            break;
        }
        line.add("↑↓", Style::key).add(" move  ", Style::dim);
        line.add("Enter", Style::key).add(" open  ", Style::dim);
        line.add("/", Style::key).add(" search  ", Style::dim);
        line.add("n N", Style::key).add(" next  ", Style::dim);
        line.add("h", Style::key).add(" handoff  ", Style::dim);
        line.add("t", Style::key).add(" back", Style::dim);
        break;
    }
    case ScreenController::Mode::settings:
        if (auto message = controller.message(now)) {
            line.add(DisplayText::singleLine(message->text),
                     message->tone == ScreenController::Tone::warning ? Style::warning
                                                                       : Style::success);
            break;
        }
        line.add("↑↓", Style::key).add(" move  ", Style::dim);
        line.add("Enter", Style::key).add(" switch  ", Style::dim);
        line.add("Esc", Style::key).add(" back", Style::dim);
        break;
    case ScreenController::Mode::confirmForget: {
        const SessionKey& key = *controller.forgetTarget();
        line.add("Forget " + std::string(displayName(key.agent)) + " session " +
                     DisplayText::singleLine(key.sessionId) +
                     "? It leaves the list and the sessions file. (y/N)",
                 Style::warning);
        break;
    }
    case ScreenController::Mode::confirmAction:
        line.add(DisplayText::singleLine(controller.question()) + " (y/N)", Style::warning);
        break;
    case ScreenController::Mode::usage:
        line.add("↑↓", Style::key).add(" scroll  ", Style::dim);
        line.add("u", Style::key).add(" back", Style::dim);
        break;
    case ScreenController::Mode::confirmQuit: {
        const std::size_t held = controller.heldCount();
        line.add(std::to_string(held) + (held == 1 ? " request is" : " requests are") +
                     " held. Quit anyway? Their agents then ask in their own windows. (y/N)",
                 Style::warning);
        break;
    }
    default:
        if (const auto& notice = controller.notice()) {
            line.add(DisplayText::singleLine(*notice), Style::warning);
            break;
        }
        if (auto message = controller.message(now)) {
            const Style style = message->tone == ScreenController::Tone::warning   ? Style::warning
                                : message->tone == ScreenController::Tone::success ? Style::success
                                                                                   : Style::plain;
            line.add(DisplayText::singleLine(message->text), style);
            break;
        }
        line.add("↑↓", Style::key).add(" move  ", Style::dim);
        line.add(controller.allowKey(), Style::key).add(" allow  ", Style::dim);
        line.add("a", Style::key).add(" always  ", Style::dim);
        line.add(controller.denyKey(), Style::key).add(" deny  ", Style::dim);
        line.add("r", Style::key).add(" reply  ", Style::dim);
        line.add("s", Style::key).add(" stop  ", Style::dim);
        line.add("t", Style::key).add(" transcript  ", Style::dim);
        line.add("u", Style::key).add(" usage  ", Style::dim);
        line.add("?", Style::key).add(" keys  ", Style::dim);
        line.add("q", Style::key).add(" quit", Style::dim);
        break;
    }
    return line.finish();
}

/// The banner over the top line: the whole width in the banner's colours.
FrameLine bannerLine(const ScreenController::Banner& banner, int width) {
    LineBuilder line(width);
    line.add(DisplayText::pad(" ● " + DisplayText::singleLine(banner.text), width), Style::banner);
    return line.finish();
}

/// The rows the avatar takes in the header of a screen this size: none without an avatar or
/// over the list of keys, and none where the sessions would lose too much room to it.
int avatarRows(const ScreenController& controller, const LayoutOptions& options, int width,
               int height) {
    // The list of keys needs every row it can get.
    if (!options.avatar || width < minimumWidth ||
        controller.mode() == ScreenController::Mode::help)
        return 0;
    const int rows = static_cast<int>(options.avatar->height());
    return height - rows >= minimumHeight + 4 ? rows : 0;
}

AvatarPose poseAt(const ScreenController& controller, Date now, const LayoutOptions& options) {
    return choosePose(controller.sessions(), now, options.awakeSince,
                      options.avatar->sleepAfterSeconds);
}

std::vector<FrameLine> figureLines(const AvatarDefinition& avatar, AvatarPose pose, Date now) {
    const AvatarDefinition::Frame& frame = avatar.frameAt(pose, now);
    std::vector<FrameLine> lines;
    for (std::size_t row = 0; row < avatar.height(); ++row) {
        LineBuilder line(avatar.width());
        if (row < frame.size())
            line.add(frame[row], styleFor(pose));
        lines.push_back(line.finish());
    }
    return lines;
}

/// Who the avatar is looking at: the first session (in screen order, the most urgent) in
/// its pose, and what it is about.
std::string focusText(const ScreenController& controller, AvatarPose pose) {
    for (const Session& session : controller.sessions()) {
        if (poseOf(session) != pose)
            continue;
        std::string what(label(session.status));
        if (!session.pending.empty())
            what = session.pending.front().title;
        else if (session.currentAction && !session.currentAction->empty())
            what = *session.currentAction;
        return Screen::who(session) + " — " + DisplayText::singleLine(what);
    }
    return "";
}

/// "2 need you · 1 working · 3 idle": the sessions that are not over, by pose.
std::string countsText(const ScreenController& controller) {
    std::map<AvatarPose, int> counts;
    for (const Session& session : controller.sessions())
        if (std::optional<AvatarPose> pose = poseOf(session))
            ++counts[*pose];
    std::string text;
    for (const auto& [pose, count] : counts) {
        std::string what;
        switch (pose) {
        case AvatarPose::needsYou:
            what = count == 1 ? "needs you" : "need you";
            break;
        case AvatarPose::error:
            what = count == 1 ? "error" : "errors";
            break;
        default:
            what = std::string(rawValue(pose));
            break;
        }
        text += (text.empty() ? "" : " · ") + std::to_string(count) + " " + what;
    }
    return text;
}

std::vector<FrameLine> avatarBand(const ScreenController& controller, Date now, int width,
                                  const LayoutOptions& options) {
    const AvatarPose pose = poseAt(controller, now, options);
    const std::vector<FrameLine> figure = figureLines(*options.avatar, pose, now);
    const std::string texts[] = {options.avatar->pose(pose).expression,
                                 pose == AvatarPose::sleeping ? "" : focusText(controller, pose),
                                 countsText(controller)};
    const Style styles[] = {styleFor(pose), Style::plain, Style::dim};
    std::vector<FrameLine> lines;
    for (std::size_t row = 0; row < figure.size(); ++row) {
        LineBuilder line(width);
        line.append(figure[row]).spaces(2);
        if (row < std::size(texts))
            line.add(DisplayText::singleLine(texts[row]), styles[row]);
        lines.push_back(line.finish());
    }
    return lines;
}

} // namespace

Style styleFor(AvatarPose pose) {
    switch (pose) {
    case AvatarPose::needsYou:
        return Style::needsPermission;
    case AvatarPose::error:
        return Style::error;
    case AvatarPose::working:
        return Style::working;
    case AvatarPose::finished:
        return Style::finished;
    case AvatarPose::idle:
        return Style::idle;
    case AvatarPose::sleeping:
        return Style::dim;
    }
    return Style::plain;
}

std::optional<AvatarCells> layoutAvatar(const ScreenController& controller, Date now, int width,
                                        int height, const LayoutOptions& options) {
    if (width < minimumWidth || height < minimumHeight ||
        avatarRows(controller, options, width, height) == 0)
        return std::nullopt;
    const AvatarPose pose = poseAt(controller, now, options);
    // Inside the frame's left border ("│ "), below the top line.
    return AvatarCells{1, 2, pose, figureLines(*options.avatar, pose, now)};
}

Style styleFor(SessionStatus status) {
    switch (status) {
    case SessionStatus::working:
        return Style::working;
    case SessionStatus::needsPermission:
        return Style::needsPermission;
    case SessionStatus::waitingReply:
        return Style::waitingReply;
    case SessionStatus::finished:
        return Style::finished;
    case SessionStatus::idle:
        return Style::idle;
    case SessionStatus::error:
        return Style::error;
    case SessionStatus::ended:
        return Style::ended;
    }
    return Style::plain;
}

std::string Frame::text(int row) const {
    std::string result;
    if (row < 0 || row >= static_cast<int>(lines.size()))
        return result;
    for (const Segment& segment : lines[static_cast<std::size_t>(row)])
        result += segment.text;
    return result;
}

std::string Frame::text() const {
    std::string result;
    for (int row = 0; row < static_cast<int>(lines.size()); ++row)
        result += text(row) + "\n";
    return result;
}

Frame layoutScreen(const ScreenController& controller, Date now, int width, int height,
                   LayoutOptions options) {
    Frame frame;
    frame.width = std::max(width, 0);
    frame.height = std::max(height, 0);
    if (width < minimumWidth || height < minimumHeight) {
        for (int row = 0; row < frame.height; ++row) {
            LineBuilder line(frame.width);
            if (row == 0)
                line.add("Tidewick: " + std::to_string(controller.heldCount()) + " held",
                         Style::bold);
            else if (row == 1)
                line.add("Make the terminal at least " + std::to_string(minimumWidth) + "×" +
                             std::to_string(minimumHeight) + ".",
                         Style::warning);
            frame.lines.push_back(line.finish());
        }
        return frame;
    }

    const Style border = controller.isGlowing() ? Style::glow : Style::frame;
    const int inner = width - 4;
    const int band = avatarRows(controller, options, width, height);
    // The agents' usage limits head the session list when there are figures.
    std::optional<FrameLine> header;
    if (controller.mode() != ScreenController::Mode::usage && !controller.transcript())
        header = usageHeader(controller.usage(), now, inner);
    // Fixed rows: top rule, avatar, usage, headings, separator, bottom rule, status line.
    const int interior = height - 5 - band - (header ? 1 : 0);
    const int sessionCount = static_cast<int>(controller.sessions().size());
    const int listRows = std::clamp(sessionCount, 1, std::max(3, interior * 2 / 5));
    const int detailRows = interior - listRows;

    if (const std::optional<ScreenController::Banner> banner = controller.banner())
        frame.lines.push_back(bannerLine(*banner, width));
    else
        frame.lines.push_back(topRule(controller, width, border, options));
    if (band > 0)
        for (FrameLine& line : avatarBand(controller, now, inner, options))
            frame.lines.push_back(framed(std::move(line), border));
    if (header)
        frame.lines.push_back(framed(std::move(*header), border));
    if (const UsageReport* report = controller.usageReport()) {
        LineBuilder title(inner);
        title.add("Usage limits", Style::heading);
        frame.lines.push_back(framed(title.finish(), border));
        std::vector<FrameLine> rows = usageLines(*report, inner);
        const std::size_t first = std::min(
            controller.usageScroll(), rows.size() > static_cast<std::size_t>(interior + 1)
                                          ? rows.size() - static_cast<std::size_t>(interior + 1)
                                          : 0);
        for (int row = 0; row < interior + 1; ++row) {
            const std::size_t index = first + static_cast<std::size_t>(row);
            frame.lines.push_back(
                framed(index < rows.size() ? std::move(rows[index]) : LineBuilder(inner).finish(),
                       border));
        }
    } else if (const TranscriptView* view = controller.transcript()) {
        LineBuilder title(inner);
        title.add("Transcript · ", Style::heading).add(view->title(), Style::bold);
        frame.lines.push_back(framed(title.finish(), border));
        std::vector<FrameLine> rows = view->lines(inner, interior + 1);
        for (int row = 0; row < interior + 1; ++row)
            frame.lines.push_back(framed(row < static_cast<int>(rows.size())
                                             ? std::move(rows[static_cast<std::size_t>(row)])
                                             : LineBuilder(inner).finish(),
                                         border));
    } else if (const SettingsView* view = controller.settingsView()) {
        std::vector<FrameLine> rows = settingsLines(*view, controller.settings(), inner, interior + 2);
        for (int row = 0; row < interior + 2; ++row)
            frame.lines.push_back(framed(row < static_cast<int>(rows.size())
                                             ? std::move(rows[static_cast<std::size_t>(row)])
                                             : LineBuilder(inner).finish(),
                                         border));
    } else if (controller.mode() == ScreenController::Mode::help) {
        std::vector<FrameLine> help = helpLines(controller, inner);
        for (int row = 0; row < interior + 2; ++row)
            frame.lines.push_back(framed(row < static_cast<int>(help.size())
                                             ? std::move(help[static_cast<std::size_t>(row)])
                                             : LineBuilder(inner).finish(),
                                         border));
    } else {
        frame.lines.push_back(framed(headingRow(inner), border));
        const auto selected = controller.selectedIndex();
        // Keep the selected row in view, as near the middle as the list allows.
        int first = 0;
        if (selected && sessionCount > listRows)
            first =
                std::clamp(static_cast<int>(*selected) - listRows / 2, 0, sessionCount - listRows);
        for (int row = 0; row < listRows; ++row) {
            const int index = first + row;
            if (index < sessionCount) {
                const Session& session = controller.sessions()[static_cast<std::size_t>(index)];
                frame.lines.push_back(
                    framed(sessionRow(Screen::row(session, now),
                                      selected && static_cast<int>(*selected) == index, inner),
                           border));
            } else {
                frame.lines.push_back(framed(LineBuilder(inner).finish(), border));
            }
        }
        frame.lines.push_back(rule("├", "┤", width, border));
        std::vector<FrameLine> detail = detailLines(controller, now, inner, detailRows);
        for (int row = 0; row < detailRows; ++row)
            frame.lines.push_back(framed(row < static_cast<int>(detail.size())
                                             ? std::move(detail[static_cast<std::size_t>(row)])
                                             : LineBuilder(inner).finish(),
                                         border));
    }
    frame.lines.push_back(rule("└", "┘", width, border));
    frame.lines.push_back(statusLine(controller, now, width, frame.cursor, height - 1));
    return frame;
}

} // namespace tidewick
