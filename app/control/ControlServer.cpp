#include "control/ControlServer.h"

#include "control/SessionMatcher.h"
#include "sessions/SessionText.h"
#include "wire/Wire.h"

namespace tidewick {

namespace {

ControlReply failure(ControlOutcome outcome, std::string message) {
    ControlReply reply;
    reply.outcome = outcome;
    reply.message = std::move(message);
    return reply;
}

bool isDecision(ControlCommand command) {
    return command != ControlCommand::sessions && command != ControlCommand::pending;
}

using Delivery = SessionActions::Delivery;

Delivery deliveredIf(bool delivered) {
    return {delivered ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, {}};
}

// Hands the decision over and says how it went.
Delivery deliver(const ControlRequest& request, const SessionKey& key, SessionActions& target) {
    switch (request.command) {
    case ControlCommand::allow:
        return deliveredIf(
            target.answerPermission(key, SessionActions::Answer::allow, std::nullopt));
    case ControlCommand::deny:
        return deliveredIf(
            target.answerPermission(key, SessionActions::Answer::deny, request.message));
    case ControlCommand::reply:
        return deliveredIf(target.reply(key, request.text));
    case ControlCommand::letStop:
        return deliveredIf(target.letStop(key));
    case ControlCommand::allowAlways:
        return target.allowAlways(key, request.rule);
    case ControlCommand::answer:
        return target.answerQuestions(key, request.answers);
    case ControlCommand::sessions:
    case ControlCommand::pending:
        break;
    }
    return deliveredIf(false);
}

// Whether the first permission request `key` holds asks questions.
bool asksQuestions(const std::vector<Session>& known, const SessionKey& key) {
    for (const Session& session : known)
        if (session.key == key)
            for (const PendingRequest& request : session.pending)
                if (request.kind == PendingKind::permission)
                    return request.isQuestion();
    return false;
}

std::string notDelivered(const ControlRequest& request, const SessionKey& key,
                         const std::vector<Session>& known,
                         const std::map<std::string, std::string>& shortIds) {
    const std::string who = describeSession(key, shortIds);
    switch (request.command) {
    case ControlCommand::allow:
        if (asksQuestions(known, key))
            return SessionText::answerInstead(key.agent);
        return SessionText::noPermissionRequest(who);
    case ControlCommand::deny:
    case ControlCommand::allowAlways:
        return SessionText::noPermissionRequest(who);
    case ControlCommand::answer:
        return SessionText::noQuestionWaiting(who);
    default:
        return SessionText::noReplyWaiting(who);
    }
}

// The reply for a decision that did not simply reach the agent.
void noteDelivery(ControlReply& reply, const Delivery& delivery, const ControlRequest& request,
                  const std::vector<Session>& known) {
    switch (delivery.kind) {
    case Delivery::Kind::delivered:
        if (!delivery.sentence.empty())
            reply.message = delivery.sentence;
        return;
    case Delivery::Kind::nothingHeld:
        reply.outcome = ControlOutcome::notDelivered;
        reply.message = notDelivered(request, *reply.session, known, reply.shortIds);
        return;
    case Delivery::Kind::refused:
        reply.outcome = ControlOutcome::notDelivered;
        reply.message = delivery.sentence;
        return;
    case Delivery::Kind::badAnswer:
        reply.outcome = ControlOutcome::badRequest;
        reply.message = delivery.sentence;
        return;
    }
}

} // namespace

ControlServer::ControlServer(std::string socketPath, std::string secret, SessionActions& target)
    : server_(
          std::move(socketPath),
          [secret = std::move(secret), &target](std::string_view line, const ClientProbe&) {
              return answer(line, secret, target);
          },
          LocalServer::Options{"tidewick.control", "tidewick.ctl-conn", 16, 10.0}) {}

void ControlServer::start() {
    server_.start();
}

void ControlServer::stop() {
    server_.stop();
    server_.closeConnections();
}

ControlReply ControlServer::respond(const ControlRequest& request, SessionActions& target) {
    std::vector<Session> known = target.sessions();
    ControlReply reply;
    std::vector<std::string> named;
    if (request.command == ControlCommand::sessions) {
        for (const Session& session : known)
            named.push_back(session.key.sessionId);
        reply.sessions = known;
    } else if (request.command == ControlCommand::pending) {
        reply.pending = target.pendingRequests();
        for (const HeldRequest& held : reply.pending)
            named.push_back(held.first.sessionId);
    } else if (request.command == ControlCommand::reply && request.text.empty()) {
        return failure(ControlOutcome::badRequest, "A reply needs some text.");
    } else if (request.command == ControlCommand::answer && request.answers.empty()) {
        return failure(ControlOutcome::badRequest, "An answer needs some text.");
    } else {
        SessionMatch match = matchSession(known, request.session, request.agent);
        if (!match.key)
            return failure(match.outcome, std::move(match.message));
        reply.session = match.key;
        named.push_back(match.key->sessionId);
    }
    reply.shortIds = shortIdsOf(known, named);
    if (reply.session && isDecision(request.command))
        noteDelivery(reply, deliver(request, *reply.session, target), request, known);
    return reply;
}

std::optional<std::string> ControlServer::answer(std::string_view line, std::string_view secret,
                                                 SessionActions& target) {
    auto decoded = ControlProtocol::decodeRequest(line);
    if (!decoded || !Wire::secretsMatch(secret, decoded->first))
        return std::nullopt;
    return ControlProtocol::encode(respond(decoded->second, target));
}

} // namespace tidewick
