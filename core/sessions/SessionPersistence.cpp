#include "sessions/SessionPersistence.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "sessions/JSONCoding.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <thread>

namespace tidewick {

namespace {

// Writes the sessions file straight into one string, in exactly the text that
// JSONValue(Session::toJSON()...).compact() gives (the tests hold the two
// equal), without building the document first: for a thousand sessions of two
// hundred items the tree's allocations cost more than the rest of a save.
class CompactWriter {
public:
    explicit CompactWriter(std::string& out) : out_(out) {}

    void begin(char bracket) {
        separate();
        out_.push_back(bracket);
        needComma_ = false;
    }
    void end(char bracket) {
        out_.push_back(bracket);
        needComma_ = true;
    }
    /// `name` is one of our own field names: plain ASCII that needs no escaping.
    void key(std::string_view name) {
        separate();
        out_.push_back('"');
        out_ += name;
        out_ += "\":";
        needComma_ = false;
    }
    void string(std::string_view text) {
        separate();
        // Most texts need no escaping: copy those as they are and leave the rest to
        // JSONValue, whose escaping the file must follow.
        if (std::none_of(text.begin(), text.end(), needsEscape)) {
            out_.push_back('"');
            out_ += text;
            out_.push_back('"');
        } else {
            out_ += JSONValue::quote(text);
        }
        needComma_ = true;
    }
    void uuid(const UUID& id) {
        static constexpr char hex[] = "0123456789abcdef";
        separate();
        out_.push_back('"');
        const auto& bytes = id.bytes();
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10)
                out_.push_back('-');
            out_.push_back(hex[bytes[i] >> 4]);
            out_.push_back(hex[bytes[i] & 0x0F]);
        }
        out_.push_back('"');
        needComma_ = true;
    }
    void number(const JSONValue& value) {
        separate();
        out_ += *value.numberText();
        needComma_ = true;
    }
    void date(Date value) { number(JSONCoding::date(value)); }

    void member(std::string_view name, std::string_view text) {
        key(name);
        string(text);
    }
    void uuidMember(std::string_view name, const UUID& id) {
        key(name);
        uuid(id);
    }
    void dateMember(std::string_view name, Date value) {
        key(name);
        date(value);
    }
    /// `name` with an array of `elements`, each written by `writeOne`.
    template <typename Range, typename Write>
    void arrayMember(std::string_view name, const Range& elements, Write&& writeOne) {
        key(name);
        begin('[');
        for (const auto& element : elements)
            writeOne(element);
        end(']');
    }
    void optionalMember(std::string_view name, const std::optional<std::string>& text) {
        if (text)
            member(name, std::string_view(*text));
    }
    void optionalMember(std::string_view name, const std::optional<Date>& value) {
        if (value)
            dateMember(name, *value);
    }
    void optionalMember(std::string_view name, const std::optional<std::int64_t>& value) {
        if (value) {
            key(name);
            number(JSONValue::integer(*value));
        }
    }

private:
    static bool needsEscape(char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
    }

    void separate() {
        if (needComma_)
            out_.push_back(',');
    }

    std::string& out_;
    bool needComma_ = false;
};

void write(CompactWriter& w, const PendingRequest& request) {
    w.begin('{');
    w.uuidMember("id", request.id);
    w.member("kind", rawValue(request.kind));
    w.member("title", request.title);
    w.optionalMember("detail", request.detail);
    w.dateMember("createdAt", request.createdAt);
    w.dateMember("deadline", request.deadline);
    w.end('}');
}

void write(CompactWriter& w, const TimelineItem& item) {
    w.begin('{');
    w.uuidMember("id", item.id);
    w.dateMember("time", item.time);
    w.member("kind", rawValue(item.kind));
    w.member("text", item.text);
    w.optionalMember("detail", item.detail);
    w.end('}');
}

