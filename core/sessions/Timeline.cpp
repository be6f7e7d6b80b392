#include "sessions/Timeline.h"

#include "sessions/JSONCoding.h"

#include <array>

namespace tidewick {

namespace {
constexpr std::array<std::string_view, 11> names = {
    "session",    "tool",       "shell", "edit",  "read",  "message",
    "compaction", "permission", "reply", "error", "notice"};
} // namespace

std::string_view rawValue(TimelineKind kind) {
    return names[static_cast<std::size_t>(kind)];
}

std::optional<TimelineKind> timelineKindFromRaw(std::string_view raw) {
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == raw)
            return static_cast<TimelineKind>(i);
    return std::nullopt;
}

JSONValue TimelineItem::toJSON() const {
    JSONValue::Object object;
    object.reserve(5);
    object.emplace_back("id", id.string());
    object.emplace_back("time", JSONCoding::date(time));
    object.emplace_back("kind", rawValue(kind));
    object.emplace_back("text", text);
    JSONCoding::setOptional(object, "detail", detail);
    return object;
}

std::optional<TimelineItem> TimelineItem::fromJSON(const JSONValue& value) {
    JSONValue copy = value;
    return fromJSON(std::move(copy));
}

std::optional<TimelineItem> TimelineItem::fromJSON(JSONValue&& value) {
    if (!value.isObject())
        return std::nullopt;
    auto id = JSONCoding::uuid(value, "id");
    auto time = JSONCoding::date(value, "time");
    auto kindText = JSONCoding::string(value, "kind");
    auto text = JSONCoding::string(value, "text");
    auto detail = JSONCoding::string(value, "detail");
    if (!id.value || !time.value || !kindText.value || !text.value || detail.isInvalid())
        return std::nullopt;
    std::optional<TimelineKind> kind = timelineKindFromRaw(*kindText.value);
    if (!kind)
        return std::nullopt;
    return TimelineItem{*id.value, *time.value, *kind, std::move(*text.value),
                        std::move(detail.value)};
}

Timeline::Timeline(std::vector<TimelineItem> items) {
    if (!items.empty()) {
        buffer_ = new Buffer;
        buffer_->items = std::move(items);
    }
}

Timeline::Timeline(const Timeline& other) noexcept : buffer_(other.buffer_) {
    if (buffer_)
        buffer_->references.fetch_add(1, std::memory_order_relaxed);
}

Timeline& Timeline::operator=(const Timeline& other) noexcept {
    if (buffer_ != other.buffer_) {
        Timeline copy(other);
        std::swap(buffer_, copy.buffer_);
    }
    return *this;
}

Timeline& Timeline::operator=(Timeline&& other) noexcept {
    if (this != &other) {
        release();
        buffer_ = other.buffer_;
        other.buffer_ = nullptr;
    }
    return *this;
}

void Timeline::release() noexcept {
    // acq_rel: the last owner must see every other owner's reads finished
    // before it frees the buffer, and a writer that later finds itself the
    // only owner (acquire load in mutableItems) must see them too.
    if (buffer_ && buffer_->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete buffer_;
    buffer_ = nullptr;
}

const std::vector<TimelineItem>& Timeline::items() const {
    static const std::vector<TimelineItem> none;
    return buffer_ ? buffer_->items : none;
}

std::vector<TimelineItem>& Timeline::mutableItems() {
    if (!buffer_) {
        buffer_ = new Buffer;
    } else if (buffer_->references.load(std::memory_order_acquire) != 1) {
        // Another copy may be read on another thread: change a private copy instead.
        auto* copy = new Buffer;
        copy->items = buffer_->items;
        release();
        buffer_ = copy;
    }
    return buffer_->items;
}

void Timeline::append(TimelineItem item, std::size_t limit) {
    std::vector<TimelineItem>& list = mutableItems();
    if (limit > 0 && list.size() >= limit)
        list.erase(list.begin(),
                   list.begin() + static_cast<std::ptrdiff_t>(list.size() - limit + 1));
    if (limit > 0)
        list.push_back(std::move(item));
}

void Timeline::keepLast(std::size_t limit) {
    if (size() <= limit)
        return;
    std::vector<TimelineItem>& list = mutableItems();
    list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(list.size() - limit));
}

} // namespace tidewick
