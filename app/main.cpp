// `tidewick`: the command-line face of Tidewick. Everything lives in the
// command groups; this only wires the process to them.
#include "AppContext.h"
#include "CommandLine.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    using namespace tidewick;
    try {
        AppContext context = AppContext::forCurrentProcess(Terminal::standard());
        return runCommandLine(argc, argv, context);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tidewick: %s\n", error.what());
        return 1;
    }
}
