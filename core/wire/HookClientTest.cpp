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
    // A reply the wire test shows undecodable (a server that closes without one: the server
    // test; one that never answers: below).
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
    ::chmod(dir.path().c_str(), 0755);
    const std::string path = dir.path() + "/tw.sock";
    // A listener of another user: the credentials a client sees are those of listen().
    const FileDescriptor impostor(testing::openRaw(path, testing::RawSocket::bound));
    ASSERT_EQ(testing::runAsNobody([&] { return ::listen(impostor.get(), 4); }), 0);
    EXPECT_EQ(failureOf(path), Kind::notRunning);
    ::fcntl(impostor.get(), F_SETFL, O_NONBLOCK);
    const FileDescriptor connection(::accept(impostor.get(), nullptr, nullptr));
    char byte;
    EXPECT_TRUE(!connection || ::recv(connection.get(), &byte, 1, MSG_DONTWAIT) <= 0)
        << "the impostor received bytes";

    std::atomic<int> handled = 0;
    HookServer server(path, secret, [&](const HookRequest&, const ClientProbe&) {
        ++handled;
        return HookResponse{};
    });
    server.start();
    // Let the other user reach the socket at all; only the peer check stands in its way.
    ::chmod(path.c_str(), 0666);
    // A client of another user: the credentials a server sees are those of connect().
    const FileDescriptor stranger(Socket::openStream());
    const sockaddr_un address = *Wire::makeAddress(path);
    ASSERT_EQ(testing::runAsNobody([&] {
                  return ::connect(stranger.get(), reinterpret_cast<const sockaddr*>(&address),
                                   sizeof address);
              }),
              0);
    // The server may already have closed, failing the write: as good as no reply.
    (void)Wire::writeAll(
        stranger.get(),
        Wire::encode(HookRequest{.agent = "claude", .event = "Stop", .host = {}, .agentPid = {}},
                     secret));
    EXPECT_FALSE(Wire::readLine(stranger.get(), 20)) << "another user was answered";
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(failureOf(path), std::nullopt) << "this user is answered";
}

} // namespace
} // namespace tidewick
