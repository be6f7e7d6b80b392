#include "foundation/File.h"

#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tidewick {
namespace {

class FileTest : public ::testing::Test {
protected:
    int entryCount() const {
        int count = 0;
        DIR* d = opendir(dir_.c_str());
        while (dirent* e = readdir(d))
            count += e->d_name[0] != '.';
        closedir(d);
        return count;
    }
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

} // namespace
} // namespace tidewick
