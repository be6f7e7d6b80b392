// A file system of a few pages for the tests of full disks: a tmpfs with a size
// limit mounted on a scratch folder. Mounting needs privileges; tests skip when
// they are missing.
#pragma once

#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "testing/TemporaryDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace tidewick::testing {

class SmallFileSystem {
public:
    /// Mounts a tmpfs of `bytes` (rounded up to whole pages) on a fresh folder.
    explicit SmallFileSystem(std::size_t bytes) {
        const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
        mounted_ = ::mount("tidewick-test", scratch_.path().c_str(), "tmpfs", 0,
                           options.c_str()) == 0;
    }
    ~SmallFileSystem() {
        if (mounted_)
            (void)::umount2(scratch_.path().c_str(), MNT_DETACH);
    }
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;

    /// False when this process may not mount (the test then skips).
    [[nodiscard]] bool mounted() const { return mounted_; }
    /// The mount point.
    [[nodiscard]] const std::string& path() const { return scratch_.path(); }

    /// Fills the free space with the file `name` until a write fails with ENOSPC.
    void fill(const std::string& name) const {
        const FileDescriptor file =
            FileDescriptor::open(File::join(path(), name), O_WRONLY | O_CREAT | O_APPEND, 0600);
        // Whole pages first, then the bytes left over.
        for (const std::string& chunk : {std::string(4096, 'f'), std::string("f")})
            while (::write(file.get(), chunk.data(), chunk.size()) > 0) {
            }
    }

private:
    TemporaryDirectory scratch_;
    bool mounted_ = false;
};

} // namespace tidewick::testing
