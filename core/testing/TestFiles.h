// Files a test sets up and the permissions it checks, each done one way.
#pragma once

#include "foundation/File.h"

#include <string>
#include <sys/stat.h>

namespace tidewick::testing {

/// Writes `text` to `path` with permissions `mode`, first making any missing folder
/// (0700). Throws SystemError as File does.
inline void put(const std::string& path, const std::string& text, mode_t mode = 0600) {
    File::makeDirectories(File::parent(path), 0700);
    File::writeAtomically(path, text, mode);
}

/// The permission bits (0777) of `path`, links followed; -1 when it cannot be examined.
[[nodiscard]] inline int modeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 0777) : -1;
}

} // namespace tidewick::testing
