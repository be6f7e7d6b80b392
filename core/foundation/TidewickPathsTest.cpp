#include "foundation/TidewickPaths.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {
namespace {

using testing::modeOf;

TEST(TidewickPaths, LocationsHangOffTheApplicationDirectory) {
    TidewickPaths paths("/Users/a");
    const std::string app = "/Users/a/Library/Application Support/Tidewick";
    EXPECT_EQ(paths.appSupport(), app);
    std::string names;
    for (const std::string& path :
         {paths.socketPath(), paths.binDirectory(), paths.helperPath(), paths.backupsDirectory(),
          paths.secretFile(), paths.settingsFile(), paths.sessionsFile(), paths.activityFile(),
          paths.connectionsFile(), paths.claudeLimitsFile(), paths.soundsDirectory(),
          paths.avatarFile()})
        names += (path.rfind(app + "/", 0) == 0 ? path.substr(app.size() + 1) : path) + " ";
    EXPECT_EQ(names, "tidewick.sock bin bin/tidewick-hook Backups secret settings.json "
                     "sessions.json activity.jsonl connections.json claude-limits.json Sounds "
                     "avatar.json ");

    // The hook command and the application may spell the same home differently.
    EXPECT_EQ(TidewickPaths("/Users/a/").socketPath(), paths.socketPath());
    EXPECT_EQ(TidewickPaths("/Users/a//").appSupport(), app);
    EXPECT_EQ(TidewickPaths("rel").home(), std::filesystem::current_path().string() + "/rel");
}

TEST(TidewickPaths, SocketMovesToTmpOnlyPastOneHundredBytes) {
    // Published FNV-1a 64-bit test vectors.
    EXPECT_EQ(fnv1a64(""), 0xcbf29ce484222325ULL);
    EXPECT_EQ(fnv1a64("a"), 0xaf63dc4c8601ec8cULL);
    EXPECT_EQ(fnv1a64("foobar"), 0x85944171f73967e8ULL);

    const std::string suffix = "/Library/Application Support/Tidewick/tidewick.sock";
    const std::string fits = "/" + std::string(100 - suffix.size() - 1, 'h');
    ASSERT_EQ((fits + suffix).size(), 100u);
    EXPECT_EQ(TidewickPaths(fits).socketPath(), fits + suffix);

    const std::string deep = fits + "x";
    TidewickPaths deepPaths(deep);
    ASSERT_EQ((deep + suffix).size(), 101u);
    std::ostringstream expected;
    expected << "/tmp/tw-" << getuid() << "-" << std::hex
             << fnv1a64(deep + "/Library/Application Support/Tidewick") << ".sock";
    EXPECT_EQ(deepPaths.socketPath(), expected.str());
    // Computed independently, the two sides agree; another home gets another socket.
    EXPECT_EQ(TidewickPaths(deep + "/").socketPath(), expected.str());
    EXPECT_NE(TidewickPaths(fits + "y").socketPath(), expected.str());
    // The debug files follow the socket, wherever it goes.
    EXPECT_EQ(deepPaths.debugMarkerFile(), "/tmp/debug-hooks");
    EXPECT_EQ(deepPaths.debugLogFile(), "/tmp/hook-debug.jsonl");
    EXPECT_EQ(TidewickPaths(fits).debugLogFile(),
              fits + "/Library/Application Support/Tidewick/hook-debug.jsonl");
    // Multi-byte characters count by their UTF-8 bytes, not as characters.
    const std::string accented = "/" + std::string(46, 'h') + "\xC3\xA9"; // 49 bytes, 48 characters
    EXPECT_EQ(TidewickPaths(accented).socketPath(), accented + suffix);
    EXPECT_EQ(TidewickPaths(accented + "\xC3\xA9").socketPath().rfind("/tmp/tw-", 0), 0u);
}

TEST(TidewickPaths, SecretIsCreatedOnceOwnerOnlyAndReplacedWhenDamaged) {
    TemporaryDirectory home;
    TidewickPaths paths(home.path());
    ::umask(022);

    EXPECT_THROW((void)paths.readSecret(), SystemError);
    EXPECT_FALSE(paths.secretIfReadable());
    EXPECT_FALSE(File::exists(paths.appSupport())) << "readSecret must create nothing";

    // An application directory made too open beforehand is narrowed.
    File::makeDirectories(paths.appSupport(), 0755);
    std::string secret = paths.loadOrCreateSecret();
    ASSERT_EQ(secret.size(), 64u);
    EXPECT_EQ(secret.find_first_not_of("0123456789abcdef"), std::string::npos) << secret;
    EXPECT_EQ(File::read(paths.secretFile()), secret) << "no line terminator";
    for (const std::string& directory :
         {paths.appSupport(), paths.binDirectory(), paths.backupsDirectory()})
        EXPECT_EQ(modeOf(directory), 0700) << directory;
    EXPECT_EQ(modeOf(paths.secretFile()), 0600);

    EXPECT_NE(TidewickPaths(home.path() + "/other").loadOrCreateSecret(), secret);

    // Contents are trimmed and checked: 32 characters are enough even when they take more
    // bytes; bytes that are not UTF-8 are not a secret at all. A damaged secret is replaced.
    std::string wide;
    for (int i = 0; i < 32; ++i)
        wide += "\xC3\xA9";
    const std::string forty(40, 'k');
    const std::vector<std::pair<std::string, std::optional<std::string>>> rows = {
        {" " + forty + "\n", forty},
        {wide, wide},
        {std::string(31, 'k') + "\n", std::nullopt},
        {forty + "\xFF", std::nullopt},
    };
    for (const auto& [content, usable] : rows) {
        SCOPED_TRACE(content);
        File::writeAtomically(paths.secretFile(), content, 0644);
        EXPECT_EQ(paths.secretIfReadable(), usable);
        if (!usable) {
            EXPECT_THROW((void)paths.readSecret(), TidewickPaths::CorruptSecret);
        }
        const std::string loaded = paths.loadOrCreateSecret();
        EXPECT_EQ(paths.readSecret(), loaded);
        if (usable) {
            EXPECT_EQ(loaded, *usable) << "a usable secret is kept";
        } else {
            EXPECT_EQ(loaded.size(), 64u);
            EXPECT_EQ(modeOf(paths.secretFile()), 0600);
        }
    }

    // A file where a directory belongs is reported.
    File::writeAtomically(home.path() + "/blocked", "x", 0600);
    EXPECT_THAT([&] { TidewickPaths(home.path() + "/blocked").ensureDirectories(); },
                ::testing::Throws<SystemError>(::testing::Property(&SystemError::code, ENOTDIR)));
}

TEST(TidewickPaths, ForCurrentUserHonoursTidewickHome) {
    ::setenv("TIDEWICK_HOME", "/srv/tw-home", 1);
    EXPECT_EQ(TidewickPaths::forCurrentUser().home(), "/srv/tw-home");
    ::unsetenv("TIDEWICK_HOME");
    EXPECT_EQ(TidewickPaths::forCurrentUser().home(),
              TidewickPaths(TidewickPaths::userHome()).home());
}

} // namespace
} // namespace tidewick
