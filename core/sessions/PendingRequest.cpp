#include "sessions/PendingRequest.h"

#include "sessions/JSONCoding.h"

namespace tidewick {

std::string_view rawValue(PendingKind kind) {
    return kind == PendingKind::permission ? "permission" : "reply";
}

std::optional<PendingKind> pendingKindFromRaw(std::string_view raw) {
    if (raw == "permission")
        return PendingKind::permission;
    if (raw == "reply")
        return PendingKind::reply;
    return std::nullopt;
}

JSONValue PendingRequest::toJSON() const {
    JSONValue::Object object;
    object.emplace_back("id", id.string());
    object.emplace_back("kind", rawValue(kind));
    object.emplace_back("title", title);
    JSONCoding::setOptional(object, "detail", detail);
    object.emplace_back("createdAt", JSONCoding::date(createdAt));
    object.emplace_back("deadline", JSONCoding::date(deadline));
    return object;
}

std::optional<PendingRequest> PendingRequest::fromJSON(const JSONValue& value) {
    JSONValue copy = value;
    return fromJSON(std::move(copy));
}

std::optional<PendingRequest> PendingRequest::fromJSON(JSONValue&& value) {
    if (!value.isObject())
        return std::nullopt;
    auto id = JSONCoding::uuid(value, "id");
    auto kindText = JSONCoding::string(value, "kind");
    auto title = JSONCoding::string(value, "title");
    auto detail = JSONCoding::string(value, "detail");
    auto createdAt = JSONCoding::date(value, "createdAt");
    auto deadline = JSONCoding::date(value, "deadline");
    if (!id.value || !kindText.value || !title.value || detail.isInvalid() || !createdAt.value ||
        !deadline.value)
        return std::nullopt;
    std::optional<PendingKind> kind = pendingKindFromRaw(*kindText.value);
    if (!kind)
        return std::nullopt;
    return PendingRequest{*id.value,        *kind,          *title.value, detail.value,
                          *createdAt.value, *deadline.value};
}

} // namespace tidewick
