// Small file-system helpers shared by every module that keeps a file:
// whole-file reads, atomic replacement and owner-only directories.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace tidewick {

/// Writes a file by writing a temporary sibling and renaming it over the
/// target on commit(), so readers see the old file or the new one, never half
/// of either. A temporary that was not committed is removed by the destructor.
class AtomicFile {
public:
    /// Creates the temporary next to `path` with permissions `mode`.
    /// Throws SystemError naming the call that failed.
    AtomicFile(std::string path, mode_t mode);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// Appends `data` to the temporary. Throws SystemError.
    void write(std::string_view data);
    /// Flushes the temporary and renames it over the target. Throws SystemError.
    void commit();

private:
    std::string path_;
    std::string tempPath_;
    int fd_ = -1;
};

namespace File {

/// The whole content of `path`. Throws SystemError ("open(/path): No such file or directory").
[[nodiscard]] std::string read(const std::string& path);

/// Replaces `path` atomically with `data`, the new file having permissions `mode`.
/// Throws SystemError; the old file is left as it was on failure.
void writeAtomically(const std::string& path, std::string_view data, mode_t mode);

/// Whether something exists at `path` (a dangling symbolic link does not count).
[[nodiscard]] bool exists(const std::string& path);

/// Whether `path` is an executable regular file.
[[nodiscard]] bool isExecutableFile(const std::string& path);

/// Creates `path` and every missing parent with permissions `mode`.
/// Existing directories are left as they are. Throws SystemError.
void makeDirectories(const std::string& path, mode_t mode);

/// The directory part of `path` ("/a/b" for "/a/b/c"); "." when there is none.
[[nodiscard]] std::string parent(const std::string& path);

/// The last component of `path` ("c" for "/a/b/c").
[[nodiscard]] std::string lastComponent(const std::string& path);

/// `directory` joined with `name` by one slash.
[[nodiscard]] std::string join(const std::string& directory, std::string_view name);

} // namespace File
} // namespace tidewick
