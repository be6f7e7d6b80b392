#include "wire/HookClient.h"

#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace tidewick {
namespace {

using Kind = HookClient::Failure::Kind;
using testing::TemporaryDirectory;

const std::string secret(64, 'f');

HookRequest request() {
    HookRequest out;
    out.agent = "cursor";
    out.event = "beforeShellExecution";
    out.payload = JSONValue::parse(R"({"command":"rm -rf build"})");
    out.pid = 1234;
    return out;
}

// The failure kind `send` throws, or nothing when it succeeded.
std::optional<Kind> failureOf(const std::string& path, double connectTimeout = 0.4,
                              double responseTimeout = 5, const HookRequest& sent = request()) {
    try {
        (void)HookClient::send(sent, path, secret, connectTimeout, responseTimeout);
        return std::nullopt;
    } catch (const HookClient::Failure& failure) {
        return failure.kind();
    }
}

TEST(HookClient, AnAbsentApplicationFailsAtOnce) {
    TemporaryDirectory dir;
    // No socket file; a socket file nobody listens on; a path too long.
    EXPECT_LT(testing::secondsTaken(
                  [&] { EXPECT_EQ(failureOf(dir.file("none.sock"), 5), Kind::notRunning); }),
              1.0);
    int bound = Socket::openStream();
    auto address = Wire::makeAddress(dir.file("dead.sock"));
    ASSERT_EQ(::bind(bound, reinterpret_cast<const sockaddr*>(&*address), sizeof *address), 0);
    EXPECT_LT(testing::secondsTaken(
                  [&] { EXPECT_EQ(failureOf(dir.file("dead.sock"), 5), Kind::notRunning); }),
              1.0);
    ::close(bound);
    EXPECT_EQ(failureOf(dir.path() + "/" + std::string(110, 'l')), Kind::notRunning);
}

TEST(HookClient, AFullBacklogIsWaitedOutOnlyUntilTheConnectDeadline) {
    TemporaryDirectory dir;
    const std::string path = dir.file("busy.sock");
    int listener = testing::listenRaw(path, 0);
    ASSERT_GE(listener, 0);
    // Fill the backlog of a listener that never accepts.
    std::vector<int> queued;
    for (int i = 0; i < 64; ++i) {
        int fd = Socket::openStream();
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        auto address = Wire::makeAddress(path);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
            ASSERT_EQ(errno, EAGAIN);
            ::close(fd);
            break;
        }
        queued.push_back(fd);
    }
    double taken =
        testing::secondsTaken([&] { EXPECT_EQ(failureOf(path, 0.15), Kind::notRunning); });
    EXPECT_GE(taken, 0.15);
    EXPECT_LT(taken, 1.0);
    for (int fd : queued)
        ::close(fd);
    ::close(listener);
}

TEST(HookClient, AListenerThatNeverReadsCannotStallALargeRequest) {
    TemporaryDirectory dir;
    const std::string path = dir.file("tw.sock");
    int listener = testing::listenRaw(path);
    ASSERT_GE(listener, 0);
    HookRequest large = request();
    large.payload = JSONValue(JSONValue::Object{{"blob", JSONValue(std::string(8 << 20, 'b'))}});
    double taken = testing::secondsTaken(
        [&] { EXPECT_EQ(failureOf(path, 0.4, 0.3, large), Kind::notRunning); });
    EXPECT_LT(taken, 2.0);
    ::close(listener);
}

TEST(HookClient, NeverSendsTheSecretToAnotherUsersListener) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as a second user";
    TemporaryDirectory dir;
    ::chmod(dir.path().c_str(), 0777);
    const std::string path = dir.file("tw.sock");
    auto address = *Wire::makeAddress(path);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    pid_t child = ::fork();
    if (child == 0) {
        // The impostor: listens as "nobody" and reports how many bytes came in.
        if (::setgroups(0, nullptr) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
            ::setresuid(65534, 65534, 65534) != 0)
            ::_exit(90);
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::chmod(address.sun_path, 0666) != 0 || ::listen(fd, 4) != 0)
            ::_exit(91);
        (void)::write(ready[1], "r", 1);
        pollfd waiting{fd, POLLIN, 0};
        if (::poll(&waiting, 1, 5000) != 1)
            ::_exit(92);
        int connection = ::accept(fd, nullptr, nullptr);
        long total = 0;
        char buffer[4096];
        for (;;) {
            pollfd entry{connection, POLLIN, 0};
            if (::poll(&entry, 1, 1000) != 1)
                break;
            ssize_t got = ::read(connection, buffer, sizeof buffer);
            if (got <= 0)
                break;
            total += got;
        }
        ::_exit(total == 0 ? 0 : 1);
    }
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_EQ(failureOf(path), Kind::notRunning);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the impostor received bytes";
    ::close(ready[0]);
    ::close(ready[1]);
}

} // namespace
} // namespace tidewick
