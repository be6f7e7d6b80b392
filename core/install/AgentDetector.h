// Finding out whether a coding agent is installed, and what showed it.
#pragma once

#include "events/AgentKind.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// Tells whether an agent appears to be installed. Tests use a fake.
class AgentDetector {
public:
    virtual ~AgentDetector() = default;
    /// A short description of the evidence (for example "folder /home/me/.claude"),
    /// or nothing when the agent does not appear to be installed.
    [[nodiscard]] virtual std::optional<std::string> detect(AgentKind agent) const = 0;
};

/// Linux detection: the agent's configuration folder under the home (".claude",
/// ".codex", ".cursor", ".gemini"), else its command on the search path
/// ("claude", "codex", "cursor-agent" or "cursor", "antigravity").
class LinuxAgentDetector final : public AgentDetector {
public:
    /// `searchPath` is a colon-separated list of directories, as in $PATH.
    LinuxAgentDetector(std::string home, std::string searchPath)
        : home_(std::move(home)), searchPath_(std::move(searchPath)) {}

    /// A detector for this process: `home` and the $PATH of the environment.
    [[nodiscard]] static LinuxAgentDetector forEnvironment(std::string home);

    [[nodiscard]] std::optional<std::string> detect(AgentKind agent) const override;

    /// The folder under the home that `agent` keeps its settings in.
    [[nodiscard]] static std::string folderName(AgentKind agent);
    /// The command names `agent` installs, in the order they are looked for.
    [[nodiscard]] static std::vector<std::string> commandNames(AgentKind agent);

private:
    std::string home_;
    std::string searchPath_;
};

} // namespace tidewick
