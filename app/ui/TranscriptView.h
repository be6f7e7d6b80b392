// The interface's transcript screen for one session: every entry on one line
// (a tool call with its outcome), a line opened up to show all of it, moving
// and searching. Pure, so every key and every width is tested directly.
#pragma once

#include "Key.h"
#include "Layout.h"
#include "transcripts/Transcript.h"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewick {

class TranscriptView {
public:
    enum class Outcome { stay, close };

    /// Shows `transcript`. Entries read after `previousStep` (the session's transcriptStep
    /// before this reading) are marked as new. The selection starts on the last entry.
    TranscriptView(Transcript transcript, std::optional<std::int64_t> previousStep);

    /// Handles one key: ↑ ↓ j k PgUp PgDn Home End move, Enter or space opens or closes the
    /// selected entry, / starts a search (Enter finds, Esc cancels), n and N find the next
    /// and previous match, Esc, q and t close the screen.
    [[nodiscard]] Outcome handleKey(const Key& key);

    /// The screen's rows for `width` × `height`: the selected entry is in view.
    [[nodiscard]] std::vector<FrameLine> lines(int width, int height) const;
    /// One line above the rows: the session and its counts.
    [[nodiscard]] std::string title() const;

    /// The entries shown, the main thread's then each sub-agent's under a heading of its own.
    [[nodiscard]] const std::vector<TranscriptEntry>& entries() const { return entries_; }
    [[nodiscard]] std::size_t selected() const { return selected_; }
    [[nodiscard]] bool isExpanded(std::size_t entry) const { return expanded_.count(entry) > 0; }
    /// Whether a search is being typed, and what.
    [[nodiscard]] bool isSearching() const { return searching_; }
    [[nodiscard]] const std::string& query() const { return query_; }
    /// What the last search said ("No match for ...").
    [[nodiscard]] const std::string& notice() const { return notice_; }
    /// The first entry that is new since the previous reading, if any.
    [[nodiscard]] std::optional<std::size_t> firstNew() const { return firstNew_; }

private:
    struct Row {
        std::size_t entry;
        FrameLine line;
    };
    [[nodiscard]] std::vector<Row> rows(int width) const;
    void move(long by);
    void find(int direction);
    [[nodiscard]] bool matches(const TranscriptEntry& entry) const;
    void typeSearch(const Key& key);

    Transcript transcript_;
    std::vector<TranscriptEntry> entries_;
    std::optional<std::size_t> firstNew_;
    std::size_t selected_ = 0;
    std::set<std::size_t> expanded_;
    bool searching_ = false;
    std::string query_;
    std::string notice_;
};

} // namespace tidewick
