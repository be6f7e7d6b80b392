// A session's recent history: the kinds of entry, one entry, and the list that
// holds them.
#pragma once

#include "foundation/Clock.h"
#include "foundation/EnumTable.h"
#include "foundation/UUID.h"

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// Raw values equal the case names.
enum class TimelineKind {
    session,
    tool,
    shell,
    edit,
    read,
    message,
    compaction,
    permission,
    reply,
    error,
    notice
};

template <> struct RawValues<TimelineKind> {
    static constexpr EnumTable<TimelineKind, 11> table{{{
        {TimelineKind::session, "session"},
        {TimelineKind::tool, "tool"},
        {TimelineKind::shell, "shell"},
        {TimelineKind::edit, "edit"},
        {TimelineKind::read, "read"},
        {TimelineKind::message, "message"},
        {TimelineKind::compaction, "compaction"},
        {TimelineKind::permission, "permission"},
        {TimelineKind::reply, "reply"},
        {TimelineKind::error, "error"},
        {TimelineKind::notice, "notice"},
    }}};
};

struct TimelineItem {
    UUID id;
    Date time;
    TimelineKind kind = TimelineKind::notice;
    std::string text;
    std::optional<std::string> detail;

    friend bool operator==(const TimelineItem&, const TimelineItem&) = default;
};

/// {"id", "time", "kind", "text", "detail" (when present)}.
void writeJSON(JSONWriter& out, const TimelineItem& item);
/// The item writeJSON writes; false when a required member is missing or any member is
/// mistyped.
[[nodiscard]] bool readJSON(JSONReader& in, TimelineItem& out);

/// An ordered list of timeline items, oldest first, that behaves as a value but
/// shares its storage between copies until one of them changes. Sessions are
/// copied out of the store on every event (the result of apply, the change
/// notice); with 200 items apiece a deep copy each time would dominate the cost.
/// Copies may be read and dropped on any thread.
class Timeline {
public:
    using const_iterator = std::vector<TimelineItem>::const_iterator;

    Timeline() = default;
    Timeline(std::vector<TimelineItem> items);
    Timeline(std::initializer_list<TimelineItem> items)
        : Timeline(std::vector<TimelineItem>(items)) {}
    Timeline(const Timeline& other) noexcept;
    Timeline(Timeline&& other) noexcept : buffer_(other.buffer_) { other.buffer_ = nullptr; }
    Timeline& operator=(const Timeline& other) noexcept;
    Timeline& operator=(Timeline&& other) noexcept;
    ~Timeline() { release(); }

    [[nodiscard]] std::size_t size() const { return buffer_ ? buffer_->items.size() : 0; }
    [[nodiscard]] bool empty() const { return size() == 0; }
    [[nodiscard]] const_iterator begin() const { return items().begin(); }
    [[nodiscard]] const_iterator end() const { return items().end(); }
    [[nodiscard]] const TimelineItem& operator[](std::size_t index) const { return items()[index]; }
    [[nodiscard]] const TimelineItem& front() const { return items().front(); }
    [[nodiscard]] const TimelineItem& back() const { return items().back(); }
    /// The items, oldest first.
    [[nodiscard]] const std::vector<TimelineItem>& items() const;

    /// Appends `item`, then removes the oldest items until at most `limit` remain.
    void append(TimelineItem item, std::size_t limit);
    /// Removes the oldest items until at most `limit` remain.
    void keepLast(std::size_t limit);

    friend bool operator==(const Timeline& a, const Timeline& b) { return a.items() == b.items(); }

private:
    struct Buffer {
        std::atomic<long> references{1};
        std::vector<TimelineItem> items;
    };

    void release() noexcept;
    /// The items, made private to this value first when another copy shares them.
    std::vector<TimelineItem>& mutableItems();

    Buffer* buffer_ = nullptr;
};

/// An array of items, oldest first.
void writeJSON(JSONWriter& out, const Timeline& timeline);
/// Replaces the items with those of an array; false when any item does not read.
[[nodiscard]] bool readJSON(JSONReader& in, Timeline& out);

} // namespace tidewick
