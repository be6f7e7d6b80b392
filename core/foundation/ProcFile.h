// Reading a running process's small files under /proc: the one place that knows
// their paths and that a process may end between two reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tidewick::ProcFile {

/// "/proc/<pid>/<file>".
[[nodiscard]] std::string path(std::int32_t pid, const char* file);

/// At most `limit` bytes of /proc/<pid>/<file>; empty when it cannot be read (no such
/// process, or it ended meanwhile). Never throws.
[[nodiscard]] std::string read(std::int32_t pid, const char* file, std::size_t limit);

/// The arguments `pid` was started with (at most 64 KiB of them); empty when they cannot
/// be read.
[[nodiscard]] std::vector<std::string> commandLine(std::int32_t pid);

} // namespace tidewick::ProcFile
