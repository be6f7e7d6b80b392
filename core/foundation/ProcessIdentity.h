// Tells one run of a program from another that later gets the same process id:
// a process is named by its id and its start time, so a name written down by a
// process can later be checked against the processes running now.
#pragma once

#include <cstdint>
#include <optional>
#include <sys/types.h>

namespace tidewick {

/// A process as it can be told apart from any other on this machine since it started:
/// its id and the moment it started (in a unit of the system's choosing).
struct ProcessIdentity {
    pid_t pid = 0;
    std::uint64_t startTime = 0;

    /// This process.
    [[nodiscard]] static ProcessIdentity current();
    /// The process running as `pid` now; nothing when none runs (or it cannot be read).
    [[nodiscard]] static std::optional<ProcessIdentity> of(pid_t pid);
    /// Whether this very process still runs: a process with its id that started when it did.
    [[nodiscard]] bool isRunning() const;

    friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

} // namespace tidewick
