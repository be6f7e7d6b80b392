// tidewick-hook: run by a coding agent at each of its events. Reads the
// event on standard input, forwards it to Tidewick and prints the answer.
// Nothing is ever written to standard error, and every failure ends in the
// agent's fail-safe answer.
#include "HookCommand.h"

#include <cerrno>
#include <unistd.h>

extern char** environ;

namespace {

[[noreturn]] void finish(const tidewick::HookCommand::Exit& exit) {
    const char* data = exit.text.data();
    size_t left = exit.text.size();
    while (left > 0) {
        ssize_t written = ::write(STDOUT_FILENO, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;
        data += written;
        left -= static_cast<size_t>(written);
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
