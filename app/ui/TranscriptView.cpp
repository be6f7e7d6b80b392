#include "TranscriptView.h"

#include "DisplayText.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"
#include "transcripts/TranscriptText.h"

#include <algorithm>
#include <ctime>

namespace tidewick {

namespace {

/// Columns before an entry's text: the time, who, and the spaces between.
constexpr int textColumn = 19;

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

std::string firstLine(std::string_view text) {
    const std::string_view trimmed = Text::trimmed(text);
    return DisplayText::singleLine(trimmed.substr(0, trimmed.find('\n')));
}

Style styleOf(const TranscriptEntry& entry) {
    switch (entry.role) {
    case TranscriptRole::user:
        return Style::bold;
    case TranscriptRole::agent:
        return entry.thinking ? Style::dim : Style::plain;
    case TranscriptRole::tool:
        if (!entry.tool->finished())
            return Style::waiting;
        return entry.tool->failed ? Style::error : Style::success;
    case TranscriptRole::system:
        return Style::dim;
    }
    return Style::plain;
}

// One row of exactly `width` columns from pieces, cut where they no longer fit.
FrameLine row(int width, std::vector<Segment> pieces, bool reverse) {
    FrameLine line;
    int used = 0;
    for (Segment& piece : pieces) {
        const std::string text = DisplayText::fit(piece.text, width - used);
        used += DisplayText::width(text);
        if (!text.empty())
            line.push_back({text, piece.style, reverse});
    }
    if (used < width)
        line.push_back(
            {std::string(static_cast<std::size_t>(width - used), ' '), Style::plain, reverse});
    return line;
}

// The full content of an entry, opened up: what the collapsed line leaves out.
std::string expandedText(const TranscriptEntry& entry) {
    if (!entry.tool)
        return entry.text;
    const ToolCall& call = *entry.tool;
    std::string text;
    if (call.input)
        text += *call.input + "\n";
    text += call.result ? *call.result : "(no result yet)";
    if (call.resultLinesCut > 0)
        text += "\n(" +
                TranscriptText::counted(static_cast<long long>(call.resultLinesCut), "more line") +
                ")";
    if (entry.tokens)
        text += "\n" + std::to_string(entry.tokens->input) + " tokens in, " +
                std::to_string(entry.tokens->output) + " out";
    return text;
}

} // namespace

TranscriptView::TranscriptView(Transcript transcript, std::optional<std::int64_t> previousStep)
    : transcript_(std::move(transcript)), entries_(transcript_.entries) {
    if (previousStep && *previousStep > 0)
        for (std::size_t i = 0; i < entries_.size(); ++i)
            if (entries_[i].position >= *previousStep && !entries_[i].skippedBytes) {
                firstNew_ = i;
                break;
            }
    selected_ = firstNew_.value_or(entries_.empty() ? 0 : entries_.size() - 1);
    for (const SubagentThread& thread : transcript_.subagents) {
        TranscriptEntry heading;
        heading.role = TranscriptRole::system;
        heading.text = "Sub-agent " + thread.id.substr(0, 8) +
                       (thread.description ? " — " + *thread.description : std::string());
        entries_.push_back(std::move(heading));
        entries_.insert(entries_.end(), thread.entries.begin(), thread.entries.end());
    }
}

std::string TranscriptView::title() const {
    std::string text = std::string(displayName(transcript_.agent)) + " session " +
                       transcript_.sessionId.substr(0, 8);
    if (transcript_.projectPath)
        text += " · " + *transcript_.projectPath;
    text += " · " + TranscriptText::counted(transcript_.userMessages, "prompt") + " · " +
            TranscriptText::counted(transcript_.toolCalls, "tool call");
    if (transcript_.failedToolCalls > 0)
        text += " (" + std::to_string(transcript_.failedToolCalls) + " failed)";
    return text;
}

std::vector<TranscriptView::Row> TranscriptView::rows(int width) const {
    std::vector<Row> rows;
    const int textWidth = std::max(1, width - textColumn);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const TranscriptEntry& entry = entries_[i];
        if (firstNew_ == i)
            rows.push_back(
                {i, row(width, {{"── new since you last looked ──", Style::key}}, false)});
        const bool selected = i == selected_;
        const Style style = styleOf(entry);
        std::string who(TranscriptText::roleLabel(entry.role));
        std::vector<Segment> pieces = {{clockTime(entry.time) + "  ", Style::dim},
                                       {DisplayText::pad(who, 8) + " ", Style::dim}};
        if (entry.tool) {
            pieces.push_back({std::string(TranscriptText::outcomeMark(*entry.tool)) + " ", style});
            pieces.push_back({DisplayText::singleLine(entry.tool->summary), Style::plain});
            if (entry.tool->result && !isExpanded(i))
                pieces.push_back({"  " + firstLine(*entry.tool->result), Style::dim});
        } else {
            pieces.push_back(
                {(entry.thinking ? "(thinking) " : "") + firstLine(entry.text), style});
        }
        rows.push_back({i, row(width, std::move(pieces), selected)});
        if (!isExpanded(i))
            continue;
        for (const std::string& piece : DisplayText::wrap(expandedText(entry), textWidth, 200))
            rows.push_back(
                {i, row(width, {{std::string(textColumn, ' ') + piece, Style::plain}}, false)});
    }
    return rows;
}

