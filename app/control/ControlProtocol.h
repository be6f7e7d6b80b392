// The control socket's messages: one compact JSON line each way, or for a
// subscription one reply line and then a line per event for as long as the
// connection stays. The `tidewick` commands ask the running application for its
// sessions and held requests and hand it the user's decisions; an attached
// interface subscribes.
//
// Every line is an object whose first member is "v", the protocol version. A
// side that meets a request of another version answers in the version that
// side reads, with a sentence in "message": these two members never change.
#pragma once

#include "events/AgentKind.h"
#include "foundation/EnumTable.h"
#include "service/Alert.h"
#include "service/SettingCatalog.h"
#include "service/SessionActions.h"
#include "sessions/PendingRequest.h"
#include "sessions/Session.h"
#include "sessions/SessionStore.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// What a control request asks for. Raw values equal the case names, but "continue".
enum class ControlCommand {
    sessions,
    pending,
    allow,
    deny,
    reply,
    letStop,
    subscribe,
    transcriptStep,
    allowAlways,
    answer,
    /// Continue a session that holds nothing with the agent's own program.
    continueSession,
    /// End a session: interrupt its agent.
    end,
    pause,
    resume,
    setting,
    forget,
    forgetAll,
};

template <> struct RawValues<ControlCommand> {
    static constexpr EnumTable<ControlCommand, 17> table{{{
        {ControlCommand::sessions, "sessions"},
        {ControlCommand::pending, "pending"},
        {ControlCommand::allow, "allow"},
        {ControlCommand::deny, "deny"},
        {ControlCommand::reply, "reply"},
        {ControlCommand::letStop, "letStop"},
        {ControlCommand::subscribe, "subscribe"},
        {ControlCommand::transcriptStep, "transcriptStep"},
        {ControlCommand::allowAlways, "allowAlways"},
        {ControlCommand::answer, "answer"},
        {ControlCommand::continueSession, "continue"},
        {ControlCommand::end, "end"},
        {ControlCommand::pause, "pause"},
        {ControlCommand::resume, "resume"},
        {ControlCommand::setting, "setting"},
        {ControlCommand::forget, "forget"},
        {ControlCommand::forgetAll, "forgetAll"},
    }}};
};

template <> struct RawValues<SettingCatalog::Change> {
    static constexpr EnumTable<SettingCatalog::Change, 3> table{{{
        {SettingCatalog::Change::set, "set"},
        {SettingCatalog::Change::add, "add"},
        {SettingCatalog::Change::remove, "remove"},
    }}};
};

struct ControlRequest {
    ControlCommand command = ControlCommand::sessions;
    /// The session to decide for: an identifier or a prefix of one (a whole identifier
    /// with `agent` names exactly one session).
    std::string session;
    /// Only sessions of this agent are considered.
    std::optional<AgentKind> agent;
    /// deny: the message shown to the agent.
    std::optional<std::string> message;
    /// reply: the text sent to the agent; setting: the value.
    std::string text;
    /// allowAlways: the rule or prefix to keep allowing instead of the one offered.
    std::optional<std::string> rule;
    /// answer: one answer per question, in order.
    std::vector<std::string> answers;
    /// transcriptStep: how far the session's transcript has been read.
    std::optional<std::int64_t> step;
    /// pause: when the pause ends by itself; none: when the user resumes.
    std::optional<Date> until;
    /// setting: the setting's name and how the value changes it.
    std::string setting;
    SettingCatalog::Change change = SettingCatalog::Change::set;

    friend bool operator==(const ControlRequest&, const ControlRequest&) = default;
};

/// How a control request ended. Raw values equal the case names.
enum class ControlOutcome {
    /// Listed, subscribed, or the decision reached the waiting agent.
    done,
    /// The session matched but nothing was waiting for this decision (none held, or
    /// already answered: the first decision wins).
    notDelivered,
    /// No session matches the identifier.
    noMatch,
    /// The identifier matches several sessions.
    ambiguous,
    /// The request itself was malformed (an empty identifier, an unknown command), or it
    /// came in another version of the protocol.
    badRequest,
    /// The application would not do it (a setting's wrong value, a session holding a
    /// request); the message says why.
    refused,
};

template <> struct RawValues<ControlOutcome> {
    static constexpr EnumTable<ControlOutcome, 6> table{{{
        {ControlOutcome::done, "done"},
        {ControlOutcome::notDelivered, "notDelivered"},
        {ControlOutcome::noMatch, "noMatch"},
        {ControlOutcome::ambiguous, "ambiguous"},
        {ControlOutcome::badRequest, "badRequest"},
        {ControlOutcome::refused, "refused"},
    }}};
};

