// The control socket's messages: one compact JSON line each way. The `tidewick`
// commands ask the running application for its sessions and held requests and
// hand it the user's decisions.
#pragma once

#include "events/AgentKind.h"
#include "foundation/EnumTable.h"
#include "service/SessionActions.h"
#include "sessions/PendingRequest.h"
#include "sessions/Session.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// What a control request asks for. Raw values equal the case names.
enum class ControlCommand { sessions, pending, allow, deny, reply, letStop, allowAlways, answer };

template <> struct RawValues<ControlCommand> {
    static constexpr EnumTable<ControlCommand, 8> table{{{
        {ControlCommand::sessions, "sessions"},
        {ControlCommand::pending, "pending"},
        {ControlCommand::allow, "allow"},
        {ControlCommand::deny, "deny"},
        {ControlCommand::reply, "reply"},
        {ControlCommand::letStop, "letStop"},
        {ControlCommand::allowAlways, "allowAlways"},
        {ControlCommand::answer, "answer"},
    }}};
};

struct ControlRequest {
    ControlCommand command = ControlCommand::sessions;
    /// The session to decide for: an identifier or a prefix of one.
    std::string session;
    /// Only sessions of this agent are considered.
    std::optional<AgentKind> agent;
    /// deny: the message shown to the agent.
    std::optional<std::string> message;
    /// reply: the text sent to the agent.
    std::string text;
    /// allowAlways: the rule or prefix to keep allowing instead of the one offered.
    std::optional<std::string> rule;
    /// answer: one answer per question, in order.
    std::vector<std::string> answers;

    friend bool operator==(const ControlRequest&, const ControlRequest&) = default;
};

/// How a control request ended. Raw values equal the case names.
enum class ControlOutcome {
    /// Listed, or the decision reached the waiting agent.
    done,
    /// The session matched but nothing was waiting for this decision (none held, or
    /// already answered: the first decision wins).
    notDelivered,
    /// No session matches the identifier.
    noMatch,
    /// The identifier matches several sessions.
    ambiguous,
    /// The request itself was malformed (an empty identifier, an unknown command).
    badRequest,
};

template <> struct RawValues<ControlOutcome> {
    static constexpr EnumTable<ControlOutcome, 5> table{{{
        {ControlOutcome::done, "done"},
        {ControlOutcome::notDelivered, "notDelivered"},
        {ControlOutcome::noMatch, "noMatch"},
        {ControlOutcome::ambiguous, "ambiguous"},
        {ControlOutcome::badRequest, "badRequest"},
    }}};
};

struct ControlReply {
    ControlOutcome outcome = ControlOutcome::done;
    /// A sentence for the user when the outcome is not `done`; for a lasting allow or
    /// answers that were delivered, what they told the agent.
    std::optional<std::string> message;
    /// The session a decision went to.
    std::optional<SessionKey> session;
    /// sessions: every session.
    std::vector<Session> sessions;
    /// pending: every held request.
    std::vector<HeldRequest> pending;
    /// The shortest unique identifiers (ShortIds) of the sessions this reply names, by
    /// identifier: what listings and confirmations show, and what the commands accept.
    std::map<std::string, std::string> shortIds;

    friend bool operator==(const ControlReply&, const ControlReply&) = default;
};

/// {"session": key, "request": held request}.
void writeJSON(JSONWriter& out, const HeldRequest& held);
/// The pair writeJSON writes; false when either member is missing or does not read.
[[nodiscard]] bool readJSON(JSONReader& in, HeldRequest& out);

namespace ControlProtocol {

/// The request line (with its line feed) carrying `secret`. Throws std::invalid_argument
/// when a text is not UTF-8.
[[nodiscard]] std::string encode(const ControlRequest& request, std::string_view secret);

/// The secret and request of a request line. Nothing unless the line is a JSON object
/// with "v" 1, a string "secret" and a known "command"; "agent" must be a known agent
/// unless it is missing or null. The other fields take their defaults when missing or
/// mistyped.
[[nodiscard]] std::optional<std::pair<std::string, ControlRequest>>
decodeRequest(std::string_view line);

/// The reply line (with its line feed). A reply that cannot be encoded (a text that is
/// not UTF-8) becomes a `badRequest` reply saying so.
[[nodiscard]] std::string encode(const ControlReply& reply);

/// The reply of a reply line; nothing unless it is an object with "v" 1 and a known
/// "outcome" whose session key (unless missing or null), sessions and held requests all
/// decode. A mistyped "message" is absent.
[[nodiscard]] std::optional<ControlReply> decodeReply(std::string_view line);

} // namespace ControlProtocol

} // namespace tidewick
