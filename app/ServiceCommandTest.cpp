// `tidewick service` end to end: where no user systemd runs, and against a user
// service manager of the test's own when the machine allows one (root, private
// namespaces): installed, ready through sd_notify, restarted after a crash,
// answering the commands, removed again.
#include "TidewickPrograms.h"

#include "foundation/FileDescriptor.h"

#include <functional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tidewick {
namespace {

using testing::ProgramResult;

const std::string unavailable =
    "No user systemd runs here (systemctl --user doesn't answer), so Tidewick can't run as a "
    "service. Nothing was changed.\n";

class ServiceCommand : public ::testing::Test {
protected:
    void SetUp() override {
        // A runtime folder of the test's own: never the user's real service manager.
        run.setVariable("XDG_RUNTIME_DIR", runtime.path());
    }

    std::string unitPath() const { return run.home() + "/.config/systemd/user/tidewick.service"; }
    ProgramResult systemctl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"/usr/bin/systemctl", "--user"});
        return testing::runProgram(arguments, run.environment, {}, {}, std::chrono::seconds(60));
    }

    TemporaryDirectory runtime;
    testing::TidewickPrograms run;
};

TEST_F(ServiceCommand, WithoutAUserSystemdEachCommandSaysSoAndChangesNothing) {
    // That nothing changes is UserService's to test; here each command's sentence and status.
    for (const char* command : {"install", "uninstall", "status"}) {
        SCOPED_TRACE(command);
        const ProgramResult result = run.tidewick({"service", command});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, unavailable);
        EXPECT_EQ(result.out, "");
    }
    EXPECT_EQ(run.tidewick({"service"}).status, 2) << "a subcommand is required";
}

TEST_F(ServiceCommand, RunsUnderAPrivateUserSystemdFromInstallToUninstall) {
    const std::string script =
        std::string(TIDEWICK_SOURCE_DIR) + "/app/testing/private-user-systemd.sh";
    if (::geteuid() != 0 || !File::isExecutableFile("/usr/bin/unshare") ||
        !File::isExecutableFile("/usr/bin/systemctl") ||
        !File::isExecutableFile("/usr/bin/systemd"))
        GTEST_SKIP() << "a private user systemd needs root, unshare and systemd";
    testing::BackgroundProgram manager(
        {"/usr/bin/unshare", "--mount", script, runtime.path(), run.home()}, {"PATH=/usr/bin:/bin"},
        "", File::join(runtime.path(), "manager"));
    // Whatever happens, the manager stops its services and exits before it is killed.
    struct Exit {
        std::function<void()> exit;
        ~Exit() { exit(); }
    } exit{[&] {
        (void)systemctl({"exit"});
        (void)manager.waitFor(std::chrono::seconds(20));
    }};
    // Up once it has started its default units (is-system-running would say "offline" from
    // outside its namespace, so its state is asked for instead).
    ProgramResult up;
    auto started = [&] {
        up = systemctl({"show", "-p", "SystemState", "--value"});
        return up.out == "running\n" || up.out == "degraded\n";
    };
    if (!testing::eventually(started, std::chrono::seconds(10)))
        GTEST_SKIP() << "this machine runs no private user systemd: " << up.out << up.err
                     << manager.err();
    const auto mainPid = [&] {
        return systemctl({"show", "-p", "MainPID", "--value", "tidewick"}).out;
    };

    // Installed, enabled and started; systemd counts it started once it said it is ready. The
    // unit's text and the launchAtLogin setting are UserService's to test.
    ProgramResult installed = run.succeeded({"service", "install"});
    EXPECT_EQ(installed.out, "Installed the Tidewick service (" + unitPath() +
                                 ").\nIt runs now and from every login; `tidewick app` in any "
                                 "terminal attaches to it.\n");
    EXPECT_EQ(systemctl({"show", "-p", "StatusText", "--value", "tidewick"}).out,
              "Holding your agents' requests until you answer them.\n");
    ProgramResult status = run.succeeded({"service", "status"});
    EXPECT_EQ(status.out, "Installed: yes (" + unitPath() +
                              ")\nEnabled:   yes, it starts at login\nRunning:   yes\n");
    EXPECT_EQ(run.tidewick({"pending"}).out, "Nothing is waiting for you.\n")
        << "the commands reach the service";

    // A crash: systemd starts it again.
    const std::string before = mainPid();
    ASSERT_EQ(systemctl({"kill", "-s", "SIGKILL", "tidewick"}).status, 0);
    EXPECT_TRUE(testing::eventually(
        [&] {
            return mainPid() != before && mainPid() != "0\n" &&
                   run.tidewick({"pending"}).status == 0;
        },
        std::chrono::seconds(10)))
        << systemctl({"status", "tidewick"}).out;

    ProgramResult removed = run.succeeded({"service", "uninstall"});
    EXPECT_EQ(removed.out, "Removed the Tidewick service: it no longer runs from login.\n");
    status = run.tidewick({"service", "status"});
    EXPECT_EQ(status.status, 3);
    EXPECT_EQ(status.out, "Installed: no\nEnabled:   no\nRunning:   no (inactive)\n");
    EXPECT_EQ(run.tidewick({"pending"}).status, 3) << "stopped with the service";
}

TEST_F(ServiceCommand, TheApplicationTellsTheServiceManagerWhenItIsReadyAndWhenItStops) {
    // systemd's side of Type=notify: a datagram socket named in NOTIFY_SOCKET.
    const std::string path = File::join(runtime.path(), "notify");
    FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    auto received = [&]() -> std::string {
        pollfd entry{socket.get(), POLLIN, 0};
        if (::poll(&entry, 1, 30'000) != 1)
            return "nothing";
        char message[512];
        const ssize_t size = ::recv(socket.get(), message, sizeof message, 0);
        return std::string(message, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    };
    run.setVariable("NOTIFY_SOCKET", path);
    ASSERT_TRUE(run.startApp());
    EXPECT_EQ(received(), "READY=1\nSTATUS=Holding your agents' requests until you answer them.");
    EXPECT_EQ(run.stopApp(), 0);
    EXPECT_EQ(received(), "STOPPING=1");
}

} // namespace
} // namespace tidewick
