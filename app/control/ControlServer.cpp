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

// Hands the decision over; true when it reached a waiting agent.
bool deliver(const ControlRequest& request, const SessionKey& key, SessionActions& target) {
    switch (request.command) {
    case ControlCommand::allow:
        return target.answerPermission(key, SessionActions::Answer::allow, std::nullopt);
    case ControlCommand::deny:
        return target.answerPermission(key, SessionActions::Answer::deny, request.message);
    case ControlCommand::reply:
        return target.reply(key, request.text);
    case ControlCommand::letStop:
        return target.letStop(key);
    case ControlCommand::sessions:
    case ControlCommand::pending:
        break;
    }
    return false;
}

std::string notDelivered(const ControlRequest& request, const SessionKey& key,
                         const std::map<std::string, std::string>& shortIds) {
    const std::string who = describeSession(key, shortIds);
    if (request.command == ControlCommand::allow || request.command == ControlCommand::deny)
        return SessionText::noPermissionRequest(who);
    return SessionText::noReplyWaiting(who);
}

} // namespace

ControlServer::ControlServer(std::string socketPath, std::string secret, SessionActions& target)
    : server_(
          std::move(socketPath),
          [secret = std::move(secret), &target](std::string_view line, const ClientProbe&) {
              return answer(line, secret, target);
          },
          LocalServer::Options{"tidewick.control", "tidewick.ctl-conn", 16, 10.0, nullptr}) {}

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
    } else {
        SessionMatch match = matchSession(known, request.session, request.agent);
        if (!match.key)
            return failure(match.outcome, std::move(match.message));
        reply.session = match.key;
        named.push_back(match.key->sessionId);
    }
    reply.shortIds = shortIdsOf(known, named);
    if (reply.session && isDecision(request.command) && !deliver(request, *reply.session, target)) {
        reply.outcome = ControlOutcome::notDelivered;
        reply.message = notDelivered(request, *reply.session, reply.shortIds);
    }
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
