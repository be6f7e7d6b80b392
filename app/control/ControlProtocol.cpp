#include "control/ControlProtocol.h"

#include "foundation/JSONCoding.h"
#include "foundation/UTF8.h"

#include <algorithm>
#include <stdexcept>

namespace tidewick {

namespace {

using ControlProtocol::version;

// Every line of each kind: one object, the version first.
template <typename WriteMembers>
std::string encodeLine(WriteMembers writeMembers, std::int64_t lineVersion = version) {
    std::string text;
    JSONWriter out(text);
    out.beginObject();
    out.member("v", lineVersion);
    writeMembers(out);
    out.endObject();
    text.push_back('\n');
    return text;
}

// Reads the members of a line; nothing unless it is one object of this protocol's version
// whose members read.
template <typename... Members> bool decodeLine(std::string_view text, const Members&... members) {
    std::int64_t lineVersion = 0;
    try {
        requireUTF8(text);
        JSONReader in(text);
        const bool read = readObject(in, JSONMember::required("v", lineVersion), members...);
        in.finish();
        return read && lineVersion == version;
    } catch (const JSONValue::ParseError&) {
        return false;
    }
}

} // namespace

void writeJSON(JSONWriter& out, const HeldRequest& held) {
    out.beginObject();
    out.member("session", held.first);
    out.member("request", held.second);
    out.endObject();
}

bool readJSON(JSONReader& in, HeldRequest& out) {
    return readObject(in, JSONMember::required("session", out.first),
                      JSONMember::required("request", out.second));
}

void writeJSON(JSONWriter& out, const StoreChange& change) {
    out.beginObject();
    out.member("kind", change.kind);
    out.member("key", change.key);
    out.member("session", change.session);
    if (change.kind == StoreChange::Kind::pending)
        out.member("pending", change.pending);
    out.endObject();
}

bool readJSON(JSONReader& in, StoreChange& out) {
    using M = JSONMember;
    out = StoreChange();
    const bool read = readObject(in, M::required("kind", out.kind), M::required("key", out.key),
                                 M::optional("session", out.session),
                                 M::optional("pending", out.pending));
    return read && (out.kind != StoreChange::Kind::session || out.session);
}

void writeJSON(JSONWriter& out, const Alert& alert) {
    out.beginObject();
    out.member("kind", alert.kind);
    out.member("session", alert.session);
    out.member("title", alert.title);
    out.member("detail", alert.detail);
    out.member("requestId", alert.requestId);
    out.member("informational", alert.informational);
    out.member("turnEnded", alert.turnEnded);
    out.member("alsoHeld", static_cast<std::int64_t>(alert.alsoHeld));
    out.member("bell", alert.bell);
    out.endObject();
}

bool readJSON(JSONReader& in, Alert& out) {
    using M = JSONMember;
    std::int64_t alsoHeld = 0;
    const bool read = readObject(
        in, M::required("kind", out.kind), M::required("session", out.session),
        M::required("title", out.title), M::optional("detail", out.detail),
        M::optional("requestId", out.requestId), M::lenient("informational", out.informational),
        M::lenient("turnEnded", out.turnEnded), M::lenient("alsoHeld", alsoHeld),
        M::lenient("bell", out.bell));
    out.alsoHeld = static_cast<std::size_t>(std::max<std::int64_t>(alsoHeld, 0));
    return read;
}

namespace ControlProtocol {

std::string encode(const ControlRequest& request, std::string_view secret) {
    const std::string text = encodeLine([&](JSONWriter& out) {
        out.member("secret", secret);
        out.member("command", request.command);
        if (!request.session.empty())
            out.member("session", request.session);
        out.member("agent", request.agent);
        out.member("message", request.message);
        if (!request.text.empty())
            out.member("text", request.text);
        out.member("rule", request.rule);
        if (!request.answers.empty())
            out.member("answers", request.answers);
        out.member("step", request.step);
        out.member("until", request.until);
        if (!request.setting.empty())
            out.member("setting", request.setting);
        // Without a setting's name the change still has to come across as it was read.
        if (!request.setting.empty() || request.change != SettingCatalog::Change::set)
            out.member("change", request.change);
    });
    // The application would refuse the whole line; say why here instead.
    if (!UTF8::isValid(text))
        throw std::invalid_argument("The text to send is not valid UTF-8.");
    return text;
}

std::optional<std::pair<std::string, ControlRequest>> decodeRequest(std::string_view text) {
    std::string secret;
    ControlRequest request;
    using M = JSONMember;
    if (!decodeLine(text, M::required("secret", secret), M::required("command", request.command),
                    M::lenient("session", request.session), M::optional("agent", request.agent),
                    M::lenient("message", request.message), M::lenient("text", request.text),
                    M::lenient("rule", request.rule), M::lenient("answers", request.answers),
                    M::lenient("step", request.step), M::lenient("until", request.until),
                    M::lenient("setting", request.setting), M::lenient("change", request.change)))
        return std::nullopt;
    return std::pair{std::move(secret), std::move(request)};
}

std::string encode(const ControlReply& reply) {
    std::string text = encodeLine([&](JSONWriter& out) {
        out.member("outcome", reply.outcome);
        out.member("message", reply.message);
        out.member("session", reply.session);
        if (!reply.sessions.empty())
            out.member("sessions", reply.sessions);
        if (!reply.pending.empty())
            out.member("pending", reply.pending);
        if (!reply.shortIds.empty())
            out.member("shortIds", reply.shortIds);
    });
    if (UTF8::isValid(text))
        return text;
    ControlReply fallback;
    fallback.outcome = ControlOutcome::badRequest;
    fallback.message = "Tidewick couldn't encode its answer: a text in it is not UTF-8.";
    return encode(fallback);
}

std::optional<ControlReply> decodeReply(std::string_view text) {
    ControlReply reply;
    using M = JSONMember;
    if (!decodeLine(text, M::required("outcome", reply.outcome),
                    M::lenient("message", reply.message), M::optional("session", reply.session),
                    M::optional("sessions", reply.sessions), M::optional("pending", reply.pending),
                    M::lenient("shortIds", reply.shortIds)))
        return std::nullopt;
    return reply;
}

std::string encode(const ControlEvent& event) {
    std::string text = encodeLine([&](JSONWriter& out) {
        out.member("event", event.kind);
        out.member("change", event.change);
        out.member("alert", event.alert);
    });
    // An agent's text that is not UTF-8 must not cost the subscriber its stream.
    return UTF8::isValid(text) ? text : UTF8::repaired(text);
}

std::optional<ControlEvent> decodeEvent(std::string_view text) {
    ControlEvent event;
    using M = JSONMember;
    if (!decodeLine(text, M::required("event", event.kind), M::optional("change", event.change),
                    M::optional("alert", event.alert)))
        return std::nullopt;
    if ((event.kind == ControlEvent::Kind::change && !event.change) ||
        (event.kind == ControlEvent::Kind::alert && !event.alert))
        return std::nullopt;
    return event;
}

std::optional<Envelope> decodeEnvelope(std::string_view text) {
    Envelope envelope;
    using M = JSONMember;
    try {
        requireUTF8(text);
        JSONReader in(text);
        const bool read =
            readObject(in, M::required("v", envelope.version),
                       M::lenient("secret", envelope.secret), M::lenient("message", envelope.message));
        in.finish();
        if (read)
            return envelope;
    } catch (const JSONValue::ParseError&) {
    }
    return std::nullopt;
}

std::string versionMismatchSentence(std::int64_t commandVersion, std::int64_t applicationVersion) {
    const std::string versions = " (control protocol " + std::to_string(commandVersion) +
                                 " for the command, " + std::to_string(applicationVersion) +
                                 " for the application)";
    if (commandVersion < applicationVersion)
        return "This tidewick command is older than the Tidewick application running" + versions +
               ". Use the tidewick that came with the application, or restart the application "
               "with this one.";
    return "The Tidewick application running is older than this tidewick command" + versions +
           ". Restart the application so that both are the same version.";
}

std::string encodeVersionMismatch(std::int64_t requestVersion) {
    // The older side's version, which both can read.
    return encodeLine(
        [&](JSONWriter& out) {
            out.member("outcome", ControlOutcome::badRequest);
            out.member("message", versionMismatchSentence(requestVersion, version));
        },
        std::min(requestVersion, version));
}

std::string encodeFirstVersionProbe(std::string_view secret) {
    return encodeLine(
        [&](JSONWriter& out) {
            out.member("secret", secret);
            out.member("command", ControlCommand::pending);
        },
        1);
}

} // namespace ControlProtocol

} // namespace tidewick
