#include "foundation/FileDescriptor.h"

#include "foundation/SystemError.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

namespace tidewick {
namespace {

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(FileDescriptorTest, ClosesExactlyWhatItOwnsOnce) {
    int fd = -1;
    {
        FileDescriptor first = FileDescriptor::open("/dev/null", O_RDONLY);
        fd = first.get();
        EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC) << "not passed on to programs started";
        FileDescriptor second(std::move(first));
        EXPECT_FALSE(first);
        EXPECT_EQ(second.get(), fd);
        FileDescriptor third = FileDescriptor::open("/dev/null", O_RDONLY);
        const int replaced = third.get();
        third = std::move(second);
        EXPECT_FALSE(isOpen(replaced)) << "assigning closes the one held before";
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd)) << "the last owner closes it";

    FileDescriptor kept = FileDescriptor::open("/dev/null", O_RDONLY);
    const int released = kept.release();
    kept.reset();
    EXPECT_TRUE(isOpen(released)) << "released: no longer ours to close";
    FileDescriptor(released).close("/dev/null");
    EXPECT_FALSE(isOpen(released));

    EXPECT_THAT([] { (void)FileDescriptor::open("/nonexistent/file", O_RDONLY); },
                ::testing::ThrowsMessage<SystemError>(
                    "open(/nonexistent/file): No such file or directory"));
}

} // namespace
} // namespace tidewick
