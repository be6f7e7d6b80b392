#include "wire/LocalServer.h"

#include "foundation/File.h"
#include "testing/Eventually.h"
#include "testing/TemporaryDirectory.h"
#include "wire/LineReader.h"
#include "wire/LocalClient.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace tidewick {
namespace {

using Failure = LocalClient::Failure;

TEST(LocalServer, AnswersLinesRefusesSilentlyAndWakesHeldConnections) {
    constexpr int held = 8;
    TemporaryDirectory directory;
    const std::string path = directory.path() + "/line.sock";
    std::atomic<int> holding{0}, sawGone{0};
    LocalServer server(
        path,
        [&](std::string_view line, const ClientProbe& probe) -> std::optional<std::string> {
            if (line == "hold") {
                ++holding;
                // Waits until the server cuts the connection off.
                while (!probe.isDisconnected())
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                ++sawGone;
                return "late\n";
            }
            if (line == "throw")
                throw std::runtime_error("handler failed");
            if (line == "silence")
                return std::nullopt;
            return "echo " + std::string(line) + "\n";
        },
        LocalServer::Options{});
    auto exchange = [&](const char* line) { return LocalClient::exchange(path, line, 1.0, 30.0); };

    File::writeAtomically(path, "stale", 0644); // replaced by the socket
    server.start();
    server.start(); // a second start changes nothing
    EXPECT_EQ(exchange("hello\n").line, "echo hello");
    for (const char* refused : {"silence\n", "throw\n"}) {
        auto result = exchange(refused);
        EXPECT_FALSE(result.line) << refused;
        EXPECT_EQ(result.failure, Failure::noAnswer) << refused;
    }

    // Held all at once, beside a client that never sends its line: a thread per connection.
    std::vector<std::thread> clients;
    for (int i = 0; i < held; ++i)
        clients.emplace_back([&] { EXPECT_FALSE(exchange("hold\n").line); });
    const FileDescriptor silent(testing::openRaw(path, testing::RawSocket::connected));
    EXPECT_TRUE(testing::eventually([&] { return holding == held; }));
    server.stop();
    server.stop();
    EXPECT_EQ(sawGone, 0) << "stopping leaves the exchanges under way alone";
    server.closeConnections();
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(sawGone, held);
    EXPECT_FALSE(server.isRunning());
    EXPECT_FALSE(File::exists(path)) << "stop removes the socket file";
    server.start();
    EXPECT_EQ(exchange("again\n").line, "echo again") << "a stopped server starts again";
}

// The number of threads of this process.
int threadCount() {
    const std::string status = File::read("/proc/self/status");
    return std::stoi(status.substr(status.find("Threads:") + 8));
}

// Whether the server closed `socket` within a generous bound.
bool closedByServer(int socket) {
    pollfd entry{socket, POLLIN, 0};
    char byte;
    return ::poll(&entry, 1, 10000) == 1 && ::recv(socket, &byte, 1, MSG_DONTWAIT) == 0;
}

class LocalServerLimits : public ::testing::Test {
protected:
    void SetUp() override {
        server.start();
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    }
    void TearDown() override { (void)::setrlimit(RLIMIT_NOFILE, &saved); }

    std::optional<std::string> exchange(const char* line) {
        return LocalClient::exchange(path, line, 5.0, 30.0).line;
    }

