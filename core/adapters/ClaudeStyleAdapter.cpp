#include "adapters/ClaudeStyleAdapter.h"

#include "adapters/AdapterSupport.h"
#include "events/QuestionDescriber.h"
#include "events/ToolDescriber.h"

namespace tidewick {

namespace {

using AdapterSupport::EventTemplate;

constexpr std::string_view replyPrefix = "Message from the user, sent via Tidewick: ";

// A question tool becomes a notification the user can answer in the agent.
std::optional<ParsedHook> questionNotice(const EventTemplate& base, AgentKind kind,
                                         const std::optional<std::string>& tool,
                                         const JSONValue* input) {
    auto question = QuestionDescriber::question(tool, input);
    if (!question)
        return std::nullopt;
    bool asksPermission =
        QuestionDescriber::isPermissionTool(QuestionDescriber::unwrap(tool, input).tool);
    std::string title = std::string(displayName(kind)) + " is " +
                        (asksPermission ? "asking for your permission" : "asking you a question");
    return base.report(EventKind::notification, std::move(title), question->recordText(),
                       "question");
}

// A shell command's own explanation helps the user decide, so it follows the command.
std::optional<std::string> permissionDetail(const ToolDescription& description,
                                            const JSONValue* input) {
    if (!description.isShell || !description.detail)
        return description.detail;
    auto dict = QuestionDescriber::asDict(input);
    const JSONValue* explanation = dict ? dict->get("description") : nullptr;
    const std::string* text = explanation ? explanation->stringValue() : nullptr;
    if (!text || text->empty())
        return description.detail;
    return *description.detail + "\n\n" + *text;
}

// The call behind a held request: the shell command, the agent's own suggestions for
// allowing such calls from now on, and the questions of a question tool.
HeldCall heldCall(const std::optional<std::string>& tool, const JSONValue* input,
                  const ToolDescription& description, const Payload& payload) {
    HeldCall call;
    call.tool = tool.value_or("");
    call.command = description.command;
    call.input = input ? *input : JSONValue();
    if (const JSONValue::Array* suggestions = payload.array("permission_suggestions"))
        for (const JSONValue& suggestion : *suggestions)
            if (suggestion.isObject())
                call.suggestions.push_back(suggestion);
    if (QuestionDescriber::isQuestionTool(tool) && !QuestionDescriber::isPermissionTool(tool))
        call.questions = AskedQuestions::from(input);
    return call;
}

// A permission request of a question tool is how an interactive session asks its questions:
// the user answers them rather than allowing a tool.
ParsedHook permissionRequest(const EventTemplate& base, AgentKind kind,
                             const std::optional<std::string>& tool, const JSONValue* input,
                             const Payload& payload) {
    const ToolDescription description = ToolDescriber::describe(tool, input);
    HeldCall call = heldCall(tool, input, description, payload);
    ParsedHook parsed =
        call.questions.empty()
            ? base.askPermission(description.title, permissionDetail(description, input), tool)
            : base.askPermission(std::string(displayName(kind)) + " is asking you a question",
                                 AskedQuestions::recordText(call.questions), "question");
    parsed.call = std::move(call);
    return parsed;
}

// Codex rejects an allow that carries an updated input or permission updates and then
// ignores the whole answer, so it only ever gets the plain allow.
JSONValue::Object allowDecision(AgentKind kind, const Decision& decision) {
    JSONValue::Object allow{{"behavior", "allow"}};
    if (kind == AgentKind::codex)
        return allow;
    if (decision.updatedInput())
        allow.emplace_back("updatedInput", *decision.updatedInput());
    if (!decision.permissionUpdates().empty())
        allow.emplace_back("updatedPermissions", decision.permissionUpdates());
    return allow;
}

HookOutput permissionAnswer(JSONValue::Object decision) {
    return AdapterSupport::answer(
        {{"hookSpecificOutput", JSONValue::Object{{"hookEventName", "PermissionRequest"},
                                                  {"decision", std::move(decision)}}}});
}

} // namespace

std::optional<ParsedHook> ClaudeStyleAdapter::parse(std::string_view event,
                                                    const Payload& payload) const {
    const std::string name = payload.string("hook_event_name").value_or(std::string(event));
    auto sessionId = payload.string("session_id");
    if (!sessionId)
        return std::nullopt;
    const EventTemplate base(kind_, *sessionId, name, payload.string("cwd"),
                             payload.string("transcript_path"), payload.string("model"));
    const auto tool = payload.string("tool_name");
    const JSONValue* input = payload.value("tool_input");

    if (name == "SessionStart")
        return base.report(EventKind::sessionStarted, payload.string("session_title"),
                           payload.string("source"));
    if (name == "SessionEnd")
        return base.report(EventKind::sessionEnded, std::nullopt, payload.string("reason"));
    if (name == "PreToolUse") {
        if (auto notice = questionNotice(base, kind_, tool, input))
            return notice;
        ToolDescription description = ToolDescriber::describe(tool, input);
        return base.report(EventKind::toolStarted, description.title, description.detail, tool);
    }
    if (name == "PostToolUse") {
        if (QuestionDescriber::isQuestionTool(tool))
            return std::nullopt;
        ToolDescription description = ToolDescriber::describe(tool, input);
        return base.report(EventKind::toolFinished, description.title, description.detail, tool);
    }
    if (name == "PermissionRequest")
        return permissionRequest(base, kind_, tool, input, payload);
    if (name == "UserPromptSubmit")
        return base.report(EventKind::userPrompt, "You", payload.string("prompt"));
    if (name == "Stop")
        return base.askReply("Finished the turn", payload.string("last_assistant_message"));
    if (name == "Notification")
        return base.report(EventKind::notification, payload.string("title"),
                           payload.string("message"));
    if (name == "PreCompact" || name == "PostCompact") {
        auto cause = payload.string("trigger");
        if (!cause)
            cause = payload.string("matcher");
        return base.report(EventKind::compaction,
                           name == "PreCompact" ? "Compacting context" : "Context compacted",
                           cause);
    }
    if (name == "Interrupt")
        return base.report(EventKind::interrupted, "Interrupted", std::nullopt);
    return std::nullopt;
}

HookOutput ClaudeStyleAdapter::output(const ParsedHook& parsed,
                                      const std::optional<Decision>& decision) const {
    if (!decision)
        return HookOutput::silent();
    if (parsed.hold == HoldKind::permission && decision->type() == Decision::Type::allow)
        return permissionAnswer(allowDecision(kind_, *decision));
    if (parsed.hold == HoldKind::permission && decision->type() == Decision::Type::deny)
        return permissionAnswer(
            {{"behavior", "deny"},
             {"message", AdapterSupport::denyMessage(decision->text(), "Denied from Tidewick.")}});
    if (parsed.hold == HoldKind::reply && decision->type() == Decision::Type::reply)
        return AdapterSupport::answer(
            {{"decision", "block"},
             {"reason", std::string(replyPrefix) + decision->text().value_or("")}});
    // Anything else has no opinion: the agent asks the user itself or stops normally.
    return HookOutput::silent();
}

HookOutput ClaudeStyleAdapter::failSafe(std::string_view) const {
    return HookOutput::silent();
}

bool ClaudeStyleAdapter::isFireAndForget(std::string_view event) const {
    return event == "SessionEnd" || event == "Interrupt";
}

} // namespace tidewick