struct ControlReply {
    ControlOutcome outcome = ControlOutcome::done;
    /// A sentence for the user when the outcome is not `done`; for a lasting allow or
    /// answers that were delivered, what they told the agent; for `continue` and `end`
    /// what was done; what a pause, a setting or forgetting did.
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

/// One line of a subscription after its reply.
struct ControlEvent {
    /// Raw values equal the case names.
    enum class Kind {
        /// A change of the sessions. Right after the reply, one per session (kind
        /// `session`) describes every session there is.
        change,
        /// Something the user should notice.
        alert,
        /// Every session has been described; live changes follow.
        ready,
    };

    Kind kind = Kind::change;
    /// change: what changed.
    std::optional<StoreChange> change;
    /// alert: the alert.
    std::optional<Alert> alert;

    friend bool operator==(const ControlEvent&, const ControlEvent&) = default;
};

template <> struct RawValues<ControlEvent::Kind> {
    static constexpr EnumTable<ControlEvent::Kind, 3> table{{{
        {ControlEvent::Kind::change, "change"},
        {ControlEvent::Kind::alert, "alert"},
        {ControlEvent::Kind::ready, "ready"},
    }}};
};

/// {"session": key, "request": held request}.
void writeJSON(JSONWriter& out, const HeldRequest& held);
/// The pair writeJSON writes; false when either member is missing or does not read.
[[nodiscard]] bool readJSON(JSONReader& in, HeldRequest& out);
/// {"kind", "key", then "session" or "pending" as the kind has them}.
void writeJSON(JSONWriter& out, const StoreChange& change);
/// The change writeJSON writes; false when "kind" or "key" is missing or unknown, a
/// session change lacks its session or a member does not read.
[[nodiscard]] bool readJSON(JSONReader& in, StoreChange& out);
/// Every field under its name; absent optional ones are left out.
void writeJSON(JSONWriter& out, const Alert& alert);
/// The alert writeJSON writes; false when "kind", "session" or "title" is missing or a
/// member does not read.
[[nodiscard]] bool readJSON(JSONReader& in, Alert& out);

namespace ControlProtocol {

/// The protocol version this build writes and reads. 1 had no subscriptions.
inline constexpr std::int64_t version = 2;

/// The request line (with its line feed) carrying `secret`. Throws std::invalid_argument
/// when a text is not UTF-8.
[[nodiscard]] std::string encode(const ControlRequest& request, std::string_view secret);

/// The secret and request of a request line. Nothing unless the line is a JSON object
/// of this version with a string "secret" and a known "command"; "agent" must be a known
/// agent unless it is missing or null. The other fields take their defaults when missing
/// or mistyped.
[[nodiscard]] std::optional<std::pair<std::string, ControlRequest>>
decodeRequest(std::string_view line);

/// The reply line (with its line feed). A reply that cannot be encoded (a text that is
/// not UTF-8) becomes a `badRequest` reply saying so.
[[nodiscard]] std::string encode(const ControlReply& reply);

/// The reply of a reply line; nothing unless it is an object of this version with a
/// known "outcome" whose session key (unless missing or null), sessions and held
/// requests all decode. A mistyped "message" is absent.
[[nodiscard]] std::optional<ControlReply> decodeReply(std::string_view line);

/// The event line (with its line feed). Bytes that are not UTF-8 in its texts are
/// replaced, so that the line always decodes.
[[nodiscard]] std::string encode(const ControlEvent& event);

/// The event of an event line; nothing unless it is an object of this version with a
/// known "event" carrying what its kind needs, all of which decodes.
[[nodiscard]] std::optional<ControlEvent> decodeEvent(std::string_view line);

/// The members every version keeps.
struct Envelope {
    std::int64_t version = 0;
    std::optional<std::string> secret;
    std::optional<std::string> message;
};

/// "v" (a whole number), and "secret" and "message" when they are strings, of a line of
/// any version; nothing unless it is a JSON object with a whole-number "v".
[[nodiscard]] std::optional<Envelope> decodeEnvelope(std::string_view line);

/// The answer to a request of `requestVersion`, another version than this one: a
/// `badRequest` reply, in the version the requesting side reads, whose message says
/// which side is older and what to do.
[[nodiscard]] std::string encodeVersionMismatch(std::int64_t requestVersion);

/// The sentence for a command of `commandVersion` facing an application of
/// `applicationVersion`, whichever is older.
[[nodiscard]] std::string versionMismatchSentence(std::int64_t commandVersion,
                                                  std::int64_t applicationVersion);

/// A harmless request of version 1 (a listing), which only an application of version 1
/// answers in version 1: how a command tells an older application from none.
[[nodiscard]] std::string encodeFirstVersionProbe(std::string_view secret);

} // namespace ControlProtocol

} // namespace tidewick
