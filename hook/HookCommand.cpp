#include "HookCommand.h"

#include "HostApp.h"
#include "StatusLineRecorder.h"
#include "adapters/Adapters.h"
#include "foundation/File.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "foundation/TidewickPaths.h"
#include "wire/HookClient.h"

#include <fcntl.h>
#include <unistd.h>

namespace tidewick {

namespace {

constexpr std::string_view statusLineEvent = "StatusLine";

std::string readInput(InputSource& input) {
    return input.isTerminal() ? std::string() : input.readAll(HookCommand::inputLimit);
}

// One line per invocation in hook-debug.jsonl beside the socket. Debugging
// must never change what the agent sees, so every failure is ignored.
void appendDebugRecord(const TidewickPaths& paths, double time, std::string_view agent,
                       std::string_view event, const JSONValue& payload) {
    if (!File::exists(paths.debugMarkerFile()))
        return;
    std::string line =
        "{\"time\":" + JSONValue::real(time).compact() + ",\"agent\":" + JSONValue::quote(agent) +
        ",\"event\":" + JSONValue::quote(event) + ",\"payload\":" + payload.compact() + "}\n";
    const std::string path = paths.debugLogFile();
    try {
        const FileDescriptor file = FileDescriptor::open(path, O_WRONLY | O_CREAT | O_APPEND, 0600);
        IO::writeAll(file.get(), line, path);
    } catch (const SystemError&) {
        // Left without its record.
    }
}

std::string homeDirectory(const Environment& environment) {
    // Set counts, even when empty.
    if (auto home = environment.get("TIDEWICK_HOME"))
        return std::string(*home);
    if (auto home = environment.get("HOME"); home && !home->empty())
        return std::string(*home);
    return TidewickPaths::userHome();
}

HookOutput forward(const HookCommand::Context& context, AgentKind kind,
                   const std::string& agentName, const std::string& event,
                   const AgentAdapter& adapter, const HookOutput& failSafe) {
    TidewickPaths paths(homeDirectory(context.environment));
    std::string input = readInput(context.input);

    JSONValue payload;
    try {
        payload = JSONValue::parse(input);
    } catch (const JSONValue::ParseError&) {
        return failSafe;
    }
    if (!payload.isObject())
        return failSafe;
    input = std::string(); // Up to 32 MiB that is no longer needed.

    appendDebugRecord(paths, secondsSince1970(context.clock()), agentName, event, payload);

    if (event == statusLineEvent) {
        try {
            (void)StatusLineRecorder::record(payload, paths.claudeLimitsFile(), context.clock());
        } catch (...) {
            // Usage figures are a nicety; the status line must not fail over them.
        }
        return HookOutput::silent();
    }

    for (auto& [key, value] : *payload.objectPairs())
        for (std::string_view longKey : HookCommand::longOutputKeys)
            if (key == longKey)
                HookCommand::trim(value, HookCommand::outputLimit);
    HookCommand::trim(payload, HookCommand::stringLimit);

    auto secret = paths.secretIfReadable();
    if (!secret)
        return failSafe;

    const bool fireAndForget = adapter.isFireAndForget(event);
    auto agentPid = ProcessProbe::agentAncestor(context.pid, kind, HookCommand::ancestorSteps,
                                                context.processes);
    const bool headless = agentPid && ProcessProbe::isHeadless(*agentPid, kind, context.processes);

    HookRequest request;
    request.agent = std::string(rawValue(kind));
    request.event = event;
    request.payload = std::move(payload);
    request.pid = context.pid;
    request.host = HostApp::detect(context.environment);
    request.agentPid = agentPid;
    if (auto pane = context.environment.get("TMUX_PANE")) {
        request.tmuxPane = std::string(*pane);
        if (auto tmux = context.environment.get("TMUX"))
            request.tmuxSocket = std::string(tmux->substr(0, tmux->find(',')));
    }
    request.noHold = headless || context.environment.contains("TIDEWICK_NO_HOLD");

    auto outcome = HookClient::attempt(
        request, paths.socketPath(), *secret,
        fireAndForget ? HookCommand::fireAndForgetConnectSeconds : HookCommand::heldConnectSeconds,
        fireAndForget ? HookCommand::fireAndForgetWaitSeconds : HookCommand::heldWaitSeconds);
    return outcome.response ? outcome.response->output : failSafe;
}

} // namespace

bool DescriptorInput::isTerminal() const {
    return ::isatty(fd_) == 1;
}

std::string DescriptorInput::readAll(std::size_t limit) {
    return IO::readAll(fd_, limit, "standard input");
}

HookCommand::Exit HookCommand::run(const Context& context) {
    // Until the adapter has given its fail-safe answer there is nothing safe
    // to print, so these exits say nothing.
    HookOutput failSafe;
    std::unique_ptr<AgentAdapter> adapter;
    std::optional<AgentKind> kind;
    std::optional<std::string> agentName, event;
    try {
        agentName = arg(context.arguments, "--agent");
        if (!agentName)
            return Exit{};
        kind = fromRaw<AgentKind>(*agentName);
        if (!kind)
            return Exit{};
        event = arg(context.arguments, "--event");
        if (!event)
            return Exit{};
        adapter = Adapters::adapter(*kind);
        failSafe = adapter->failSafe(*event);
    } catch (...) {
        return Exit{};
    }
    try {
        return finish(forward(context, *kind, *agentName, *event, *adapter, failSafe));
    } catch (...) {
        return finish(failSafe);
    }
}

std::optional<std::string> HookCommand::arg(const std::vector<std::string>& arguments,
                                            std::string_view name) {
    for (size_t i = 0; i < arguments.size(); ++i)
        if (arguments[i] == name)
            return i + 1 < arguments.size() ? std::optional(arguments[i + 1]) : std::nullopt;
    return std::nullopt;
}

void HookCommand::trim(JSONValue& value, std::size_t limit) {
    if (const std::string* text = value.stringValue()) {
        // A string of at most `limit` bytes cannot hold more characters.
        if (text->size() > limit)
            value = JSONValue(Text::cut(*text, limit, Text::ellipsis));
    } else if (JSONValue::Array* elements = value.arrayValue()) {
        for (JSONValue& element : *elements)
            trim(element, limit);
    } else if (JSONValue::Object* pairs = value.objectPairs()) {
        for (auto& pair : *pairs)
            trim(pair.second, limit);
    }
}

JSONValue HookCommand::trimmed(const JSONValue& value, std::size_t limit) {
    JSONValue copy = value;
    trim(copy, limit);
    return copy;
}

HookCommand::Exit HookCommand::finish(const HookOutput& output) {
    Exit exit;
    if (!output.stdoutText.empty())
        exit.text = output.stdoutText + "\n";
    // Status 2 would make some agents treat the hook as blocking; never end with it.
    exit.status = output.exitCode == 2 ? 0 : output.exitCode;
    return exit;
}

} // namespace tidewick
