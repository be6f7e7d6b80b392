#include "install/AgentDetector.h"

#include "foundation/File.h"

#include <cstdlib>
#include <sys/stat.h>

namespace tidewick {

namespace {

bool isDirectory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

LinuxAgentDetector LinuxAgentDetector::forEnvironment(std::string home) {
    const char* path = std::getenv("PATH");
    return LinuxAgentDetector(std::move(home), path ? path : "");
}

std::string LinuxAgentDetector::folderName(AgentKind agent) {
    switch (agent) {
    case AgentKind::claude:
        return ".claude";
    case AgentKind::codex:
        return ".codex";
    case AgentKind::cursor:
        return ".cursor";
    case AgentKind::antigravity:
        return ".gemini";
    }
    return ".claude";
}

std::vector<std::string> LinuxAgentDetector::commandNames(AgentKind agent) {
    switch (agent) {
    case AgentKind::claude:
        return {"claude"};
    case AgentKind::codex:
        return {"codex"};
    case AgentKind::cursor:
        return {"cursor-agent", "cursor"};
    case AgentKind::antigravity:
        return {"antigravity"};
    }
    return {};
}

std::optional<std::string> LinuxAgentDetector::detect(AgentKind agent) const {
    std::string folder = File::join(home_, folderName(agent));
    if (isDirectory(folder))
        return "folder " + folder;
    for (const std::string& name : commandNames(agent)) {
        size_t start = 0;
        while (start <= searchPath_.size()) {
            size_t colon = searchPath_.find(':', start);
            std::string directory = searchPath_.substr(
                start, colon == std::string::npos ? std::string::npos : colon - start);
            start = colon == std::string::npos ? searchPath_.size() + 1 : colon + 1;
            // An empty entry means the current directory, which says nothing about the user's
            // tools.
            if (directory.empty())
                continue;
            std::string candidate = File::join(directory, name);
            if (File::isExecutableFile(candidate))
                return "command " + candidate;
        }
    }
    return std::nullopt;
}

} // namespace tidewick
