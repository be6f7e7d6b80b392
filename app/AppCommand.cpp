#include "AppCommand.h"

#include "CommandFailure.h"
#include "control/AttachedApplication.h"
#include "control/ControlServer.h"
#include "control/SessionMatcher.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "foundation/Allocator.h"
#include "service/TidewickService.h"
#include "systemd/Readiness.h"
#include "ui/NotificationCenter.h"
#include "ui/TerminalUI.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <unistd.h>

namespace tidewick {

namespace {

// The signals that stop the application, blocked in every thread so that only
// sigwait() sees them.
sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// One line per alert, so someone watching the headless application knows what
// to answer and how.
std::string describeAlert(const Alert& alert, const std::vector<Session>& known) {
    if (alert.kind == Alert::Kind::usageLimit)
        return alert.title + ". " + alert.detail.value_or("");
    const auto shortIds = shortIdsOf(known, {alert.session.sessionId});
    const std::string who = describeSession(alert.session, shortIds);
    const std::string id = shortIds.at(alert.session.sessionId);
    std::string detail;
    if (alert.detail) {
        // One line per alert, whatever the command or question looks like.
        std::string flat = Text::replacingAll(*alert.detail, "\n", " ");
        detail = " (" + Text::cut(flat, 120, "…") + ")";
    }
    switch (alert.kind) {
    case Alert::Kind::needsPermission:
        if (alert.question)
            return who + " is asking you a question" + detail + ". Answer with `tidewick answer " +
                   id + " TEXT…` (one per question) or `tidewick deny " + id + "`.";
        return who + " needs permission: " + alert.title + detail +
               ". Answer with `tidewick allow " + id + "`" +
               (alert.canAlwaysAllow ? ", `tidewick allow " + id + " --always`" : "") +
               " or `tidewick deny " + id + "`.";
    case Alert::Kind::waitingReply:
        return who + " finished its turn and waits for you. Answer with `tidewick reply " + id +
               " TEXT` or `tidewick let-stop " + id + "`.";
    case Alert::Kind::finished:
        return who + " finished: " + alert.title + ".";
    case Alert::Kind::error:
        return who + " ran into an error: " + alert.title + detail + ".";
    case Alert::Kind::usageLimit:
        break;
    }
    return who + ": " + alert.title;
}

} // namespace

namespace {

// Opens the interface on the application already running for these paths, until the user
// closes it; false when none answers.
bool runAttached(AppContext& context, const TerminalUIOptions& ui) {
    AttachedApplication application(context.paths());
    try {
        if (!application.attach())
            return false;
    } catch (const ControlClient::VersionMismatch& mismatch) {
        throw CommandFailure(1, mismatch.what());
    }
    try {
        (void)runTerminalUI(application, ui);
    } catch (const std::runtime_error& error) {
        throw CommandFailure(1, error.what());
    }
    return true;
}

} // namespace

void runApplication(AppContext& context, Interface interface, ApplicationOptions options) {
    Allocator::returnLargeBlocksToTheSystem();
    const sigset_t signals = stopSignals();
    // Before any thread starts (the attached view's, the service's), as they inherit the mask.
    if (int error = ::pthread_sigmask(SIG_BLOCK, &signals, nullptr); error != 0)
        throw CommandFailure(1, SystemError("pthread_sigmask", "SIGINT, SIGTERM", error).what());
    TerminalUIOptions ui;
    ui.colours = options.colours;
    // An interface on a terminal joins the application that runs already, if one does.
    if (interface == Interface::terminal && runAttached(context, ui))
        return;

    Terminal& terminal = context.terminal();
    auto outputLock = std::make_shared<std::mutex>();
    auto say = [&terminal, outputLock](const std::string& line) {
        std::lock_guard guard(*outputLock);
        terminal.out() << line << std::endl;
    };
    // The application plays the alert sounds, once, however many interfaces are open.
    TidewickService::Options serviceOptions;
    const char* path = std::getenv("PATH");
    serviceOptions.soundSearchPath = path ? path : "";
    TidewickService service(context.paths(), serviceOptions);
    try {
        service.start();
    } catch (const TidewickService::AlreadyRunning& error) {
        // Another one started meanwhile: join it rather than refuse.
        if (interface == Interface::terminal && runAttached(context, ui))
            return;
        throw CommandFailure(1, error.what());
    } catch (const SystemError& error) {
        throw CommandFailure(1, std::string("Tidewick couldn't start: ") + error.what());
    }

    ControlServer control(context.paths().controlSocketPath(), service.secret(), service);
    try {
        control.start();
    } catch (const SystemError& error) {
        service.stop();
        throw CommandFailure(1, std::string("Tidewick couldn't start: ") + error.what());
    }
    // Read on the notifications' thread too.
    std::atomic<bool> headless = interface == Interface::headless;
    // Notifications belong to the application, not to any of its interfaces: one each.
    NotificationCenter notifications(service, std::nullopt,
                                     [&say, &headless](const std::string& sentence) {
                                         if (headless)
                                             say(sentence);
                                     });
    // One line per alert, so someone watching the headless application knows what to
    // answer and how; an interface shows alerts its own way.
    std::optional<ApplicationView::WatchId> printing;
    auto printAlerts = [&] {
        printing = service
                       .watch({.alerted =
                                   [&say, &service](const Alert& alert) {
                                       say(describeAlert(alert, service.sessions()));
                                   }})
                       .id;
    };
    Readiness::ready("Holding your agents' requests until you answer them.");
    if (!headless) {
        try {
            (void)runTerminalUI(service, ui);
        } catch (const std::runtime_error& error) {
            // The terminal cannot be used after all: keep serving the agents without it.
            terminal.err() << error.what() << " Running headless instead.\n";
            headless = true;
        }
    }
    if (headless) {
        printAlerts();
        say("Tidewick is running. Hook socket: " + context.paths().socketPath() +
            "; control socket: " + control.socketPath() + ". Stop it with Ctrl-C.");
        int received = 0;
        // sigwait fails only for an invalid set, which would stop at once rather than hang.
        (void)::sigwait(&signals, &received);
    }

    Readiness::stopping();
    if (printing)
        service.unwatch(*printing);
    // Decisions first: nothing can arrive through the control socket while the
    // service answers the held requests with their time-out.
    control.stop();
    service.stop();
    say("Tidewick stopped.");
}

void registerAppCommand(CLI::App& app, AppContext& context) {
    auto headless = std::make_shared<bool>(false);
    auto noColour = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("app", "Run Tidewick until you stop it (Ctrl-C)");
    command->add_flag("--headless", *headless,
                      "Run without the terminal interface; answer with the control commands");
    command->add_flag("--no-color", *noColour,
                      "Show the interface without colours (as the NO_COLOR variable does)");
    command->callback([&context, headless, noColour] {
        // The interface needs a terminal on both ends; anywhere else (a service
        // manager, a pipe) the application runs headless.
        const bool onTerminal = ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
        ApplicationOptions options;
        if (*noColour)
            options.colours = Palette::ColourRequest::never;
        runApplication(
            context, *headless || !onTerminal ? Interface::headless : Interface::terminal, options);
    });
}

} // namespace tidewick
