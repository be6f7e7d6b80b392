// What the end-to-end tests with the real coding agents share: installing an
// agent from the npm registry once per build folder, finding python3 for the
// model stand-ins, and keeping the agents off the network.
// Test-only: it needs the TIDEWICK_SOURCE_DIR and TIDEWICK_BINARY_DIR that
// appTests is compiled with.
#pragma once

#include "testing/ProgramRun.h"

#include "foundation/File.h"

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace tidewick::testing::RealAgents {

/// What an install script did: `status` 0 with the agent's command, 77 when the
/// registry could not be reached (the test skips), anything else with the reason.
struct Install {
    int status = 0;
    std::string command;
    std::string error;
};

/// Runs scripts/`script` into the folder named by the variable `sharedFolder` when it
/// is set (build folders can share one copy), else into `folder` under the build
/// folder. The script reuses what is there; a first install may take minutes.
[[nodiscard]] inline Install install(const std::string& script, const char* sharedFolder,
                                     const std::string& folder) {
    const char* shared = std::getenv(sharedFolder);
    // npm needs the caller's proxy and registry settings; the script keeps the agent
    // itself away from the real home.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry)
        environment.emplace_back(*entry);
    ProgramResult run =
        runProgram({"/bin/bash", std::string(TIDEWICK_SOURCE_DIR) + "/scripts/" + script,
                    shared && *shared ? shared : std::string(TIDEWICK_BINARY_DIR) + "/" + folder},
                   environment, {}, {}, std::chrono::seconds(660));
    Install result{run.status, {}, run.err};
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty())
            result.command = line;
    return result;
}

/// The python3 the stand-ins run with; empty when there is none.
[[nodiscard]] inline std::string python() {
    for (const char* candidate : {"/usr/bin/python3", "/usr/local/bin/python3"})
        if (File::isExecutableFile(candidate))
            return candidate;
    return {};
}

/// Whether `unshare -n` can give a program a network of its own (loopback only),
/// and `nsenter` can later join it.
[[nodiscard]] inline bool canIsolateNetwork() {
    return File::isExecutableFile("/usr/bin/nsenter") &&
           runProgram({"/usr/bin/unshare", "-n", "/bin/true"}, {"PATH=/usr/bin:/bin"}).status == 0;
}

} // namespace tidewick::testing::RealAgents
