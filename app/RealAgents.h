// What the end-to-end tests with the real coding agents share: installing an
// agent from the npm registry once per build folder, finding python3 for the
// model stand-ins, starting a stand-in, and keeping the agents off the network.
// Test-only: it needs the TIDEWICK_SOURCE_DIR and TIDEWICK_BINARY_DIR that
// appTests is compiled with.
#pragma once

#include "TidewickPrograms.h"

#include <cstdlib>
#include <unistd.h>

namespace tidewick::testing {

/// The folder of the stand-ins and the scripts that drive the agents.
inline const std::string agentScripts = std::string(TIDEWICK_SOURCE_DIR) + "/app/testing";

/// Whether `unshare -n` can give a program a network of its own (loopback only),
/// and `nsenter` can later join it.
[[nodiscard]] inline bool canIsolateNetwork() {
    return File::isExecutableFile("/usr/bin/nsenter") &&
           runProgram({"/usr/bin/unshare", "-n", "/bin/true"}, {"PATH=/usr/bin:/bin"}).status == 0;
}

/// A test with a real agent and Tidewick's programs in one temporary home.
class RealAgentTest : public ::testing::Test {
protected:
    /// Skips the test unless tidewick-hook and python3 are there and scripts/`script`
    /// installs the agent, into the folder named by the variable `sharedFolder` when it
    /// is set (build folders can share one copy), else into `folder` under the build
    /// folder; `agent` then is its command. The script reuses what is there and exits
    /// 77 when the registry cannot be reached; a first install may take minutes.
    void install(const std::string& script, const char* sharedFolder, const std::string& folder) {
        if (!TidewickPrograms::built())
            GTEST_SKIP() << "tidewick-hook was not built beside tidewick";
        if (python.empty())
            GTEST_SKIP() << "python3 is needed for the model stand-in";
        const char* shared = std::getenv(sharedFolder);
        // npm needs the caller's proxy and registry settings; the script keeps the agent
        // itself away from the real home.
        std::vector<std::string> environment;
        for (char** entry = environ; *entry; ++entry)
            environment.emplace_back(*entry);
        ProgramResult result = runProgram(
            {"/bin/bash", std::string(TIDEWICK_SOURCE_DIR) + "/scripts/" + script,
             shared && *shared ? shared : std::string(TIDEWICK_BINARY_DIR) + "/" + folder},
            environment, {}, {}, std::chrono::seconds(660));
        if (result.status == 77)
            GTEST_SKIP() << script << " could not install from npm: " << result.err;
        ASSERT_EQ(result.status, 0) << result.err;
        std::istringstream lines(result.out);
        for (std::string line; std::getline(lines, line);)
            if (!line.empty())
                agent = line;
    }

    /// Writes `scenario` to the file scenario.json of the home and starts the stand-in
    /// `argv` (which reads it); the port it prints on its first line, empty (and a
    /// failure) when it printed none within 20 s.
    std::string startStandIn(const std::string& scenario, const std::vector<std::string>& argv) {
        File::writeAtomically(scenarioFile(), scenario, 0600);
        standIn = std::make_unique<BackgroundProgram>(
            argv, std::vector<std::string>{"PATH=/usr/sbin:/usr/bin:/bin"}, "",
            File::join(run.home(), "stand-in"), run.home());
        std::string port;
        (void)eventually(
            [&] {
                const std::string out = standIn->out();
                if (out.find('\n') != std::string::npos)
                    port = out.substr(0, out.find('\n'));
                return !port.empty();
            },
            std::chrono::seconds(20));
        EXPECT_FALSE(port.empty()) << "the stand-in did not start: " << standIn->err();
        return port;
    }
    [[nodiscard]] std::string scenarioFile() const {
        return File::join(run.home(), "scenario.json");
    }

    TidewickPrograms run;
    const std::string python = [] {
        for (const char* candidate : {"/usr/bin/python3", "/usr/local/bin/python3"})
            if (File::isExecutableFile(candidate))
                return std::string(candidate);
        return std::string();
    }();
    std::string agent;
    std::unique_ptr<BackgroundProgram> standIn;
};

} // namespace tidewick::testing
