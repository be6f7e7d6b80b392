#include "AppContext.h"

#include "foundation/File.h"
#include "install/AgentDetector.h"
#include "install/HookCatalog.h"

namespace tidewick {

std::optional<std::string> ownExecutableDirectory() {
    // Linux names the executable itself here, every link already followed.
    const std::optional<std::string> executable = File::linkTarget("/proc/self/exe");
    if (!executable || executable->empty())
        return std::nullopt;
    return File::parent(*executable);
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
