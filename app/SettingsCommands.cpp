#include "SettingsCommands.h"

#include "CommandFailure.h"
#include "ConnectCommands.h"
#include "ServiceCommands.h"
#include "UsageError.h"
#include "control/ControlClient.h"
#include "foundation/JSONCoding.h"
#include "service/SettingsEditor.h"
#include "service/SettingsText.h"

#include <charconv>
#include <memory>

namespace tidewick {

namespace {

using Change = SettingCatalog::Change;

// The application's answer, or nothing when none runs.
std::optional<ControlReply> sendIfRunning(AppContext& context, const ControlRequest& request) {
    try {
        return ControlClient::send(request, context.paths());
    } catch (const ControlClient::NotRunning&) {
        return std::nullopt;
    } catch (const ControlClient::VersionMismatch& error) {
        throw CommandFailure(static_cast<int>(ExitStatus::refused), error.what());
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

ControlResult resultOf(const ControlReply& reply) {
    const std::string sentence = reply.message.value_or("");
    switch (reply.outcome) {
    case ControlOutcome::done:
        return ControlResult::done(sentence);
    case ControlOutcome::ambiguous:
    case ControlOutcome::badRequest:
        throw UsageError(sentence);
    default:
        return ControlResult::refused(sentence);
    }
}

// Runs `request` in the running application, or `offline` on the settings file when none
// answers: both check the change the same way.
template <typename Offline>
ControlResult change(AppContext& context, const ControlRequest& request, Offline offline) {
    if (std::optional<ControlReply> reply = sendIfRunning(context, request))
        return resultOf(*reply);
    SettingsFile file(context.paths().settingsFile());
    SettingsEditor editor(file, tidewick::now);
    return offline(editor);
}

// Prints the sentence of a change done; a refusal fails the command with it.
void report(AppContext& context, const ControlResult& result) {
    if (!result.isDone())
        throw CommandFailure(static_cast<int>(ExitStatus::refused), result.sentence);
    context.terminal().out() << result.sentence << "\n";
}

ControlResult changeSetting(AppContext& context, const std::string& name, const std::string& value,
                            Change how) {
    ControlRequest request;
    request.command = ControlCommand::setting;
    request.setting = name;
    request.text = value;
    request.change = how;
    return change(context, request, [&](SettingsEditor& editor) {
        return editor.changeSetting(name, value, how);
    });
}

void runPause(AppContext& context, const std::string& duration) {
    std::optional<Date> until;
    if (!duration.empty()) {
        const std::optional<double> seconds = parseDuration(duration);
        if (!seconds)
            throw UsageError("--for takes a duration such as 90s, 30m, 1h30m or 2d, not \"" +
                             duration + "\".");
        until = addSeconds(tidewick::now(), *seconds);
    }
    ControlRequest request;
    request.command = ControlCommand::pause;
    request.until = until;
    report(context, change(context, request,
                           [&](SettingsEditor& editor) { return editor.pause(until); }));
}

void runResume(AppContext& context) {
    ControlRequest request;
    request.command = ControlCommand::resume;
    report(context,
           change(context, request, [](SettingsEditor& editor) { return editor.resume(); }));
}

bool onOff(const std::string& state) {
    if (state == "on")
        return true;
    if (state == "off")
        return false;
    throw UsageError("Say on or off, not \"" + state + "\".");
}

void runGate(AppContext& context, const std::string& agentName, const std::string& state) {
    const AgentKind agent = agentFromArgument(agentName);
    const bool on = onOff(state);
    const ControlResult result = changeSetting(
        context, "gating.gateCommands." + std::string(rawValue(agent)), on ? "true" : "false",
        Change::set);
    report(context, result.isDone() ? ControlResult::done(SettingsText::gated(agent, on)) : result);
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// The settings in force as the application reads them; a file that does not read is
// said on standard error, and its defaults listed.
TidewickSettings settingsInForce(AppContext& context) {
    SettingsFile file(context.paths().settingsFile(), [&context](const std::string& sentence) {
        context.terminal().err() << sentence << "\n";
    });
    return file.current();
}

void runSafeList(AppContext& context) {
    for (const std::string& prefix : settingsInForce(context).gating.safePrefixes)
        context.terminal().out() << prefix << "\n";
}

void runSettings(AppContext& context, bool json) {
    const TidewickSettings settings = settingsInForce(context);
    const TidewickSettings defaults;
    std::ostream& out = context.terminal().out();
    JSONValue::Array listed;
    for (const SettingCatalog::Entry& entry : SettingCatalog::entries()) {
        const JSONValue value = entry.get(settings), standard = entry.get(defaults);
        if (json) {
            JSONValue::Object item = {{"name", JSONValue(entry.name)},
                                      {"value", value},
                                      {"default", standard},
                                      {"takes", JSONValue(SettingCatalog::takes(entry.kind))},
                                      {"description", JSONValue(entry.description)}};
            listed.emplace_back(std::move(item));
            continue;
        }
        // A list's default is long: its length says enough.
        const std::string shownDefault =
            entry.kind == SettingCatalog::Kind::texts
                ? std::to_string(standard.arrayValue()->size()) + " entries"
                : SettingCatalog::display(standard);
        out << entry.name << " = " << SettingCatalog::display(value)
            << (value == standard ? "  (default)" : "  (default: " + shownDefault + ")")
            << "\n    " << entry.description << " Takes " << SettingCatalog::takes(entry.kind)
            << ".\n";
    }
    if (json) {
        out << JSONValue(std::move(listed)).pretty() << "\n";
        return;
    }
    if (settings.gating.paused && settings.gating.pausedUntil)
        out << "The pause ends at "
            << SettingsText::clockTime(*settings.gating.pausedUntil, tidewick::now()) << ".\n";
    if (!settings.unknownKeys.empty()) {
        out << "Also in the file, unknown to this version and kept:";
        for (const auto& [key, value] : settings.unknownKeys)
            out << " " << key;
        out << "\n";
    }
}

void runSettingsSet(AppContext& context, const std::string& name, const std::string& value) {
    if (name != "launchAtLogin") {
        report(context, changeSetting(context, name, value, Change::set));
        return;
    }
    // It installs or removes the user service, which only this command does.
    TidewickSettings checked;
    try {
        (void)SettingCatalog::apply(checked, name, value);
    } catch (const SettingCatalog::Refused& refused) {
        throw CommandFailure(static_cast<int>(ExitStatus::refused), refused.what());
    }
    setLaunchAtLogin(context, checked.launchAtLogin);
}

struct ForgetOptions {
    std::string session;
    std::string agent;
    bool all = false;
};

void runForget(AppContext& context, const ForgetOptions& options) {
    if (options.all == !options.session.empty())
        throw UsageError("Name one session to forget, or --all to erase the history.");
    ControlRequest request;
    request.command = options.all ? ControlCommand::forgetAll : ControlCommand::forget;
    request.session = options.session;
    if (!options.agent.empty())
        request.agent = agentFromArgument(options.agent);
    const std::optional<ControlReply> reply = sendIfRunning(context, request);
    if (!reply)
        throw CommandFailure(notRunningExitStatus, ControlClient::notRunningSentence);
    report(context, resultOf(*reply));
}

} // namespace

std::optional<double> parseDuration(std::string_view text) {
    static constexpr std::pair<char, double> units[] = {
        {'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}};
    double total = 0;
    std::size_t nextUnit = 0;
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    if (at == end)
        return std::nullopt;
    while (at != end) {
        double amount = 0;
        const auto [after, error] = std::from_chars(at, end, amount);
        if (error != std::errc() || after == end || !(amount >= 0))
            return std::nullopt;
        // Units largest first, each once: "1h30m", never "30m1h".
        while (nextUnit < std::size(units) && units[nextUnit].first != *after)
            ++nextUnit;
        if (nextUnit == std::size(units))
            return std::nullopt;
        total += amount * units[nextUnit++].second;
        at = after + 1;
    }
    if (total <= 0 || total > TidewickSettings::longestTimeoutSeconds)
        return std::nullopt;
    return total;
}

void registerSettingsCommands(CLI::App& app, AppContext& context) {
    auto duration = std::make_shared<std::string>();
    CLI::App* pause = app.add_subcommand(
        "pause", "Hold nothing and answer nothing until you resume (requests held stay held)");
    pause->add_option("--for", *duration, "Resume by itself after this long: 90s, 30m, 2h, 1d");
    pause->callback([&context, duration] { runPause(context, *duration); });

    app.add_subcommand("resume", "Hold your agents' requests again after a pause")
        ->callback([&context] { runResume(context); });

    auto gate = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* gateCommand = app.add_subcommand(
        "gate", "Turn holding Cursor's or Antigravity's shell commands on or off");
    gateCommand->add_option("agent", gate->first, "cursor or antigravity")->required();
    gateCommand->add_option("state", gate->second, "on or off")->required();
    gateCommand->callback([&context, gate] { runGate(context, gate->first, gate->second); });

    CLI::App* safe =
        app.add_subcommand("safe", "Edit the command prefixes that only read (safePrefixes)");
    safe->require_subcommand(1);
    for (const auto& [name, about, how] :
         {std::tuple{"add", "Count commands starting with PREFIX as read-only", Change::add},
          std::tuple{"remove", "No longer count PREFIX as read-only", Change::remove}}) {
        CLI::App* edit = safe->add_subcommand(name, about);
        // Everything after the subcommand is the prefix, options of the command included
        // ("git remote -v").
        edit->prefix_command();
        edit->footer("PREFIX: the command's first words, such as git stash list");
        edit->callback([&context, edit, how] {
            const std::string prefix = joined(edit->remaining());
            if (prefix.empty())
                throw UsageError("Give the prefix: the command's first words, such as git log.");
            report(context, changeSetting(context, "gating.safePrefixes", prefix, how));
        });
    }
    safe->add_subcommand("list", "Print the safe prefixes, one a line")->callback([&context] {
        runSafeList(context);
    });

    auto json = std::make_shared<bool>(false);
    CLI::App* settings =
        app.add_subcommand("settings", "List every setting with its value and default");
    settings->add_flag("--json", *json, "Print the settings as a JSON array");
    auto assignment = std::make_shared<std::pair<std::string, std::string>>();
    CLI::App* set = settings->add_subcommand("set", "Check and change one setting");
    set->add_option("key", assignment->first, "The setting, as `tidewick settings` lists it")
        ->required();
    set->add_option("value", assignment->second,
                    "true/false, seconds, one key, or a JSON array of texts")
        ->required();
    set->callback([&context, assignment] {
        runSettingsSet(context, assignment->first, assignment->second);
    });
    settings->callback([&context, json, set] {
        if (set->parsed())
            return;
        runSettings(context, *json);
    });

    auto forget = std::make_shared<ForgetOptions>();
    CLI::App* forgetCommand = app.add_subcommand(
        "forget", "Remove an ended or idle session from the list, or --all of them");
    forgetCommand->add_option("session", forget->session, "Session identifier or the start of it");
    forgetCommand->add_option("--agent", forget->agent, "Only sessions of this agent");
    forgetCommand->add_flag("--all", forget->all,
                            "Erase the history: every session but those holding a request");
    forgetCommand->callback([&context, forget] { runForget(context, *forget); });
}

} // namespace tidewick
