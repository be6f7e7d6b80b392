#include "foundation/ProcFile.h"

#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"

#include <fcntl.h>

namespace tidewick::ProcFile {

std::string path(std::int32_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

std::string read(std::int32_t pid, const char* file, std::size_t limit) {
    const std::string name = path(pid, file);
    const FileDescriptor descriptor(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor)
        return {};
    try {
        return IO::readAll(descriptor.get(), limit, name);
    } catch (const SystemError&) {
        return {};
    }
}

std::vector<std::string> commandLine(std::int32_t pid) {
    const std::string buffer = read(pid, "cmdline", 65536);
    std::vector<std::string> arguments;
    for (std::size_t start = 0; start < buffer.size();) {
        std::size_t end = buffer.find('\0', start);
        if (end == std::string::npos)
            end = buffer.size();
        arguments.push_back(buffer.substr(start, end - start));
        start = end + 1;
    }
    return arguments;
}

} // namespace tidewick::ProcFile
