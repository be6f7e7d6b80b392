#include "ConnectCommands.h"

#include "ChangeView.h"
#include "UsageError.h"
#include "install/ConnectionError.h"
#include "service/SettingsText.h"
#include "service/TidewickSettings.h"

#include <memory>

namespace tidewick {

namespace {

struct ConnectOptions {
    std::string agent;
    bool gateCommands = false;
    bool yes = false;
};

void reportBackup(Terminal& terminal, const ConfigChange& change) {
    if (change.backup)
        terminal.out() << "The previous file was backed up to " << *change.backup << "\n";
    else if (!change.fileExisted)
        terminal.out() << "There was no file before, so no backup was needed.\n";
}

// Shows the preview of connecting or disconnecting and, unless --yes, asks; whether to
// apply it.
bool approved(Terminal& terminal, std::string_view action, AgentKind agent,
              const ConfigChange& preview, bool yes) {
    terminal.out() << action << " " << displayName(agent) << " changes:\n"
                   << describeChange(preview, terminal);
    if (yes || terminal.confirm("Apply these changes? [y/N]"))
        return true;
    terminal.out() << "Nothing was changed.\n";
    return false;
}

void reportDone(Terminal& terminal, std::string_view done, AgentKind agent) {
    terminal.out() << terminal.paint(Colour::green, std::string(done) + " " +
                                                        std::string(displayName(agent)) + ".")
                   << "\n";
}

void runConnect(AppContext& context, const ConnectOptions& options) {
    const AgentKind agent = agentFromArgument(options.agent);
    const GateCommands gate = options.gateCommands ? GateCommands::on : GateCommands::off;
    Terminal& terminal = context.terminal();
    ConnectionManager& connections = context.connections();

    ConfigChange preview = connections.previewConnect(agent, gate);
    if (preview.isNoChange()) {
        // Still installs a newer hook command and records the connection.
        (void)connections.connect(agent, gate);
        terminal.out() << displayName(agent) << " already has Tidewick's hooks in " << preview.path
                       << ". Nothing to change.\n";
        return;
    }
    if (!approved(terminal, "Connecting", agent, preview, options.yes))
        return;
    ConfigChange change = connections.connect(agent, gate);
    reportDone(terminal, "Connected", agent);
    reportBackup(terminal, change);
    for (const std::string& note : connections.status(agent, gate).notes)
        terminal.out() << "Note: " << note << "\n";
}

void runDisconnect(AppContext& context, const ConnectOptions& options) {
    const AgentKind agent = agentFromArgument(options.agent);
    Terminal& terminal = context.terminal();
    ConnectionManager& connections = context.connections();

    ConfigChange preview = connections.previewDisconnect(agent);
    if (preview.isNoChange()) {
        (void)connections.disconnect(agent);
        terminal.out() << displayName(agent) << " has no Tidewick hooks in " << preview.path
                       << ". Nothing to change.\n";
        return;
    }
    if (!approved(terminal, "Disconnecting", agent, preview, options.yes))
        return;
    ConfigChange change = connections.disconnect(agent);
    reportDone(terminal, "Disconnected", agent);
    if (change.deletesFile)
        terminal.out() << "Deleted " << change.path << ", which Tidewick had created.\n";
    reportBackup(terminal, change);
}

} // namespace

AgentKind agentFromArgument(const std::string& name) {
    if (auto agent = fromRaw<AgentKind>(name))
        return *agent;
    std::string valid;
    for (AgentKind agent : allAgentKinds)
        valid += (valid.empty() ? "" : ", ") + std::string(cliName(agent));
    throw UsageError("Unknown agent \"" + name + "\". Choose one of: " + valid + ".");
}

void registerConnectCommands(CLI::App& app, AppContext& context) {
    auto json = std::make_shared<bool>(false);
    CLI::App* status = app.add_subcommand("status", "Show whether each agent is connected");
    status->add_flag("--json", *json, "Print the statuses as a JSON array");
    status->callback([&context, json] {
        auto statuses = context.connections().allStatuses();
        if (*json) {
            context.terminal().out() << statusesAsJSON(statuses);
            return;
        }
        for (const ConnectionStatus& each : statuses)
            context.terminal().out() << describeStatus(each, context.terminal()) << "\n";
        // A pause whose end has passed is over, whether or not Tidewick ran to see it.
        const GatingPolicy gating = SettingsFile(context.paths().settingsFile()).current().gating;
        if (gating.paused && (!gating.pausedUntil || *gating.pausedUntil > tidewick::now()))
            context.terminal().out()
                << context.terminal().paint(Colour::yellow,
                                            SettingsText::pausedState(gating.pausedUntil))
                << ": nothing is held or answered; `tidewick resume` ends it.\n";
    });

    auto connectOptions = std::make_shared<ConnectOptions>();
    CLI::App* connect =
        app.add_subcommand("connect", "Add Tidewick's hooks to an agent's configuration");
    connect->add_option("agent", connectOptions->agent, "claude, codex, cursor or antigravity")
        ->required();
    connect->add_flag("--gate-commands", connectOptions->gateCommands,
                      "Cursor: hold shell and MCP calls until you answer");
    connect->add_flag("-y,--yes", connectOptions->yes, "Apply without asking");
    connect->callback([&context, connectOptions] { runConnect(context, *connectOptions); });

    auto disconnectOptions = std::make_shared<ConnectOptions>();
    CLI::App* disconnect =
        app.add_subcommand("disconnect", "Remove Tidewick's hooks from an agent's configuration");
    disconnect
        ->add_option("agent", disconnectOptions->agent, "claude, codex, cursor or antigravity")
        ->required();
    disconnect->add_flag("-y,--yes", disconnectOptions->yes, "Apply without asking");
    disconnect->callback(
        [&context, disconnectOptions] { runDisconnect(context, *disconnectOptions); });
}

} // namespace tidewick
