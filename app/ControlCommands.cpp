#include "ControlCommands.h"

#include "CommandFailure.h"
#include "ConnectCommands.h"
#include "UsageError.h"
#include "control/ControlClient.h"
#include "control/SessionMatcher.h"
#include "foundation/JSONCoding.h"
#include "foundation/Text.h"
#include "sessions/CommandRisk.h"
#include "sessions/ShortIds.h"

#include <cmath>
#include <memory>

namespace tidewick {

namespace {

struct ControlOptions {
    bool json = false;
    std::string session;
    std::string agent;
    std::optional<std::string> message;
    std::string text;
    // allow: --always and the rule that may follow the session.
    bool always = false;
    std::optional<std::string> rule;
    // answer: one text per question.
    std::vector<std::string> answers;
};

std::string padded(std::string_view text, std::size_t width) {
    std::string out(text);
    std::size_t length = Text::characterCount(text);
    if (length < width)
        out.append(width - length, ' ');
    return out;
}

// One line of a listing: no line feeds from an agent's texts.
std::string flattened(std::string_view text, std::size_t limit) {
    std::string line =
        Text::replacingAll(Text::replacingAll(std::string(text), "\n", " "), "\r", " ");
    return Text::cut(line, limit, "…");
}

ControlReply send(AppContext& context, const ControlRequest& request) {
    try {
        return ControlClient::send(request, context.paths());
    } catch (const ControlClient::NotRunning& error) {
        throw CommandFailure(notRunningExitStatus, error.what());
    } catch (const ControlClient::VersionMismatch& error) {
        throw CommandFailure(static_cast<int>(ExitStatus::refused), error.what());
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

// Turns an outcome other than done into its exit status and sentence.
void requireDone(const ControlReply& reply) {
    const std::string message = reply.message.value_or("Tidewick refused the request.");
    switch (reply.outcome) {
    case ControlOutcome::done:
        return;
    case ControlOutcome::notDelivered:
    case ControlOutcome::noMatch:
    case ControlOutcome::refused:
        throw CommandFailure(static_cast<int>(ExitStatus::refused), message);
    case ControlOutcome::ambiguous:
    case ControlOutcome::badRequest:
        throw UsageError(message);
    }
}

std::string confirmation(ControlCommand command, const ControlReply& reply) {
    const std::string who = describeSession(reply.session.value_or(SessionKey{}), reply.shortIds);
    switch (command) {
    case ControlCommand::allow:
        return "Allowed " + who + ".";
    case ControlCommand::deny:
        return "Denied " + who + ".";
    case ControlCommand::reply:
        return "Replied to " + who + ".";
    case ControlCommand::letStop:
        return "Let " + who + " stop.";
    case ControlCommand::allowAlways:
        return "Always allowed " + who + ": " + reply.message.value_or("") + ".";
    case ControlCommand::answer:
        return "Answered " + who + ":\n" + reply.message.value_or("");
    case ControlCommand::continueSession:
    case ControlCommand::end:
        // The application says what it started or ended.
        return reply.message.value_or(who + ".");
    default:
        break;
    }
    return who + ".";
}

void runDecision(AppContext& context, ControlCommand command, const ControlOptions& options) {
    ControlRequest request;
    request.command = command;
    request.session = options.session;
    if (!options.agent.empty())
        request.agent = agentFromArgument(options.agent);
    request.message = options.message;
    request.text = options.text;
    request.answers = options.answers;
    if (command == ControlCommand::reply && request.text.empty())
        throw UsageError("A reply needs some text.");
    if (command == ControlCommand::allow && options.rule && !options.always)
        throw UsageError("A rule goes with --always: tidewick allow SESSION --always RULE.");
    if (command == ControlCommand::allow && options.always) {
        request.command = command = ControlCommand::allowAlways;
        request.rule = options.rule;
    }
    ControlReply reply = send(context, request);
    // A session that holds no reply is continued with the agent's own program instead.
    if (command == ControlCommand::reply && reply.outcome == ControlOutcome::notDelivered) {
        request.command = ControlCommand::continueSession;
        reply = send(context, request);
    }
    requireDone(reply);
    context.terminal().out() << confirmation(request.command, reply) << "\n";
}

// Asks the application for a listing; its reply, or the failure it stands for.
ControlReply listing(AppContext& context, ControlCommand command) {
    ControlRequest request;
    request.command = command;
    ControlReply reply = send(context, request);
    requireDone(reply);
    return reply;
}

// The short identifier of `key` in `reply`, and the width of the column that shows them.
std::string shortIdIn(const ControlReply& reply, const SessionKey& key) {
    const auto found = reply.shortIds.find(key.sessionId);
    return found != reply.shortIds.end() ? found->second : key.sessionId;
}
std::size_t idColumn(const ControlReply& reply) {
    std::size_t widest = ShortIds::minimumLength;
    for (const auto& [id, shortId] : reply.shortIds)
        widest = std::max(widest, Text::characterCount(shortId));
    return widest + 2;
}

// A held request as --json prints it: the request with its risk, when it has one.
void addRisk(JSONValue& request) {
    const JSONValue* kind = request.get("kind");
    const JSONValue* detail = request.get("detail");
    if (!kind || kind->stringValue() == nullptr || *kind->stringValue() != "permission" ||
        !detail || !detail->isString())
        return;
    if (auto finding = CommandRisk::assessDetail(*detail->stringValue()))
        request.set("risk", finding->reason);
}

// Prints `items` as a pretty JSON array (each as `asJSON` makes it), or a line each
// (`none` when there are none).
template <typename Item, typename AsJSON, typename AsLine>
void print(AppContext& context, bool json, const std::vector<Item>& items, AsJSON asJSON,
           AsLine asLine, std::string_view none) {
    std::ostream& out = context.terminal().out();
    if (json) {
        JSONValue::Array array;
        for (const Item& item : items)
            array.push_back(asJSON(item));
        out << JSONValue(std::move(array)).pretty() << "\n";
        return;
    }
    if (items.empty())
        out << none << "\n";
    for (const Item& item : items)
        out << asLine(item) << "\n";
}

void runSessions(AppContext& context, bool json) {
    const ControlReply reply = listing(context, ControlCommand::sessions);
    const std::size_t width = idColumn(reply);
    print(
        context, json, reply.sessions,
        [&](const Session& session) {
            JSONValue value = JSONValue::parse(encodeJSON(session));
            value.set("shortId", shortIdIn(reply, session.key));
            for (JSONValue& request : *value.get("pending")->arrayValue())
                addRisk(request);
            return value;
        },
        [&](const Session& session) {
            return describeSessionLine(session, shortIdIn(reply, session.key), width);
        },
        "No sessions yet.");
}

void runPending(AppContext& context, bool json) {
    const ControlReply reply = listing(context, ControlCommand::pending);
    const std::size_t width = idColumn(reply);
    const Date now = tidewick::now();
    print(
        context, json, reply.pending,
        [&](const HeldRequest& held) {
            JSONValue value = JSONValue::parse(encodeJSON(held));
            value.set("shortId", shortIdIn(reply, held.first));
            addRisk(*value.get("request"));
            return value;
        },
        [&](const HeldRequest& held) {
            return describeHeldLine(held, shortIdIn(reply, held.first), width, now);
        },
        "Nothing is waiting for you.");
}

CLI::App* addDecision(CLI::App& app, AppContext& context, const char* name, const char* about,
                      ControlCommand command, const std::shared_ptr<ControlOptions>& options) {
    CLI::App* sub = app.add_subcommand(name, about);
    sub->add_option("session", options->session, "Session identifier or the start of it")
        ->required();
    sub->add_option("--agent", options->agent,
                    "Only sessions of this agent (claude, codex, cursor, antigravity)");
    sub->callback([&context, command, options] { runDecision(context, command, *options); });
    return sub;
}

} // namespace

std::string describeSessionLine(const Session& session, std::string_view shortId,
                                std::size_t idWidth) {
    std::string line = padded(displayName(session.key.agent), 12) + padded(shortId, idWidth) +
                       padded(label(session.status), 18);
    line += session.projectPath ? flattened(*session.projectPath, 60) : "-";
    if (session.currentAction)
        line += "  " + flattened(*session.currentAction, 60);
    if (!session.pending.empty())
        line += "  " + std::to_string(session.pending.size()) + " held";
    return line;
}

std::string describeHeldLine(const HeldRequest& held, std::string_view shortId,
                             std::size_t idWidth, Date now) {
    const auto& [key, request] = held;
    const double left =
        std::max(0.0, std::chrono::duration<double>(request.deadline - now).count());
    std::string line = padded(displayName(key.agent), 12) + padded(shortId, idWidth) +
                       padded(rawValue(request.kind), 12) + flattened(request.title, 60);
    if (request.detail)
        line += " — " + flattened(*request.detail, 80);
    if (request.kind == PendingKind::permission && !request.isQuestion())
        if (auto finding = CommandRisk::assessDetail(request.detail))
            line += "  ⚠ " + finding->reason;
    if (request.alwaysAllow)
        line += "  (always: " + flattened(request.alwaysAllow->text, 60) + ")";
    line += "  (" + std::to_string(static_cast<long long>(std::ceil(left))) + " s left)";
    return line;
}

void registerControlCommands(CLI::App& app, AppContext& context) {
    auto sessionsJSON = std::make_shared<bool>(false);
    CLI::App* sessions = app.add_subcommand("sessions", "List the running application's sessions");
    sessions->add_flag("--json", *sessionsJSON, "Print the sessions as a JSON array");
    sessions->callback([&context, sessionsJSON] { runSessions(context, *sessionsJSON); });

    auto pendingJSON = std::make_shared<bool>(false);
    CLI::App* pending = app.add_subcommand("pending", "List the requests waiting for you");
    pending->add_flag("--json", *pendingJSON, "Print the held requests as a JSON array");
    pending->callback([&context, pendingJSON] { runPending(context, *pendingJSON); });

    auto allow = std::make_shared<ControlOptions>();
    CLI::App* allowCommand =
        addDecision(app, context, "allow", "Allow the permission request a session is waiting on",
                    ControlCommand::allow, allow);
    allowCommand->add_flag("--always", allow->always,
                           "Also tell the agent to stop asking: Claude Code keeps the offered "
                           "rule (or RULE) in the project's local settings; for Cursor and "
                           "Antigravity Tidewick lets the command's prefix through. Codex "
                           "takes no lasting rule.");
    allowCommand->add_option("rule", allow->rule,
                             "With --always: the rule to keep instead of the one offered, "
                             "such as \"npm test:*\"");

    auto answer = std::make_shared<ControlOptions>();
    CLI::App* answerCommand = addDecision(
        app, context, "answer", "Answer the questions a session is asking, one text per question",
        ControlCommand::answer, answer);
    answerCommand
        ->add_option("text", answer->answers,
                     "One answer per question, in order: an option's label chooses it "
                     "(several joined by commas for a multiple choice), other words are "
                     "sent as they are")
        ->required();

    auto deny = std::make_shared<ControlOptions>();
    CLI::App* denyCommand =
        addDecision(app, context, "deny", "Deny the permission request a session is waiting on",
                    ControlCommand::deny, deny);
    denyCommand->add_option("-m,--message", deny->message, "Tell the agent why");

    auto reply = std::make_shared<ControlOptions>();
    CLI::App* replyCommand = addDecision(
        app, context, "reply",
        "Answer a session that waits for you, or continue one that holds nothing",
        ControlCommand::reply, reply);
    replyCommand->add_option("text", reply->text, "What to tell the agent")->required();

    auto end = std::make_shared<ControlOptions>();
    addDecision(app, context, "end", "End a session: interrupt its agent and mark it ended by you",
                ControlCommand::end, end);

    auto letStop = std::make_shared<ControlOptions>();
    addDecision(app, context, "let-stop", "Let a session that waits for you end its turn",
                ControlCommand::letStop, letStop);
}

} // namespace tidewick
