// Reading and signalling other processes by id, behind an interface so that
// tests can stand in for the system's process table.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class ProcessAccess {
public:
    virtual ~ProcessAccess() = default;

    /// When the process `pid` started, in the system's clock ticks since boot: what tells
    /// one process from a later one given the same pid. Nothing when there is no such
    /// process or it has ended and only waits to be reaped.
    [[nodiscard]] virtual std::optional<std::int64_t> startTime(std::int32_t pid) const = 0;
    /// The program file the process runs; nothing when it cannot be read.
    [[nodiscard]] virtual std::optional<std::string> executable(std::int32_t pid) const = 0;
    /// The arguments it was started with, the program first; empty when unreadable.
    [[nodiscard]] virtual std::vector<std::string> commandLine(std::int32_t pid) const = 0;
    /// Sends signal `number` to it; false when it is gone or may not be signalled.
    virtual bool signal(std::int32_t pid, int number) const = 0;

    /// Whether `pid` still runs and is the process that started at `startTime` (when
    /// that was recorded).
    [[nodiscard]] bool isSameProcess(std::int32_t pid, std::optional<std::int64_t> startTime) const;

    /// The live system (/proc).
    [[nodiscard]] static const ProcessAccess& system();
};

} // namespace tidewick
