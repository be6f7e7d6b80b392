#include "ServiceCommands.h"

#include "CommandFailure.h"
#include "control/ControlClient.h"
#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "systemd/LaunchAtLogin.h"

#include <cstdlib>

namespace tidewick {

namespace {

UserService::Unit unitFor(const AppContext& context) {
    UserService::Unit unit;
    unit.home = context.home();
    // The program running now: the one the service runs too.
    unit.executable = File::linkTarget("/proc/self/exe").value_or("tidewick");
    if (std::getenv("TIDEWICK_HOME"))
        unit.tidewickHome = context.home();
    return unit;
}

// Whether a Tidewick answers on the control socket.
bool applicationAnswers(const AppContext& context) {
    try {
        (void)ControlClient::send(ControlRequest{}, context.paths());
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// Runs `body`, turning what the service steps throw into the command's failure.
template <typename Body> void serviceStep(Body&& body) {
    try {
        body();
    } catch (const UserService::Unavailable& error) {
        throw CommandFailure(1, error.what());
    } catch (const UserService::Failed& error) {
        throw CommandFailure(1, error.what());
    } catch (const SystemError& error) {
        throw CommandFailure(1, std::string("Tidewick couldn't change the service: ") +
                                    error.what() + ".");
    }
}

} // namespace

void setLaunchAtLogin(AppContext& context, bool enabled) {
    SystemSystemctl systemctl;
    UserService service(unitFor(context), systemctl);
    // Saving the setting would replace a settings file that does not read: refuse first.
    std::string problem;
    SettingsFile settings(context.paths().settingsFile(),
                          [&problem](const std::string& sentence) { problem = sentence; });
    (void)settings.current();
    if (!problem.empty())
        throw CommandFailure(1, problem + " Nothing was changed.");
    std::ostream& out = context.terminal().out();
    serviceStep([&] {
        service.requireManager();
        if (!enabled) {
            const bool installed = File::exists(service.unitPath());
            applyLaunchAtLogin(false, service, settings);
            out << (installed ? "Removed the Tidewick service: it no longer runs from login.\n"
                              : "The Tidewick service isn't installed.\n");
            return;
        }
        // A Tidewick started by hand holds the sockets: the service would refuse to start.
        const bool other = !service.status().running && applicationAnswers(context);
        applyLaunchAtLogin(true, service, settings,
                           other ? UserService::Start::atNextLogin : UserService::Start::now);
        out << "Installed the Tidewick service (" << service.unitPath() << ").\n";
        out << (other ? "Tidewick already runs outside it, so the service starts from your next "
                        "login.\n"
                      : "It runs now and from every login; `tidewick app` in any terminal "
                        "attaches to it.\n");
    });
}

namespace {

void status(AppContext& context) {
    SystemSystemctl systemctl;
    UserService service(unitFor(context), systemctl);
    UserService::Status status;
    serviceStep([&] { status = service.status(); });
    std::ostream& out = context.terminal().out();
    out << "Installed: " << (status.installed ? "yes (" + service.unitPath() + ")" : "no")
        << "\n";
    out << "Enabled:   " << (status.enabled ? "yes, it starts at login" : "no") << "\n";
    out << "Running:   " << (status.running ? "yes" : "no (" + status.state + ")") << "\n";
    if (!status.running)
        throw CommandFailure(notRunningExitStatus, "");
}

} // namespace

void registerServiceCommands(CLI::App& app, AppContext& context) {
    CLI::App* service = app.add_subcommand(
        "service", "Run Tidewick as a systemd user service, in the background from login");
    service->require_subcommand(1);
    service
        ->add_subcommand("install",
                         "Install, enable and start the user service (sets launchAtLogin)")
        ->callback([&context] { setLaunchAtLogin(context, true); });
    service
        ->add_subcommand("uninstall",
                         "Stop, disable and remove the user service (clears launchAtLogin)")
        ->callback([&context] { setLaunchAtLogin(context, false); });
    service->add_subcommand("status", "Say whether the service is installed, enabled and running")
        ->callback([&context] { status(context); });
}

} // namespace tidewick
