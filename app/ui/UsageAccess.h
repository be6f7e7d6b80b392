// What the interface needs to show the agents' usage limits, behind an
// interface so that the screens are tested without files.
#pragma once

#include "foundation/Clock.h"
#include "sessions/Session.h"
#include "usage/UsageReport.h"

#include <vector>

namespace tidewick {

class UsageAccess {
public:
    virtual ~UsageAccess() = default;

    /// Claude Code's and Codex's windows now (Codex's records of `sessions` among those
    /// looked at). Never throws.
    [[nodiscard]] virtual std::vector<AgentUsage> agents(const std::vector<Session>& sessions) = 0;
    /// The windows and every session's token use, described at `now`. Never throws.
    [[nodiscard]] virtual UsageReport report(const std::vector<Session>& sessions, Date now) = 0;
};

/// Reads the files under `sources`.
class FileUsageAccess final : public UsageAccess {
public:
    explicit FileUsageAccess(UsageSources sources) : sources_(std::move(sources)) {}

    std::vector<AgentUsage> agents(const std::vector<Session>& sessions) override {
        return Usage::readAgents(sources_, sessions);
    }
    UsageReport report(const std::vector<Session>& sessions, Date now) override {
        return Usage::readReport(sources_, sessions, now);
    }

private:
    UsageSources sources_;
};

} // namespace tidewick
