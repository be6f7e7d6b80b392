#include "foundation/File.h"

#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {
namespace {

class FileTest : public ::testing::Test {
protected:
    int entryCount() const { return static_cast<int>(File::listFolder(dir_).size()); }
    static mode_t modeOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(stat(path.c_str(), &info), 0);
        return info.st_mode & 0777;
    }

    TemporaryDirectory scratch_;
    const std::string dir_ = scratch_.path();
};

TEST_F(FileTest, AtomicWriteReplacesWholeFileWithTheAskedMode) {
    std::string path = File::join(dir_, "data.json");
    File::writeAtomically(path, "first", 0600);
    File::writeAtomically(path, "second", 0644);
    EXPECT_EQ(File::read(path), "second");
    EXPECT_EQ(modeOf(path), 0644u);
    EXPECT_EQ(entryCount(), 1); // no temporary left behind
}

TEST_F(FileTest, UncommittedWriteLeavesTheOldFileAndNoTemporary) {
    std::string path = File::join(dir_, "keep.txt");
    File::writeAtomically(path, "original", 0600);
    {
        AtomicFile file(path, 0600);
        file.write("half of a new");
    }
    EXPECT_EQ(File::read(path), "original");
    EXPECT_EQ(entryCount(), 1);
}

TEST_F(FileTest, FailuresNameTheSystemCallAndPath) {
    std::string blocker = File::join(dir_, "plain");
    File::writeAtomically(blocker, "x", 0600);
    try {
        File::writeAtomically(blocker + "/inner.json", "y", 0600);
        FAIL() << "writing below a regular file succeeded";
    } catch (const SystemError& error) {
        EXPECT_EQ(error.code(), ENOTDIR);
        EXPECT_NE(std::string(error.what()).find("open(" + blocker + "/inner.json.tmp-"), std::string::npos)
            << error.what();
        EXPECT_NE(std::string(error.what()).find("): Not a directory"), std::string::npos);
    }
    EXPECT_THROW((void)File::read(File::join(dir_, "missing")), SystemError);
    EXPECT_THROW(File::makeDirectories(blocker + "/sub", 0700), SystemError);
}

TEST_F(FileTest, MakeDirectoriesCreatesOwnerOnlyParents) {
    std::string deep = File::join(dir_, "a/b/c");
    File::makeDirectories(deep, 0700);
    EXPECT_EQ(modeOf(deep), 0700u);
    EXPECT_EQ(modeOf(File::join(dir_, "a")), 0700u);
    File::makeDirectories(deep, 0700); // existing: nothing to do
    EXPECT_EQ(File::parent("/a/b/c"), "/a/b");
    EXPECT_EQ(File::parent("/a"), "/");
    EXPECT_EQ(File::lastComponent("/a/b/settings.json"), "settings.json");
}

TEST_F(FileTest, ListsAFolderAndFollowsEveryLink) {
    File::makeDirectories(File::join(dir_, "real/sub"), 0700);
    File::writeAtomically(File::join(dir_, "real/sub/file"), "x", 0600);
    ASSERT_EQ(::symlink("real/sub", File::join(dir_, "folderLink").c_str()), 0);
    ASSERT_EQ(::symlink("sub/file", File::join(dir_, "real/fileLink").c_str()), 0);
    ASSERT_EQ(::symlink("fileLink", File::join(dir_, "real/chain").c_str()), 0);
    ASSERT_EQ(::symlink(File::join(dir_, "real/new").c_str(), File::join(dir_, "dangling").c_str()),
              0);
    ASSERT_EQ(::symlink("loop", File::join(dir_, "loop").c_str()), 0);

    std::vector<std::string> names = File::listFolder(dir_);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"dangling", "folderLink", "loop", "real"}));
    EXPECT_THROW((void)File::listFolder(File::join(dir_, "missing")), SystemError);
    EXPECT_EQ(File::linkTarget(File::join(dir_, "folderLink")), "real/sub");
    EXPECT_EQ(File::linkTarget(File::join(dir_, "real")), std::nullopt) << "not a link";

    char* resolvedDirectory = ::realpath(dir_.c_str(), nullptr);
    const std::string real = resolvedDirectory;
    std::free(resolvedDirectory);
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"folderLink/file", "real/sub/file"},   // a link among the folders
        {"real/chain", "real/sub/file"},         // a link to a link, relative to its own folder
        {"dangling", "real/new"},                // names the file a write would create
        {"folderLink/missing", "real/sub/missing"},
        {"loop", "loop"},                        // given up on, like the kernel does
    };
    for (const auto& [path, expected] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(File::resolveLinks(File::join(dir_, path)), File::join(real, expected));
    }
}

} // namespace
} // namespace tidewick
