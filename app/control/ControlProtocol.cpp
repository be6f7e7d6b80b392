#include "control/ControlProtocol.h"

#include "foundation/UTF8.h"

#include <array>
#include <stdexcept>

namespace tidewick {

namespace {

constexpr int protocolVersion = 1;

constexpr std::array<std::pair<ControlCommand, std::string_view>, 6> commandNames{{
    {ControlCommand::sessions, "sessions"},
    {ControlCommand::pending, "pending"},
    {ControlCommand::allow, "allow"},
    {ControlCommand::deny, "deny"},
    {ControlCommand::reply, "reply"},
    {ControlCommand::letStop, "letStop"},
}};

constexpr std::array<std::pair<ControlOutcome, std::string_view>, 5> outcomeNames{{
    {ControlOutcome::done, "done"},
    {ControlOutcome::notDelivered, "notDelivered"},
    {ControlOutcome::noMatch, "noMatch"},
    {ControlOutcome::ambiguous, "ambiguous"},
    {ControlOutcome::badRequest, "badRequest"},
}};

template <typename Enum, std::size_t N>
std::string_view nameOf(const std::array<std::pair<Enum, std::string_view>, N>& names, Enum value) {
    for (const auto& [each, name] : names)
        if (each == value)
            return name;
    return names[0].second;
}

template <typename Enum, std::size_t N>
std::optional<Enum> valueOf(const std::array<std::pair<Enum, std::string_view>, N>& names,
                            std::string_view raw) {
    for (const auto& [each, name] : names)
        if (name == raw)
            return each;
    return std::nullopt;
}

// A new line's object with the version set first.
JSONValue startLine() {
    JSONValue object{JSONValue::Object{}};
    object.set("v", JSONValue::integer(protocolVersion));
    return object;
}

// The JSON object a line holds, when it is one and of this protocol's version.
std::optional<JSONValue> versionedObject(std::string_view line) {
    JSONValue object;
    try {
        object = JSONValue::parse(line);
    } catch (const JSONValue::ParseError&) {
        return std::nullopt;
    }
    const JSONValue* version = object.isObject() ? object.get("v") : nullptr;
    if (!version || !version->isNumber() || version->intValue() != protocolVersion)
        return std::nullopt;
    return object;
}

std::optional<std::string> optionalString(const JSONValue& object, std::string_view key) {
    const JSONValue* value = object.get(key);
    if (!value || !value->stringValue())
        return std::nullopt;
    return *value->stringValue();
}

} // namespace

std::string_view rawValue(ControlCommand command) {
    return nameOf(commandNames, command);
}

std::optional<ControlCommand> controlCommandFromRaw(std::string_view raw) {
    return valueOf(commandNames, raw);
}

std::string_view rawValue(ControlOutcome outcome) {
    return nameOf(outcomeNames, outcome);
}

std::optional<ControlOutcome> controlOutcomeFromRaw(std::string_view raw) {
    return valueOf(outcomeNames, raw);
}

namespace ControlProtocol {

std::string encode(const ControlRequest& request, std::string_view secret) {
    JSONValue object = startLine();
    object.set("secret", secret);
    object.set("command", rawValue(request.command));
    if (!request.session.empty())
        object.set("session", request.session);
    if (request.agent)
        object.set("agent", rawValue(*request.agent));
    if (request.message)
        object.set("message", *request.message);
    if (!request.text.empty())
        object.set("text", request.text);
    std::string line = object.compact() + "\n";
    // The application would refuse the whole line; say why here instead.
    if (!UTF8::isValid(line))
        throw std::invalid_argument("The text to send is not valid UTF-8.");
    return line;
}

std::optional<std::pair<std::string, ControlRequest>> decodeRequest(std::string_view line) {
    const std::optional<JSONValue> parsed = versionedObject(line);
    if (!parsed)
        return std::nullopt;
    const JSONValue& object = *parsed;
    auto secret = optionalString(object, "secret");
    auto commandName = optionalString(object, "command");
    if (!secret || !commandName)
        return std::nullopt;
    auto command = controlCommandFromRaw(*commandName);
    if (!command)
        return std::nullopt;
    ControlRequest request;
    request.command = *command;
    if (const JSONValue* agent = object.get("agent")) {
        const std::string* raw = agent->stringValue();
        if (!raw || !agentKindFromRaw(*raw))
            return std::nullopt;
        request.agent = agentKindFromRaw(*raw);
    }
    request.session = optionalString(object, "session").value_or("");
    request.message = optionalString(object, "message");
    request.text = optionalString(object, "text").value_or("");
    return std::pair{std::move(*secret), std::move(request)};
}

std::string encode(const ControlReply& reply) {
    JSONValue object = startLine();
    object.set("outcome", rawValue(reply.outcome));
    if (reply.message)
        object.set("message", *reply.message);
    if (reply.session)
        object.set("session", reply.session->toJSON());
    if (!reply.sessions.empty()) {
        JSONValue::Array sessions;
        sessions.reserve(reply.sessions.size());
        for (const Session& session : reply.sessions)
            sessions.push_back(session.toJSON());
        object.set("sessions", std::move(sessions));
    }
    if (!reply.pending.empty()) {
        JSONValue::Array pending;
        for (const auto& [key, request] : reply.pending)
            pending.push_back(
                JSONValue::Object{{"session", key.toJSON()}, {"request", request.toJSON()}});
        object.set("pending", std::move(pending));
    }
    std::string line = object.compact() + "\n";
    if (UTF8::isValid(line))
        return line;
    {
        ControlReply fallback;
        fallback.outcome = ControlOutcome::badRequest;
        fallback.message = "Tidewick couldn't encode its answer: a text in it is not UTF-8.";
        return encode(fallback);
    }
}

std::optional<ControlReply> decodeReply(std::string_view line) {
    const std::optional<JSONValue> parsed = versionedObject(line);
    if (!parsed)
        return std::nullopt;
    const JSONValue& object = *parsed;
    auto outcomeName = optionalString(object, "outcome");
    auto outcome = outcomeName ? controlOutcomeFromRaw(*outcomeName) : std::nullopt;
    if (!outcome)
        return std::nullopt;
    ControlReply reply;
    reply.outcome = *outcome;
    reply.message = optionalString(object, "message");
    if (const JSONValue* key = object.get("session")) {
        reply.session = SessionKey::fromJSON(*key);
        if (!reply.session)
            return std::nullopt;
    }
    if (const JSONValue* sessions = object.get("sessions")) {
        if (!sessions->arrayValue())
            return std::nullopt;
        for (const JSONValue& each : *sessions->arrayValue()) {
            auto session = Session::fromJSON(each);
            if (!session)
                return std::nullopt;
            reply.sessions.push_back(std::move(*session));
        }
    }
    if (const JSONValue* pending = object.get("pending")) {
        if (!pending->arrayValue())
            return std::nullopt;
        for (const JSONValue& each : *pending->arrayValue()) {
            const JSONValue* key = each.get("session");
            const JSONValue* request = each.get("request");
            auto sessionKey = key ? SessionKey::fromJSON(*key) : std::nullopt;
            auto held = request ? PendingRequest::fromJSON(*request) : std::nullopt;
            if (!sessionKey || !held)
                return std::nullopt;
            reply.pending.emplace_back(std::move(*sessionKey), std::move(*held));
        }
    }
    return reply;
}

} // namespace ControlProtocol

} // namespace tidewick
