// Small file-system helpers shared by every module that keeps a file:
// whole-file reads, atomic replacement, owner-only directories, folder
// listings and symbolic links.
#pragma once

#include "foundation/FileDescriptor.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

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
    FileDescriptor file_;
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

/// The names of the entries of `directory`, "." and ".." left out, in no particular
/// order. Throws SystemError ("opendir(/path): No such file or directory").
[[nodiscard]] std::vector<std::string> listFolder(const std::string& directory);

/// Removes the temporaries that atomic writes left in `directory` when their writer died
/// before finishing (named "<file>.tmp-<writer>-<random>"); those of writers still running
/// stay. Returns the paths removed. Never throws: a folder that cannot be listed, or a file
/// that cannot be removed, is left as it is.
std::vector<std::string> removeStaleTemporaries(const std::string& directory);

/// What the symbolic link at `path` points to, as written in the link; nothing when
/// `path` is not a link or cannot be read.
[[nodiscard]] std::optional<std::string> linkTarget(const std::string& path);

/// The file `path` refers to once every symbolic link in it is followed, the folders'
/// and the file's own. A path that does not exist, or a link that dangles, resolves as
/// far as it can: it still names the file a write through it would create. Never throws
/// for what it cannot follow.
[[nodiscard]] std::string resolveLinks(const std::string& path);

} // namespace File
} // namespace tidewick
