// A whole file mapped into memory, read-only: its bytes without copying them
// into a buffer first, for files of many megabytes read once at start-up.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tidewick {

class MappedFile {
public:
    /// Maps the file at `path`. Throws SystemError naming the call that failed
    /// ("open(/path): No such file or directory", "mmap(/path): No such device" for a
    /// directory).
    explicit MappedFile(const std::string& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /// The file's bytes, valid while this object lives. The file must not be truncated in
    /// the meantime; Tidewick replaces its own files by renaming a new one over them,
    /// which leaves a mapping of the old one intact.
    [[nodiscard]] std::string_view bytes() const { return {data_, size_}; }

private:
    const char* data_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace tidewick
