#include "wire/LocalServer.h"

#include "wire/LocalClient.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace tidewick {
namespace {

using testing::TemporaryDirectory;

TEST(LocalServer, AnswersLinesRefusesSilentlyAndWakesHeldConnections) {
    TemporaryDirectory directory;
    const std::string path = directory.file("line.sock");
    std::atomic<bool> holding{false};
    std::atomic<bool> sawGone{false};
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
            if (line.empty() || line == "silence")
                return std::nullopt;
            return "echo " + std::string(line) + "\n";
        },
        LocalServer::Options{});

    auto missing = LocalClient::exchange(path, "hello\n", 1.0, 1.0);
    EXPECT_FALSE(missing.line);
    EXPECT_EQ(missing.failure, LocalClient::Failure::notConnected);

    server.start();
    server.start(); // a second start changes nothing
    EXPECT_EQ(*LocalClient::exchange(path, "hello\n", 1.0, 5.0).line, "echo hello");
    for (const char* refused : {"silence\n", "throw\n"}) {
        auto result = LocalClient::exchange(path, refused, 1.0, 5.0);
        EXPECT_FALSE(result.line) << refused;
        EXPECT_EQ(result.failure, LocalClient::Failure::noAnswer);
    }

    std::thread held([&] { (void)LocalClient::exchange(path, "hold\n", 1.0, 30.0); });
    for (int i = 0; i < 1000 && !holding; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(holding);
    server.stop();
    server.closeConnections();
    held.join();
    EXPECT_TRUE(sawGone);
    EXPECT_FALSE(server.isRunning());
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
    EXPECT_EQ(LocalClient::exchange(path, "hello\n", 1.0, 1.0).failure,
              LocalClient::Failure::notConnected);
}

} // namespace
} // namespace tidewick
