#include "control/ControlProtocol.h"

#include "foundation/JSONCoding.h"
#include "foundation/UTF8.h"

#include <cstdint>
#include <stdexcept>

namespace tidewick {

namespace {

constexpr std::int64_t protocolVersion = 1;

// Every line of either kind: one object, the version first.
template <typename WriteMembers> std::string encodeLine(WriteMembers writeMembers) {
    std::string text;
    JSONWriter out(text);
    out.beginObject();
    out.member("v", protocolVersion);
    writeMembers(out);
    out.endObject();
    text.push_back('\n');
    return text;
}

// Reads the members of a line; nothing unless it is one object of this protocol's version
// whose members read.
template <typename... Members> bool decodeLine(std::string_view text, const Members&... members) {
    std::int64_t version = 0;
    try {
        requireUTF8(text);
        JSONReader in(text);
        const bool read = readObject(in, JSONMember::required("v", version), members...);
        in.finish();
        return read && version == protocolVersion;
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
                    M::lenient("rule", request.rule), M::lenient("answers", request.answers)))
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

} // namespace ControlProtocol

} // namespace tidewick
