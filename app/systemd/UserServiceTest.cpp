// The user service against a stand-in for `systemctl --user`: what is written,
// which steps run in which order, and that nothing changes where no user
// systemd answers. The unit itself is checked by systemd-analyze when present.
#include "systemd/LaunchAtLogin.h"

#include "foundation/File.h"
#include "foundation/Subprocess.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gmock/gmock.h>
#include <map>

namespace tidewick {
namespace {

using namespace ::testing;

/// Answers each call from a table of scripted results (status 0 and no output for any
/// other), and records the calls.
class FakeSystemctl final : public Systemctl {
public:
    Result run(const std::vector<std::string>& arguments) override {
        std::string call;
        for (const std::string& argument : arguments)
            call += (call.empty() ? "" : " ") + argument;
        calls.push_back(call);
        auto scripted = results.find(call);
        return scripted != results.end() ? scripted->second : Result{};
    }
    std::map<std::string, Result> results;
    std::vector<std::string> calls;
};

class UserServiceTest : public ::testing::Test {
protected:
    std::string settingsText() {
        return File::exists(settings.path()) ? File::read(settings.path()) : "";
    }

    TemporaryDirectory home;
    FakeSystemctl systemctl;
    UserService service{{home.path(), "/opt/tide wick/bin/tidewick", std::nullopt}, systemctl};
    SettingsFile settings{File::join(home.path(), "settings.json")};
};

TEST_F(UserServiceTest, TheUnitRunsTheProgramHeadlessAndCarriesTidewickHome) {
    EXPECT_EQ(service.unitPath(), home.path() + "/.config/systemd/user/tidewick.service");
    const std::string plain = service.unitText();
    for (const char* line :
         {"Type=notify\n", "ExecStart=\"/opt/tide wick/bin/tidewick\" app --headless\n",
          "Restart=on-failure\n", "StandardOutput=journal\n", "WantedBy=default.target\n"})
        EXPECT_THAT(plain, HasSubstr(line));
    EXPECT_THAT(plain, Not(HasSubstr("Environment=")));

    // Quotes, backslashes, specifiers and variables reach systemd as they are.
    UserService odd({home.path(), "/opt/a\"b\\c%d$e/tidewick", "/home/ana/100% tide"}, systemctl);
    const std::string text = odd.unitText();
    EXPECT_THAT(text, HasSubstr("[Service]\nEnvironment=\"TIDEWICK_HOME=/home/ana/100%% tide\"\n"));
    EXPECT_THAT(text, HasSubstr(R"(ExecStart="/opt/a\"b\\c%%d$$e/tidewick" app --headless)"));

    // systemd's own judgement of the unit, for a program that exists.
    const std::string analyze = "/usr/bin/systemd-analyze";
    if (!File::isExecutableFile(analyze))
        GTEST_SKIP() << "systemd-analyze is not installed (Debian package systemd)";
    TemporaryDirectory runtime;
    const std::string unit = File::join(runtime.path(), "tidewick.service");
    File::writeAtomically(
        unit, UserService({home.path(), "/bin/true", home.path()}, systemctl).unitText(), 0644);
    const Subprocess::Result verified = Subprocess::run(
        {{analyze, "--user", "--man=no", "verify", unit},
         std::vector<std::string>{"XDG_RUNTIME_DIR=" + runtime.path(), "PATH=/usr/bin:/bin"}},
        Subprocess::Group::own, std::chrono::seconds(60));
    EXPECT_EQ(verified.status, 0) << verified.err;
    EXPECT_EQ(verified.err, "") << "systemd-analyze warns about nothing";
}

TEST_F(UserServiceTest, InstallingWritesEnablesAndStartsAndSetsLaunchAtLogin) {
    applyLaunchAtLogin(true, service, settings);
    EXPECT_EQ(systemctl.calls, (std::vector<std::string>{"show-environment", "daemon-reload",
                                                         "enable --now tidewick.service"}));
    EXPECT_EQ(testing::modeOf(service.unitPath()), 0644);
    EXPECT_EQ(File::read(service.unitPath()), service.unitText());
    EXPECT_TRUE(settings.current().launchAtLogin);

    systemctl.results["is-enabled tidewick.service"] = {0, "enabled\n", ""};
    systemctl.results["is-active tidewick.service"] = {0, "active\n", ""};
    UserService::Status status = service.status();
    EXPECT_TRUE(status.installed && status.enabled && status.running);

    // Another Tidewick runs: enabled for the next login, not started.
    systemctl.calls.clear();
    service.install(UserService::Start::atNextLogin);
    EXPECT_EQ(systemctl.calls.back(), "enable tidewick.service");

    systemctl.calls.clear();
    applyLaunchAtLogin(false, service, settings);
    EXPECT_EQ(systemctl.calls,
              (std::vector<std::string>{"show-environment", "disable --now tidewick.service",
                                        "daemon-reload"}));
    EXPECT_FALSE(File::exists(service.unitPath()));
    EXPECT_FALSE(settings.current().launchAtLogin);
    systemctl.calls.clear();
    EXPECT_FALSE(service.uninstall()) << "nothing left to remove";
    EXPECT_EQ(systemctl.calls, std::vector<std::string>{"show-environment"});

    systemctl.results["is-enabled tidewick.service"] = {1, "disabled\n", ""};
    systemctl.results["is-active tidewick.service"] = {3, "inactive\n", ""};
    status = service.status();
    EXPECT_FALSE(status.installed || status.enabled || status.running);
    EXPECT_EQ(status.state, "inactive");
}

TEST_F(UserServiceTest, WithoutAUserSystemdNothingChangesAndAFailedStepIsNamed) {
    systemctl.results["show-environment"] = {1, "", "Failed to connect to bus: No medium found\n"};
    for (bool enabled : {true, false}) {
        SCOPED_TRACE(enabled);
        EXPECT_THAT(
            [&] { applyLaunchAtLogin(enabled, service, settings); },
            ThrowsMessage<UserService::Unavailable>(StrEq(UserService::unavailableSentence)));
    }
    EXPECT_THROW((void)service.status(), UserService::Unavailable);
    EXPECT_FALSE(File::exists(File::parent(service.unitPath())));

    systemctl.results.erase("show-environment");
    systemctl.results["enable --now tidewick.service"] = {
        1, "", "Failed to enable unit: Unit file tidewick.service does not exist.\n"};
    EXPECT_THAT(
        [&] { applyLaunchAtLogin(true, service, settings); },
        ThrowsMessage<UserService::Failed>(
            "Tidewick couldn't run `systemctl --user enable --now tidewick.service`: Failed "
            "to enable unit: Unit file tidewick.service does not exist."));
    EXPECT_EQ(settingsText(), "") << "the setting stays as it was, after each failure";
}

} // namespace
} // namespace tidewick
