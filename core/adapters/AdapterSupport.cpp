#include "adapters/AdapterSupport.h"

namespace tidewick::AdapterSupport {

EventTemplate::EventTemplate(AgentKind agent, std::string sessionId, std::string hookEvent,
                             MaybeText projectPath, MaybeText transcriptPath, MaybeText model) {
    base_.agent = agent;
    base_.sessionId = std::move(sessionId);
    base_.hookEvent = std::move(hookEvent);
    base_.projectPath = std::move(projectPath);
    base_.transcriptPath = std::move(transcriptPath);
    base_.model = std::move(model);
}

ParsedHook EventTemplate::report(EventKind kind, MaybeText title, MaybeText detail,
                                 MaybeText toolName) const {
    AgentEvent event = base_;
    event.kind = kind;
    event.title = std::move(title);
    event.detail = std::move(detail);
    event.toolName = std::move(toolName);
    event.receivedAt = now();
    return {std::move(event), HoldKind::none, std::nullopt};
}

ParsedHook EventTemplate::askPermission(MaybeText title, MaybeText detail,
                                        MaybeText toolName) const {
    ParsedHook parsed = report(EventKind::permissionRequested, std::move(title), std::move(detail),
                               std::move(toolName));
    parsed.event.needsDecision = true;
    parsed.event.decisionType = DecisionType::permission;
    parsed.hold = HoldKind::permission;
    return parsed;
}

ParsedHook EventTemplate::askReply(MaybeText title, MaybeText detail) const {
    ParsedHook parsed = report(EventKind::turnFinished, std::move(title), std::move(detail));
    parsed.event.needsDecision = true;
    parsed.event.decisionType = DecisionType::reply;
    parsed.hold = HoldKind::reply;
    return parsed;
}

MaybeText firstStringElement(const Payload& payload, std::string_view key) {
    const JSONValue::Array* elements = payload.array(key);
    if (!elements)
        return std::nullopt;
    for (const JSONValue& element : *elements)
        if (const std::string* text = element.stringValue(); text && !text->empty())
            return *text;
    return std::nullopt;
}

HookOutput answer(JSONValue::Object object) {
    return {JSONValue(std::move(object)).compact(), 0};
}

std::string denyMessage(const std::optional<std::string>& message, std::string_view fallback) {
    if (message && !message->empty())
        return *message;
    return std::string(fallback);
}

} // namespace tidewick::AdapterSupport