std::vector<FrameLine> TranscriptView::lines(int width, int height) const {
    const std::vector<Row> all = rows(width);
    std::size_t at = 0;
    while (at < all.size() && all[at].entry != selected_)
        ++at;
    if (firstNew_ == selected_ && at + 1 < all.size())
        ++at; // the marker above the selected entry is not the entry
    const long shown = std::max(1, height);
    const long last = std::max(0L, static_cast<long>(all.size()) - shown);
    const long top = std::clamp(static_cast<long>(at) - shown / 3, 0L, last);
    std::vector<FrameLine> lines;
    for (long i = top; i < static_cast<long>(all.size()) && i < top + shown; ++i)
        lines.push_back(all[static_cast<std::size_t>(i)].line);
    if (all.empty())
        lines.push_back(row(width, {{"Nothing recorded yet.", Style::dim}}, false));
    return lines;
}

TranscriptView::Outcome TranscriptView::handleKey(const Key& key) {
    if (searching_) {
        typeSearch(key);
        return Outcome::stay;
    }
    switch (key.kind) {
    case Key::Kind::up:
        move(-1);
        return Outcome::stay;
    case Key::Kind::down:
        move(1);
        return Outcome::stay;
    case Key::Kind::pageUp:
        move(-10);
        return Outcome::stay;
    case Key::Kind::pageDown:
        move(10);
        return Outcome::stay;
    case Key::Kind::home:
        move(-static_cast<long>(entries_.size()));
        return Outcome::stay;
    case Key::Kind::end:
        move(static_cast<long>(entries_.size()));
        return Outcome::stay;
    case Key::Kind::enter:
        break;
    case Key::Kind::escape:
        return Outcome::close;
    case Key::Kind::character:
        break;
    default:
        return Outcome::stay;
    }
    const char32_t typed = key.kind == Key::Kind::enter ? U'\n' : key.character;
    switch (typed) {
    case U'\n':
    case U' ':
        if (!expanded_.erase(selected_) && !entries_.empty())
            expanded_.insert(selected_);
        break;
    case U'j':
        move(1);
        break;
    case U'k':
        move(-1);
        break;
    case U'/':
        searching_ = true;
        query_.clear();
        notice_.clear();
        break;
    case U'n':
        find(1);
        break;
    case U'N':
        find(-1);
        break;
    case U'q':
    case U't':
        return Outcome::close;
    default:
        break;
    }
    return Outcome::stay;
}

void TranscriptView::typeSearch(const Key& key) {
    switch (key.kind) {
    case Key::Kind::enter:
        searching_ = false;
        find(1);
        return;
    case Key::Kind::escape:
        searching_ = false;
        query_.clear();
        return;
    case Key::Kind::backspace:
        while (!query_.empty()) {
            const auto byte = static_cast<unsigned char>(query_.back());
            query_.pop_back();
            if ((byte & 0xC0) != 0x80)
                break;
        }
        return;
    case Key::Kind::character:
        if (key.character >= 0x20 && key.character <= 0x10FFFF)
            UTF8::append(query_, static_cast<std::uint32_t>(key.character));
        return;
    default:
        return;
    }
}

void TranscriptView::move(long by) {
    if (entries_.empty())
        return;
    const long last = static_cast<long>(entries_.size()) - 1;
    selected_ = static_cast<std::size_t>(std::clamp(static_cast<long>(selected_) + by, 0L, last));
}

bool TranscriptView::matches(const TranscriptEntry& entry) const {
    const std::string wanted = Text::lowercased(query_);
    const auto has = [&](const std::string& text) {
        return Text::lowercased(text).find(wanted) != std::string::npos;
    };
    if (has(entry.text))
        return true;
    if (!entry.tool)
        return false;
    return has(entry.tool->summary) || has(entry.tool->input.value_or("")) ||
           has(entry.tool->result.value_or(""));
}

void TranscriptView::find(int direction) {
    if (query_.empty()) {
        notice_ = "Type / and a word to search.";
        return;
    }
    const long count = static_cast<long>(entries_.size());
    for (long step = 1; step <= count; ++step) {
        const long at = ((static_cast<long>(selected_) + direction * step) % count + count) % count;
        if (matches(entries_[static_cast<std::size_t>(at)])) {
            selected_ = static_cast<std::size_t>(at);
            notice_.clear();
            return;
        }
    }
    notice_ = "No match for “" + query_ + "”.";
}

} // namespace tidewick
