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
    if (name == "PermissionRequest") {
        ToolDescription description = ToolDescriber::describe(tool, input);
        return base.askPermission(description.title, permissionDetail(description, input), tool);
    }
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
        return permissionAnswer({{"behavior", "allow"}});
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