void write(CompactWriter& w, const Session& s) {
    w.begin('{');
    w.key("key");
    w.begin('{');
    w.member("agent", rawValue(s.key.agent));
    w.member("sessionId", s.key.sessionId);
    w.end('}');
    w.optionalMember("projectPath", s.projectPath);
    w.optionalMember("title", s.title);
    w.member("status", rawValue(s.status));
    w.dateMember("startedAt", s.startedAt);
    w.dateMember("lastActivityAt", s.lastActivityAt);
    w.optionalMember("endedAt", s.endedAt);
    w.optionalMember("currentAction", s.currentAction);
    w.optionalMember("lastMessage", s.lastMessage);
    w.optionalMember("transcriptPath", s.transcriptPath);
    w.optionalMember("model", s.model);
    w.optionalMember("hostApp", s.hostApp);
    w.optionalMember("agentPid",
                     s.agentPid ? std::optional<std::int64_t>(*s.agentPid) : std::nullopt);
    w.optionalMember("interruptedAt", s.interruptedAt);
    w.optionalMember("endedByYouAt", s.endedByYouAt);
    w.optionalMember("userMessagesAtEnd", s.userMessagesAtEnd);
    if (s.sentBeforeEnd)
        w.arrayMember("sentBeforeEnd", *s.sentBeforeEnd,
                      [&w](const std::string& text) { w.string(text); });
    w.optionalMember("transcriptStep", s.transcriptStep);
    w.arrayMember("pending", s.pending, [&w](const PendingRequest& r) { write(w, r); });
    w.arrayMember("timeline", s.timeline, [&w](const TimelineItem& item) { write(w, item); });
    w.end('}');
}

// A little more than the file will take, so the text is never moved while it grows.
std::size_t estimatedSize(const std::vector<Session>& sessions) {
    std::size_t size = 2;
    for (const Session& session : sessions) {
        size += 1024 + 160 * (session.timeline.size() + session.pending.size());
        for (const TimelineItem& item : session.timeline)
            size += item.text.size() + (item.detail ? item.detail->size() : 0);
    }
    return size + size / 8;
}

} // namespace

std::string SessionPersistence::encode(const std::vector<Session>& sessions) {
    std::string out;
    out.reserve(estimatedSize(sessions));
    CompactWriter writer(out);
    writer.begin('[');
    for (const Session& session : sessions)
        write(writer, session);
    writer.end(']');
    return out;
}

namespace {

std::optional<std::vector<Session>> decodeDocument(std::string_view bytes) {
    JSONValue document;
    try {
        document = JSONValue::parse(bytes);
    } catch (const JSONValue::ParseError&) {
        return std::nullopt;
    }
    JSONValue::Array* records = document.arrayValue();
    // One bad record loses the list: a half-restored history would mislead more.
    return records ? JSONCoding::decodeEach<Session>(*records) : std::nullopt;
}

// How every record the writer above starts, after the comma that separates it from the
// previous one. A quotation mark inside a string is always escaped, so these bytes can
// only be the start of a top-level record.
constexpr std::string_view recordStart = ",{\"key\":{\"agent\":\"";

// A large file is read as two halves, one on another thread: parsing and decoding take
// most of the start-up time, and they split cleanly at a record. Nothing when the file
// is small or has no such record past its middle (then it is read in one piece).
std::optional<std::vector<Session>> decodeInHalves(std::string_view bytes) {
    if (bytes.size() < SessionPersistence::splitBytes)
        return std::nullopt;
    const size_t cut = bytes.find(recordStart, bytes.size() / 2);
    if (cut == std::string_view::npos)
        return std::nullopt;
    std::string first(bytes.substr(0, cut));
    first.push_back(']');
    std::string second = "[";
    second.append(bytes.substr(cut + 1));
    std::optional<std::vector<Session>> tail;
    std::thread worker([&] { tail = decodeDocument(second); });
    std::optional<std::vector<Session>> head = decodeDocument(first);
    worker.join();
    if (!head || !tail)
        return std::nullopt;
    head->insert(head->end(), std::make_move_iterator(tail->begin()),
                 std::make_move_iterator(tail->end()));
    return head;
}

} // namespace

std::optional<std::vector<Session>> SessionPersistence::decode(std::string_view bytes) {
    if (auto sessions = decodeInHalves(bytes))
        return sessions;
    return decodeDocument(bytes);
}

std::vector<Session> SessionPersistence::load() const {
    std::string bytes;
    try {
        bytes = File::read(url_);
    } catch (const std::exception&) {
        return {};
    }
    return decode(bytes).value_or(std::vector<Session>{});
}

bool SessionPersistence::save(const std::vector<Session>& sessions) const {
    try {
        const std::string bytes = encode(sessions);
        File::makeDirectories(File::parent(url_), 0700);
        // The file holds the user's prompts, commands and paths: owner only.
        File::writeAtomically(url_, bytes, 0600);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace tidewick
