#include "wire/HookClient.h"

#include "testing/TemporaryDirectory.h"
#include "wire/HookServer.h"
#include "wire/LocalServer.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <vector>

namespace tidewick {
namespace {

using Kind = HookClient::Failure::Kind;

const std::string secret(64, 'f');

// The failure kind `send` throws, or nothing when it succeeded. It runs on a thread
// of its own, waited for with a bound far beyond its deadlines: a client that does
// not keep to them hangs past it.
std::optional<Kind> failureOf(const std::string& path, double connectTimeout = 0.4,
                              double responseTimeout = 5, const std::string& command = "ls") {
    auto attempt = std::async(std::launch::async, [&]() -> std::optional<Kind> {
        try {
            (void)HookClient::send({.agent = "cursor",
                                    .event = "beforeShellExecution",
                                    .payload = JSONValue(JSONValue::Object{{"command", command}}),
                                    .host = {},
                                    .agentPid = {}},
                                   path, secret, connectTimeout, responseTimeout);
            return std::nullopt;
        } catch (const HookClient::Failure& failure) {
            return failure.kind();
        }
    });
    if (attempt.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        ADD_FAILURE() << "the client kept going past its deadlines";
        std::terminate();
    }
    return attempt.get();
}

// Whatever stands at the socket in place of the application, the client gets no response.
TEST(HookClient, AnyListenerButTheApplicationLeavesItWithoutAResponse) {
    TemporaryDirectory dir;
    const std::string path = dir.path() + "/tw.sock";
    EXPECT_EQ(failureOf(path), Kind::notRunning) << "no socket file";
    {
        const FileDescriptor bound(testing::openRaw(path, testing::RawSocket::bound));
        EXPECT_EQ(failureOf(path), Kind::notRunning) << "a socket nobody listens on";
    }
    {
        HookServer otherSecret(path, std::string(64, 'e'), nullptr);
        otherSecret.start();
        EXPECT_EQ(failureOf(path), Kind::protocolError) << "another secret";
    }
    // A reply the wire test shows undecodable.
    LocalServer replying(
        path,
        [](std::string_view, const ClientProbe&) {
            return std::optional<std::string>("{\"v\":2,\"stdout\":\"{}\",\"exit\":0}\n");
        },
        LocalServer::Options{});
    replying.start();
    EXPECT_EQ(failureOf(path), Kind::protocolError) << "a reply of another version";
}

TEST(HookClient, ABusyOrStuckListenerCostsNoMoreThanTheDeadlines) {
    TemporaryDirectory dir;
    EXPECT_EQ(failureOf(dir.path() + "/" + std::string(110, 'l')), Kind::notRunning)
        << "a path too long for an address";
    const std::string path = dir.path() + "/busy.sock";
    const FileDescriptor listener(testing::openRaw(path, testing::RawSocket::listening, 0));
    ASSERT_TRUE(listener);
    // A large request to a listener that never reads: the write gives up.
    EXPECT_EQ(failureOf(path, 0.4, 0.3, std::string(2 << 20, 'b')), Kind::notRunning);
    // Fill the backlog of a listener that never accepts.
    std::vector<FileDescriptor> queued;
    for (int i = 0; i < 64; ++i) {
        const int fd = queued.emplace_back(Socket::openStream()).get();
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        auto address = Wire::makeAddress(path);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
            ASSERT_EQ(errno, EAGAIN);
            break;
        }
    }
    EXPECT_EQ(failureOf(path, 0.15, 5), Kind::notRunning);
    // A full backlog is waited out, not taken for an absent application: once the listener
    // takes the queued connections, the client gets in (and then finds no answer).
    auto waiting = std::async(std::launch::async, [&] { return failureOf(path, 20, 0.2); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    queued.clear();
    ::fcntl(listener.get(), F_SETFL, O_NONBLOCK);
    std::vector<FileDescriptor> accepted;
    while (waiting.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready)
        if (const int fd = ::accept(listener.get(), nullptr, nullptr); fd >= 0)
            accepted.emplace_back(fd);
    EXPECT_EQ(waiting.get(), Kind::protocolError);
}

// Nothing passes between users: the client never sends the secret to another user's
// listener, and the server never answers another user's process, even one with the secret.
TEST(HookClient, NothingPassesBetweenUsers) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as a second user";
    TemporaryDirectory dir;
    ::chmod(dir.path().c_str(), 0777);
    const std::string path = dir.path() + "/tw.sock";
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    int status = -1;
    // The impostor listens as "nobody" and fails when any byte comes in.
    std::thread impostor([&] {
        status = testing::runAsNobody([&] {
            const int fd = testing::openRaw(path, testing::RawSocket::listening, 4);
            if (fd < 0)
                return 91;
            (void)::write(ready[1], "r", 1);
            pollfd waiting{fd, POLLIN, 0};
            if (::poll(&waiting, 1, 5000) != 1)
                return 92;
            pollfd entry{::accept(fd, nullptr, nullptr), POLLIN, 0};
            char byte;
            return ::poll(&entry, 1, 1000) == 1 && ::read(entry.fd, &byte, 1) > 0 ? 1 : 0;
        });
        (void)::write(ready[1], "r", 1); // in case the child failed before listening
    });
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_EQ(failureOf(path), Kind::notRunning);
    impostor.join();
    EXPECT_EQ(status, 0) << "the impostor received bytes (or failed to listen)";
    ::close(ready[0]);
    ::close(ready[1]);

    std::atomic<int> handled = 0;
    HookServer server(path, secret, [&](const HookRequest&, const ClientProbe&) {
        ++handled;
        return HookResponse{};
    });
    server.start();
    // Let the other user reach the socket at all; only the peer check stands in its way.
    ::chmod(path.c_str(), 0666);
    const std::string line = Wire::encode(
        HookRequest{.agent = "claude", .event = "Stop", .host = {}, .agentPid = {}}, secret);
    status = testing::runAsNobody([&] {
        const int fd = testing::openRaw(path, testing::RawSocket::connected);
        if (fd < 0)
            return 2;
        // The server may already have closed, failing the write: as good as no reply.
        if (::send(fd, line.data(), line.size(), MSG_NOSIGNAL) < 0)
            return errno == EPIPE || errno == ECONNRESET ? 0 : 3;
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 5000) != 1)
            return 4;
        // Closed without a reply: end of stream, or a reset as the line was never read.
        char byte;
        ssize_t got = ::read(fd, &byte, 1);
        return got == 0 || (got < 0 && errno == ECONNRESET) ? 0 : 5;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(failureOf(path), std::nullopt) << "this user is answered";
}

} // namespace
} // namespace tidewick