    TemporaryDirectory directory;
    const std::string path = directory.path() + "/line.sock";
    std::shared_ptr<RequestReader> reader =
        std::make_shared<RequestReader>(RequestReader::Limits{.lineBytes = 1024 * 1024,
                                                              .shortLinesBytes = 256 * 1024,
                                                              .shortLineBytes = 16 * 1024,
                                                              .maxLineBytes = 16 * 1024 * 1024,
                                                              .reserveDescriptors = 32});
    // Idle clients never time out here: they are closed only to make room.
    LocalServer server{path,
                       [](std::string_view line, const ClientProbe&) -> std::optional<std::string> {
                           return "echo " + std::string(line) + "\n";
                       },
                       LocalServer::Options{"t.server", "t.connection", 64, 3600.0, reader}};
    rlimit saved{};
};

TEST_F(LocalServerLimits, IdleClientsBeyondTheDescriptorLimitNeverShutOutAWellBehavedOne) {
    // Six hundred idle clients in another process, against a limit that leaves this
    // server room for about three hundred connections.
    constexpr int idleCount = 600;
    rlimit low = saved;
    low.rlim_cur = static_cast<rlim_t>(File::listFolder("/proc/self/fd").size() + 300);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const int threadsBefore = threadCount();
    int ready[2], finish[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(finish), 0);
    const pid_t clients = ::fork();
    ASSERT_GE(clients, 0);
    if (clients == 0) {
        // Only async-signal-safe calls between fork and _exit. Should the test end early,
        // the closed pipe lets this process end too.
        ::close(ready[0]);
        ::close(finish[1]);
        rlimit plenty = saved;
        (void)::setrlimit(RLIMIT_NOFILE, &plenty);
        for (int i = 0; i < idleCount; ++i)
            if (testing::openRaw(path, testing::RawSocket::connected) < 0)
                ::_exit(1);
        char byte = 'r';
        (void)!::write(ready[1], &byte, 1);
        (void)!::read(finish[0], &byte, 1);
        ::_exit(0);
    }
    ::close(ready[1]);
    ::close(finish[0]);
    char byte;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    // Every idle client got connected; the server kept itself out of its reserve by
    // closing the oldest of them, and read them all on one thread.
    EXPECT_EQ(exchange("hello\n"), "echo hello");
    EXPECT_LE(reader->waitingCount(), 300u);
    EXPECT_GE(reader->waitingCount(), 200u);
    EXPECT_LT(threadCount() - threadsBefore, 10);
    (void)!::write(finish[1], &byte, 1);
    int status = 0;
    ASSERT_EQ(::waitpid(clients, &status, 0), clients);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    ::close(ready[0]);
    ::close(finish[1]);
}

TEST_F(LocalServerLimits, LongLinesInProgressStayWithinTheMemoryBound) {
    // Two clients each sending 700 KiB of a line that never ends: the second one's
    // bytes would pass the 1 MiB bound, so the first, which has waited longer, goes.
    const std::string part(700 * 1024, 'x');
    FileDescriptor first(testing::openRaw(path, testing::RawSocket::connected));
    ASSERT_TRUE(Wire::writeAll(first.get(), part));
    EXPECT_TRUE(testing::eventually([&] { return reader->heldBytes() >= part.size(); }));
    EXPECT_EQ(reader->heldBytes(), part.size());
    FileDescriptor second(testing::openRaw(path, testing::RawSocket::connected));
    ASSERT_TRUE(Wire::writeAll(second.get(), part));
    EXPECT_TRUE(closedByServer(first.get()));
    EXPECT_LE(reader->heldBytes(), 1024u * 1024u);
    // Short lines get through all the same, and the long one is still being read.
    EXPECT_EQ(exchange("hello\n"), "echo hello");
    ASSERT_TRUE(Wire::writeAll(second.get(), "\n"));
    EXPECT_EQ(Wire::readLine(second.get(), 30).value_or("").size(), 5 + part.size());
    EXPECT_TRUE(testing::eventually([&] { return reader->heldBytes() == 0; }))
        << "a line counts until its exchange has ended";
}

TEST(LocalServer, StreamsLinesWhileTheClientStays) {
    TemporaryDirectory directory;
    const std::string path = directory.path() + "/stream.sock";
    std::atomic<int> ended{0};
    LocalServer server(
        path,
        [&](std::string_view line, LocalServer::Stream& stream) {
            // Two lines in one write, one more later, then as long as the client stays.
            if (stream.write(std::string(line) + " 1\n" + std::string(line) + " 2\n") &&
                stream.write("3\n"))
                while (!stream.probe().isDisconnected())
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ++ended;
        },
        LocalServer::Options{});
    EXPECT_FALSE(LocalClient::connect(path, 0.5)) << "nobody listens yet";
    server.start();

    using Status = LineReader::Status;
    {
        FileDescriptor socket = LocalClient::connect(path, 1.0);
        ASSERT_TRUE(socket);
        LineReader reader(socket.get(), 8);
        ASSERT_TRUE(Wire::writeAll(socket.get(), "line\n"));
        for (const char* expected : {"line 1", "line 2", "3"}) {
            LineReader::Result result = reader.next(30);
            EXPECT_EQ(result.status, Status::line);
            EXPECT_EQ(result.line, expected);
        }
        EXPECT_EQ(reader.next(0).status, Status::waiting) << "the stream stays open";
        EXPECT_EQ(ended, 0);
    }
    // The client went: the handler notices and its connection ends.
    EXPECT_TRUE(testing::eventually([&] { return ended == 1; }));

    // A line longer than the reader's limit closes the reader for good.
    FileDescriptor socket = LocalClient::connect(path, 1.0);
    ASSERT_TRUE(socket);
    LineReader reader(socket.get(), 8);
    ASSERT_TRUE(Wire::writeAll(socket.get(), "much too long\n"));
    EXPECT_EQ(reader.next(30).status, Status::closed);
    EXPECT_EQ(reader.next(30).status, Status::closed);
}

} // namespace
} // namespace tidewick
