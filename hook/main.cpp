// tidewick-hook: run by a coding agent at each of its events. Reads the
// event on standard input, forwards it to Tidewick and prints the answer.
// Nothing is ever written to standard error, and every failure ends in the
// agent's fail-safe answer.
#include "HookCommand.h"
#include "foundation/IO.h"

#include <unistd.h>

extern char** environ;

namespace {

[[noreturn]] void finish(const tidewick::HookCommand::Exit& exit) {
    try {
        tidewick::IO::writeAll(STDOUT_FILENO, exit.text, "standard output");
    } catch (...) {
        // An agent that stopped listening has nobody left to tell.
    }
    // Nothing is buffered and nothing needs tearing down: leave at once.
    ::_exit(exit.status);
}

} // namespace

int main(int argc, char** argv) {
    try {
        tidewick::Environment environment(environ);
        tidewick::DescriptorInput input(STDIN_FILENO);
        tidewick::HookCommand::Context context{
            .arguments = std::vector<std::string>(argv, argv + argc),
            .environment = environment,
            .input = input,
            .pid = static_cast<std::int32_t>(::getpid()),
        };
        finish(tidewick::HookCommand::run(context));
    } catch (...) {
        ::_exit(0);
    }
}
