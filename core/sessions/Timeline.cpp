#include "sessions/Timeline.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

void writeJSON(JSONWriter& out, const TimelineItem& item) {
    out.beginObject();
    out.member("id", item.id);
    out.member("time", item.time);
    out.member("kind", item.kind);
    out.member("text", item.text);
    out.member("detail", item.detail);
    out.endObject();
}

bool readJSON(JSONReader& in, TimelineItem& out) {
    return readObject(
        in, JSONMember::required("id", out.id), JSONMember::required("time", out.time),
        JSONMember::required("kind", out.kind), JSONMember::required("text", out.text),
        JSONMember::optional("detail", out.detail));
}

void writeJSON(JSONWriter& out, const Timeline& timeline) {
    writeJSON(out, timeline.items());
}

bool readJSON(JSONReader& in, Timeline& out) {
    std::vector<TimelineItem> items;
    if (!readJSON(in, items))
        return false;
    out = Timeline(std::move(items));
    return true;
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
