#include "adapters/AntigravityAdapter.h"

#include "adapters/AdapterSupport.h"
#include "events/ToolDescriber.h"
#include "foundation/Text.h"

#include <algorithm>

namespace tidewick {

namespace {

using AdapterSupport::answer;
using AdapterSupport::EventTemplate;

constexpr std::string_view unansweredReason = "Tidewick did not get an answer in time.";

bool isCancelReason(const std::optional<std::string>& reason) {
    if (!reason)
        return false;
    const auto& reasons = AntigravityAdapter::cancelReasons;
    return std::find(reasons.begin(), reasons.end(), Text::lowercased(*reason)) != reasons.end();
}

ParsedHook turnEnd(const EventTemplate& base, const Payload& payload) {
    auto reason = payload.string("terminationReason");
    auto error = payload.string("error");
    if (reason == "error" || error)
        return base.report(EventKind::error, "The agent hit an error", error);
    if (isCancelReason(reason))
        return base.report(EventKind::interrupted, "Stopped", std::nullopt);
    // An intermediate step is activity; only a real finish asks for a reply.
    if (payload.boolean("fullyIdle") == false)
        return base.report(EventKind::working, "Finished a step", std::nullopt);
    return base.askReply("Finished the turn", std::nullopt);
}

std::string continueReason(const std::string& reply) {
    return "The user replied through Tidewick. Their new message: \"" + reply +
           "\". Answer it directly, then carry on.";
}

} // namespace

std::optional<ParsedHook> AntigravityAdapter::parse(std::string_view event,
                                                    const Payload& payload) const {
    auto sessionId = payload.string("conversationId");
    if (!sessionId)
        return std::nullopt;
    const EventTemplate base(AgentKind::antigravity, *sessionId, std::string(event),
                             AdapterSupport::firstStringElement(payload, "workspacePaths"),
                             payload.string("transcriptPath"), payload.string("modelName"));
    // A missing or mistyped "toolCall" leaves name and input absent.
    const Payload call(payload.dict("toolCall") ? *payload.dict("toolCall") : JSONValue());
    const auto tool = call.string("name");
    auto describe = [&] { return ToolDescriber::describe(tool, call.value("args")); };

    if (event == "SessionStart")
        return base.report(EventKind::sessionStarted, std::nullopt, std::nullopt);
    if (event == "PreInvocation")
        return base.report(EventKind::working, std::nullopt, std::nullopt);
    if (event == "PreToolUse") {
        ToolDescription description = describe();
        if (description.isShell) {
            ParsedHook parsed = base.askPermission(description.title, description.detail, tool);
            const JSONValue* args = call.value("args");
            parsed.call = HeldCall{tool.value_or(""), description.command,
                                   args ? *args : JSONValue(), {}, {}};
            return parsed;
        }
        return base.report(EventKind::toolStarted, description.title, description.detail, tool);
    }
    if (event == "PostToolUse") {
        ToolDescription description = describe();
        if (auto error = payload.string("error"))
            return base.report(EventKind::toolFinished, description.title + " failed", error, tool);
        return base.report(EventKind::toolFinished, description.title, description.detail, tool);
    }
    if (event == "Stop")
        return turnEnd(base, payload);
    return std::nullopt;
}

HookOutput AntigravityAdapter::output(const ParsedHook& parsed,
                                      const std::optional<Decision>& decision) const {
    auto decided = [&](Decision::Type type) { return decision && decision->type() == type; };
    const std::string& event = parsed.event.hookEvent;
    if (event == "PreToolUse") {
        if (parsed.hold != HoldKind::permission)
            return answer({{"decision", "ask"}});
        if (decided(Decision::Type::allow))
            return answer({{"decision", "allow"}});
        if (decided(Decision::Type::deny))
            return answer(
                {{"decision", "deny"},
                 {"reason", AdapterSupport::denyMessage(decision->text(), "Denied in Tidewick.")}});
        // Unanswered: Antigravity's own approval decides, never Tidewick by default.
        return answer({{"decision", "ask"}, {"reason", unansweredReason}});
    }
    if (event == "Stop") {
        if (parsed.hold == HoldKind::reply && decided(Decision::Type::reply))
            return answer({{"decision", "continue"},
                           {"reason", continueReason(decision->text().value_or(""))}});
        return answer({{"decision", "stop"}});
    }
    return answer({});
}

HookOutput AntigravityAdapter::failSafe(std::string_view event) const {
    if (event == "PreToolUse")
        return {R"({"decision":"ask"})", 0};
    if (event == "Stop")
        return {R"({"decision":"stop"})", 0};
    return {"{}", 0};
}

bool AntigravityAdapter::isFireAndForget(std::string_view) const {
    return false;
}

} // namespace tidewick
