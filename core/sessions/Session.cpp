#include "sessions/Session.h"

#include "sessions/JSONCoding.h"

#include <limits>

namespace tidewick {

JSONValue SessionKey::toJSON() const {
    return JSONValue::Object{{"agent", JSONValue(rawValue(agent))},
                             {"sessionId", JSONValue(sessionId)}};
}

std::optional<SessionKey> SessionKey::fromJSON(const JSONValue& value) {
    JSONValue copy = value;
    return fromJSON(std::move(copy));
}

std::optional<SessionKey> SessionKey::fromJSON(JSONValue&& value) {
    auto agentText = JSONCoding::string(value, "agent");
    auto sessionId = JSONCoding::string(value, "sessionId");
    if (!value.isObject() || !agentText.value || !sessionId.value)
        return std::nullopt;
    std::optional<AgentKind> agent = agentKindFromRaw(*agentText.value);
    if (!agent)
        return std::nullopt;
    return SessionKey{*agent, std::move(*sessionId.value)};
}

JSONValue Session::toJSON() const {
    using JSONCoding::setOptional;
    JSONValue::Object object;
    object.reserve(20);
    object.emplace_back("key", key.toJSON());
    setOptional(object, "projectPath", projectPath);
    setOptional(object, "title", title);
    object.emplace_back("status", rawValue(status));
    object.emplace_back("startedAt", JSONCoding::date(startedAt));
    object.emplace_back("lastActivityAt", JSONCoding::date(lastActivityAt));
    setOptional(object, "endedAt", endedAt);
    setOptional(object, "currentAction", currentAction);
    setOptional(object, "lastMessage", lastMessage);
    setOptional(object, "transcriptPath", transcriptPath);
    setOptional(object, "model", model);
    setOptional(object, "hostApp", hostApp);
    if (agentPid)
        object.emplace_back("agentPid", JSONValue::integer(*agentPid));
    setOptional(object, "interruptedAt", interruptedAt);
    setOptional(object, "endedByYouAt", endedByYouAt);
    setOptional(object, "userMessagesAtEnd", userMessagesAtEnd);
    if (sentBeforeEnd) {
        JSONValue::Array texts(sentBeforeEnd->begin(), sentBeforeEnd->end());
        object.emplace_back("sentBeforeEnd", std::move(texts));
    }
    setOptional(object, "transcriptStep", transcriptStep);
    JSONValue::Array requests;
    requests.reserve(pending.size());
    for (const PendingRequest& request : pending)
        requests.push_back(request.toJSON());
    object.emplace_back("pending", std::move(requests));
    JSONValue::Array items;
    items.reserve(timeline.size());
    for (const TimelineItem& item : timeline)
        items.push_back(item.toJSON());
    object.emplace_back("timeline", std::move(items));
    return object;
}

std::optional<Session> Session::fromJSON(const JSONValue& value) {
    JSONValue copy = value;
    return fromJSON(std::move(copy));
}

std::optional<Session> Session::fromJSON(JSONValue&& value) {
    using namespace JSONCoding;
    if (!value.isObject())
        return std::nullopt;
    JSONValue* keyValue = value.get("key");
    std::optional<SessionKey> key =
        keyValue ? SessionKey::fromJSON(std::move(*keyValue)) : std::nullopt;
    auto statusText = string(value, "status");
    std::optional<SessionStatus> status =
        statusText.value ? sessionStatusFromRaw(*statusText.value) : std::nullopt;
    auto startedAt = date(value, "startedAt");
    auto lastActivityAt = date(value, "lastActivityAt");
    if (!key || !status || !startedAt.value || !lastActivityAt.value)
        return std::nullopt;

    Session session;
    session.key = std::move(*key);
    session.status = *status;
    session.startedAt = *startedAt.value;
    session.lastActivityAt = *lastActivityAt.value;

    bool valid = true;
    auto take = [&valid](auto field, auto& target) {
        if (field.isInvalid())
            valid = false;
        else
            target = std::move(field.value);
    };
    take(string(value, "projectPath"), session.projectPath);
    take(string(value, "title"), session.title);
    take(date(value, "endedAt"), session.endedAt);
    take(string(value, "currentAction"), session.currentAction);
    take(string(value, "lastMessage"), session.lastMessage);
    take(string(value, "transcriptPath"), session.transcriptPath);
    take(string(value, "model"), session.model);
    take(string(value, "hostApp"), session.hostApp);
    take(date(value, "interruptedAt"), session.interruptedAt);
    take(date(value, "endedByYouAt"), session.endedByYouAt);
    take(integer(value, "userMessagesAtEnd"), session.userMessagesAtEnd);
    take(strings(value, "sentBeforeEnd"), session.sentBeforeEnd);
    take(integer(value, "transcriptStep"), session.transcriptStep);
    auto pid = integer(value, "agentPid");
    if (pid.isInvalid() || (pid.value && (*pid.value < std::numeric_limits<std::int32_t>::min() ||
                                          *pid.value > std::numeric_limits<std::int32_t>::max())))
        return std::nullopt;
    if (pid.value)
        session.agentPid = static_cast<std::int32_t>(*pid.value);
    if (!valid)
        return std::nullopt;

    JSONValue* pendingValue = value.get("pending");
    JSONValue::Array* requests = pendingValue ? pendingValue->arrayValue() : nullptr;
    JSONValue* timelineValue = value.get("timeline");
    JSONValue::Array* items = timelineValue ? timelineValue->arrayValue() : nullptr;
    if (!requests || !items)
        return std::nullopt;
    auto pending = decodeEach<PendingRequest>(*requests);
    if (!pending)
        return std::nullopt;
    auto history = decodeEach<TimelineItem>(*items);
    if (!history)
        return std::nullopt;
    session.pending = std::move(*pending);
    session.timeline = Timeline(std::move(*history));
    return session;
}

} // namespace tidewick
