#include "AppContext.h"

#include "foundation/File.h"
#include "install/AgentDetector.h"
#include "install/HookCatalog.h"

#include <climits>
#include <unistd.h>

namespace tidewick {

std::optional<std::string> ownExecutableDirectory() {
    char path[PATH_MAX];
    ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return std::nullopt;
    return File::parent(std::string(path, static_cast<size_t>(length)));
}

AppContext AppContext::forCurrentProcess(Terminal terminal) {
    std::optional<std::string> helper;
    if (auto directory = ownExecutableDirectory()) {
        std::string candidate = File::join(*directory, HookCatalog::marker);
        if (File::isExecutableFile(candidate))
            helper = candidate;
    }
    return AppContext(TidewickPaths::forCurrentUser().home(), helper, terminal);
}

ConnectionManager& AppContext::connections() {
    if (!connections_) {
        auto detector =
            std::make_shared<LinuxAgentDetector>(LinuxAgentDetector::forEnvironment(home_));
        connections_ =
            std::make_unique<ConnectionManager>(paths_, home_, std::move(detector), bundledHelper_);
    }
    return *connections_;
}

} // namespace tidewick
