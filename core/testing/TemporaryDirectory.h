// A scratch directory for tests, removed with everything in it at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tidewick {

/// Creates a fresh directory under /tmp (mkdtemp) and deletes it on destruction.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = "/tmp/tidewick-test-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// The directory's absolute path.
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

} // namespace tidewick
