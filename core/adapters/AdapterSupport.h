// Pieces every agent dialect shares: the fields common to all events of one
// invocation, and the JSON answers they print.
#pragma once

#include "events/AgentEvent.h"
#include "events/HookOutput.h"
#include "events/Payload.h"
#include "foundation/JSONValue.h"

#include <optional>
#include <string>
#include <string_view>

namespace tidewick::AdapterSupport {

using MaybeText = std::optional<std::string>;

/// The fields every event of one invocation carries (agent, session, project,
/// transcript, model, hook event); builds the events of an adapter's table.
class EventTemplate {
public:
    EventTemplate(AgentKind agent, std::string sessionId, std::string hookEvent,
                  MaybeText projectPath, MaybeText transcriptPath, MaybeText model);

    /// An event that is only reported (hold none, no decision wanted), received now.
    [[nodiscard]] ParsedHook report(EventKind kind, MaybeText title, MaybeText detail,
                                    MaybeText toolName = std::nullopt) const;
    /// A held `permissionRequested` event that wants the user's permission.
    [[nodiscard]] ParsedHook askPermission(MaybeText title, MaybeText detail,
                                           MaybeText toolName) const;
    /// A held `turnFinished` event that wants the user's reply.
    [[nodiscard]] ParsedHook askReply(MaybeText title, MaybeText detail) const;

private:
    AgentEvent base_;
};

/// The first non-empty string element of the array under `key`, skipping
/// elements of other types; nothing when there is none or no array.
[[nodiscard]] MaybeText firstStringElement(const Payload& payload, std::string_view key);

/// `object` printed compact, exit code 0.
[[nodiscard]] HookOutput answer(JSONValue::Object object);

/// A deny message, or `fallback` when the user gave none (or an empty one).
[[nodiscard]] std::string denyMessage(const std::optional<std::string>& message,
                                      std::string_view fallback);

} // namespace tidewick::AdapterSupport
