#include "adapters/CursorAdapter.h"

#include "adapters/AdapterSupport.h"
#include "events/QuestionDescriber.h"
#include "events/ToolDescriber.h"
#include "foundation/Text.h"

namespace tidewick {

namespace {

using AdapterSupport::answer;
using AdapterSupport::EventTemplate;
using MaybeText = AdapterSupport::MaybeText;

constexpr std::string_view denyAgentMessage =
    "The user denied this command in Tidewick. Do not retry it; ask how to proceed.";

MaybeText either(MaybeText first, MaybeText second) {
    return first ? first : second;
}

// The command on one line, short enough for a title; the detail keeps it whole.
std::string commandTitle(const std::string& command) {
    std::string oneLine = Text::replacingAll(command, "\r\n", " ");
    oneLine = Text::replacingAll(oneLine, "\r", " ");
    oneLine = Text::replacingAll(oneLine, "\n", " ");
    return "Run " + ToolDescriber::truncate(oneLine, 60);
}

ParsedHook sessionEnd(const EventTemplate& base, const Payload& payload) {
    MaybeText detail = either(payload.string("error_message"), payload.string("reason"));
    if (either(payload.string("final_status"), payload.string("reason")) == "error")
        return base.report(EventKind::error, "Session ended with an error", detail);
    return base.report(EventKind::sessionEnded, std::nullopt, detail);
}

ParsedHook mcpExecution(const EventTemplate& base, const Payload& payload) {
    std::string title = "Use " + payload.string("tool_name").value_or("a tool");
    if (auto server = payload.string("mcp_server_name"))
        title += " \xC2\xB7 " + *server;
    MaybeText detail = payload.string("tool_input");
    if (const JSONValue* input = payload.dict("tool_input"))
        detail = JSONValue::from(*input).compact();
    ParsedHook parsed = base.askPermission(std::move(title), std::move(detail), "mcp");
    const JSONValue* input = payload.value("tool_input");
    parsed.call = HeldCall{"mcp", std::nullopt, input ? *input : JSONValue(), {}, {}};
    return parsed;
}

ParsedHook toolEvent(const EventTemplate& base, EventKind kind, const Payload& payload) {
    auto tool = payload.string("tool_name");
    const JSONValue* input = payload.value("tool_input");
    if (kind == EventKind::toolStarted) {
        if (auto question = QuestionDescriber::question(tool, input))
            return base.report(EventKind::notification, "Cursor is asking you a question",
                               question->recordText(), "question");
    }
    ToolDescription description = ToolDescriber::describe(tool, input);
    return base.report(kind, description.title, description.detail, tool);
}

ParsedHook cursorTurnEnd(const EventTemplate& base, const Payload& payload) {
    auto status = payload.string("status");
    if (status == "aborted")
        return base.report(EventKind::interrupted, "Stopped", std::nullopt);
    if (status == "error")
        return base.report(EventKind::error, "The agent hit an error", std::nullopt);
    return base.askReply("Finished the turn", std::nullopt);
}

HookOutput permission(std::string_view verdict) {
    return answer({{"permission", verdict}});
}

} // namespace

const std::set<std::string, std::less<>>& CursorAdapter::permissionEvents() {
    static const std::set<std::string, std::less<>> events = {"beforeShellExecution", "preToolUse",
                                                              "beforeMCPExecution",
                                                              "beforeReadFile", "subagentStart"};
    return events;
}

std::optional<ParsedHook> CursorAdapter::parse(std::string_view event,
                                               const Payload& payload) const {
    const std::string name = payload.string("hook_event_name").value_or(std::string(event));
    auto sessionId = either(payload.string("conversation_id"), payload.string("session_id"));
    if (!sessionId)
        return std::nullopt;
    const EventTemplate base(AgentKind::cursor, *sessionId, name,
                             either(AdapterSupport::firstStringElement(payload, "workspace_roots"),
                                    payload.string("cwd")),
                             payload.string("transcript_path"), payload.string("model"));

    if (name == "sessionStart")
        return base.report(EventKind::sessionStarted, std::nullopt,
                           payload.string("composer_mode"));
    if (name == "sessionEnd")
        return sessionEnd(base, payload);
    if (name == "beforeShellExecution") {
        auto command = payload.string("command");
        if (!command)
            return std::nullopt;
        ParsedHook parsed = base.askPermission(commandTitle(*command), command, "run_command");
        parsed.call = HeldCall{"run_command", command, JSONValue(), {}, {}};
        return parsed;
    }
    if (name == "beforeMCPExecution")
        return mcpExecution(base, payload);
    if (name == "preToolUse")
        return toolEvent(base, EventKind::toolStarted, payload);
    if (name == "postToolUse")
        return toolEvent(base, EventKind::toolFinished, payload);
    if (name == "afterAgentResponse")
        return base.report(EventKind::message, std::nullopt, payload.string("text"));
    if (name == "stop")
        return cursorTurnEnd(base, payload);
    if (name == "preCompact")
        return base.report(EventKind::compaction, "Compacting context", payload.string("trigger"));
    return std::nullopt;
}

HookOutput CursorAdapter::output(const ParsedHook& parsed,
                                 const std::optional<Decision>& decision) const {
    auto type = decision ? std::optional(decision->type()) : std::nullopt;
    if (parsed.hold == HoldKind::permission) {
        if (type == Decision::Type::allow)
            return permission("allow");
        if (type == Decision::Type::deny)
            return answer({{"permission", "deny"},
                           {"user_message",
                            AdapterSupport::denyMessage(decision->text(), "Denied in Tidewick.")},
                           {"agent_message", denyAgentMessage}});
        // Unanswered: Cursor's own prompt decides, never Tidewick by default.
        return permission("ask");
    }
    if (parsed.hold == HoldKind::reply && type == Decision::Type::reply)
        return answer({{"followup_message", decision->text().value_or("")}});
    // A tool call that was only reported must still be let through.
    if (parsed.event.hookEvent == "preToolUse")
        return permission("allow");
    return answer({});
}

HookOutput CursorAdapter::failSafe(std::string_view event) const {
    if (event == "beforeReadFile" || event == "subagentStart")
        return {R"({"permission":"allow"})", 0};
    if (permissionEvents().contains(event))
        return {R"({"permission":"ask"})", 0};
    return {"{}", 0};
}

bool CursorAdapter::isFireAndForget(std::string_view event) const {
    return event == "sessionEnd";
}

} // namespace tidewick
