#include "foundation/File.h"

#include "foundation/ProcessIdentity.h"
#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tidewick {
namespace {

class FileTest : public ::testing::Test {
protected:
    int entryCount() const { return static_cast<int>(File::listFolder(dir_).size()); }

    TemporaryDirectory scratch_;
    const std::string dir_ = scratch_.path();
};

TEST_F(FileTest, AtomicWritesReplaceTheWholeFileOrNothingAndFilesAndFoldersGetTheAskedModes) {
    std::string path = File::join(dir_, "data.json");
    File::writeAtomically(path, "first", 0600);
    File::writeAtomically(path, "second", 0644);
    EXPECT_EQ(File::read(path), "second");
    EXPECT_EQ(testing::modeOf(path), 0644);
    {
        AtomicFile file(path, 0600);
        file.write("half of a new"); // never committed
    }
    EXPECT_EQ(File::read(path), "second");
    EXPECT_EQ(entryCount(), 1); // no temporary left behind

    // Missing folders are made owner-only, parents included.
    std::string deep = File::join(dir_, "a/b/c");
    File::makeDirectories(deep, 0700);
    EXPECT_EQ(testing::modeOf(deep), 0700);
    EXPECT_EQ(testing::modeOf(File::join(dir_, "a")), 0700);
    File::makeDirectories(deep, 0700); // existing: nothing to do
    EXPECT_EQ(File::parent("/a/b/c"), "/a/b");
    EXPECT_EQ(File::parent("/a"), "/");
    EXPECT_EQ(File::lastComponent("/a/b/settings.json"), "settings.json");
}

TEST_F(FileTest, FailuresNameTheSystemCallAndPath) {
    std::string blocker = File::join(dir_, "plain");
    File::writeAtomically(blocker, "x", 0600);
    using namespace ::testing;
    EXPECT_THAT(
        [&] { File::writeAtomically(blocker + "/inner.json", "y", 0600); },
        Throws<SystemError>(AllOf(
            Property(&SystemError::code, ENOTDIR),
            Property(&SystemError::what, AllOf(StartsWith("open(" + blocker + "/inner.json.tmp-"),
                                               EndsWith("): Not a directory"))))));
    EXPECT_THROW((void)File::read(File::join(dir_, "missing")), SystemError);
    EXPECT_THROW(File::makeDirectories(blocker + "/sub", 0700), SystemError);
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

    const std::string real = std::filesystem::canonical(dir_);
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"folderLink/file", "real/sub/file"}, // a link among the folders
        {"real/chain", "real/sub/file"},      // a link to a link, relative to its own folder
        {"dangling", "real/new"},             // names the file a write would create
        {"folderLink/missing", "real/sub/missing"},
        {"loop", "loop"}, // given up on, like the kernel does
    };
    for (const auto& [path, expected] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(File::resolveLinks(File::join(dir_, path)), File::join(real, expected));
    }
}

TEST_F(FileTest, TemporariesOfWritersKilledMidWriteAreRemovedAndOthersStay) {
    // A writer killed with SIGKILL half-way through a save leaves its temporary behind.
    const std::string sessions = File::join(dir_, "sessions.json");
    File::writeAtomically(sessions, "[]", 0600);
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
        AtomicFile file(sessions, 0600);
        file.write(std::string(1 << 20, 'x'));
        ::kill(::getpid(), SIGKILL);
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    std::vector<std::string> left = File::listFolder(dir_);
    ASSERT_EQ(left.size(), 2u);
    const std::string killed = File::join(dir_, left[0] == "sessions.json" ? left[1] : left[0]);

    // A write of this very process still under way, a process id now run by another
    // program (this one, started at another time), and names that only look alike.
    AtomicFile running(File::join(dir_, "settings.json"), 0600);
    const ProcessIdentity self = ProcessIdentity::current();
    const std::string pid = std::to_string(self.pid);
    const std::string reused =
        "connections.json.tmp-" + pid + "-" + std::to_string(self.startTime + 1) + "-0123abcd";
    const std::string olderLive = "secret.tmp-" + pid + "-89abcdef";
    const std::string olderDead = "secret.tmp-" + std::to_string(writer) + "-89abcdef";
    for (const std::string& name : {reused, olderLive, olderDead, std::string("notes.tmp-x"),
                                    std::string(".tmp-1-2-0123abcd"), "a.tmp-" + pid + "-0123ABCD",
                                    std::string("b.tmp-0-0123abcd")})
        File::writeAtomically(File::join(dir_, name), "x", 0600);
    File::makeDirectories(File::join(dir_, "folder.tmp-" + std::to_string(writer) + "-0123abcd"),
                          0700);

    std::vector<std::string> removed = File::removeStaleTemporaries(dir_);
    std::sort(removed.begin(), removed.end());
    std::vector<std::string> expected = {killed, File::join(dir_, reused),
                                         File::join(dir_, olderDead)};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(removed, expected);
    EXPECT_EQ(entryCount(), 8) << "sessions.json, the running write, the older live one, "
                                  "four look-alikes and the folder stay";
    EXPECT_TRUE(File::removeStaleTemporaries(File::join(dir_, "missing")).empty());
    running.write("done");
    running.commit();
    EXPECT_EQ(File::read(File::join(dir_, "settings.json")), "done");
}

} // namespace
} // namespace tidewick
