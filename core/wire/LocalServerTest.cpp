#include "wire/LocalServer.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"
#include "wire/LineReader.h"
#include "wire/LocalClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace tidewick {
namespace {

using Failure = LocalClient::Failure;

TEST(LocalServer, AnswersLinesRefusesSilentlyAndWakesHeldConnections) {
    TemporaryDirectory directory;
    const std::string path = directory.path() + "/line.sock";
    std::atomic<bool> holding{false}, sawGone{false};
    LocalServer server(
        path,
        [&](std::string_view line, const ClientProbe& probe) -> std::optional<std::string> {
            if (line == "hold") {
                holding = true;
                // Waits until the server cuts the connection off.
                while (!probe.isDisconnected())
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                sawGone = true;
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

    EXPECT_EQ(exchange("hello\n").failure, Failure::notConnected);
    File::writeAtomically(path, "stale", 0644); // replaced by the socket
    server.start();
    server.start(); // a second start changes nothing
    EXPECT_EQ(exchange("hello\n").line, "echo hello");
    for (const char* refused : {"silence\n", "throw\n"}) {
        auto result = exchange(refused);
        EXPECT_FALSE(result.line) << refused;
        EXPECT_EQ(result.failure, Failure::noAnswer) << refused;
    }

    std::thread held([&] { EXPECT_FALSE(exchange("hold\n").line); });
    for (int i = 0; i < 1000 && !holding; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(holding);
    server.stop();
    server.stop();
    server.closeConnections();
    held.join();
    EXPECT_TRUE(sawGone);
    EXPECT_FALSE(server.isRunning());
    EXPECT_FALSE(File::exists(path)) << "stop removes the socket file";
    EXPECT_EQ(exchange("hello\n").failure, Failure::notConnected);
    server.start();
    EXPECT_EQ(exchange("again\n").line, "echo again") << "a stopped server starts again";
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
    for (int i = 0; i < 1000 && ended == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(ended, 1);

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
