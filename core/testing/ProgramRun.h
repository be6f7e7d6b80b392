// Runs a program for the end-to-end tests: given arguments, environment,
// standard input and working directory, bounded in time, output captured.
#pragma once

#include "foundation/Subprocess.h"
#include "foundation/SystemError.h"

#include <chrono>
#include <string>
#include <vector>

namespace tidewick::testing {

/// The exit status (or 128 + the signal that ended the program), whether it
/// ran out of time, and its output.
using ProgramResult = Subprocess::Result;

/// Runs `argv` with exactly `environment` ("NAME=value" entries) in `directory`
/// (empty: the current one), feeding `input` on standard input, in a process
/// group of its own. A program still running after `timeout` is killed with its
/// group. One that cannot be started ends with status 127, as in a shell, and
/// the reason in `err`.
inline ProgramResult runProgram(const std::vector<std::string>& argv,
                                const std::vector<std::string>& environment,
                                const std::string& input = {}, const std::string& directory = {},
                                std::chrono::seconds timeout = std::chrono::seconds(60)) {
    try {
        return Subprocess::run({argv, environment, directory, input}, Subprocess::Group::own,
                               timeout);
    } catch (const SystemError& error) {
        ProgramResult result;
        result.status = 127;
        result.err = error.what();
        return result;
    }
}

} // namespace tidewick::testing
