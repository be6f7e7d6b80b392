#include "sessions/SessionPersistence.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"

#include <exception>

namespace tidewick {

std::string SessionPersistence::encode(const std::vector<Session>& sessions) {
    JSONValue::Array records;
    records.reserve(sessions.size());
    for (const Session& session : sessions)
        records.push_back(session.toJSON());
    return JSONValue(std::move(records)).compact();
}

std::optional<std::vector<Session>> SessionPersistence::decode(std::string_view bytes) {
    JSONValue document;
    try {
        document = JSONValue::parse(bytes);
    } catch (const JSONValue::ParseError&) {
        return std::nullopt;
    }
    const JSONValue::Array* records = document.arrayValue();
    if (!records)
        return std::nullopt;
    std::vector<Session> sessions;
    sessions.reserve(records->size());
    for (const JSONValue& record : *records) {
        std::optional<Session> session = Session::fromJSON(record);
        // One bad record loses the list: a half-restored history would mislead more.
        if (!session)
            return std::nullopt;
        sessions.push_back(std::move(*session));
    }
    return sessions;
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
