#include "wire/HookServer.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "wire/HookClient.h"
#include "wire/WireTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <grp.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace tidewick {
namespace {

using testing::TemporaryDirectory;

const std::string secret = std::string(32, 'a') + std::string(32, 'b');

HookRequest requestFor(const std::string& event) {
    HookRequest request;
    request.agent = "claude";
    request.event = event;
    request.payload = JSONValue::parse(R"({"session_id":"s1","tool_input":{"command":"ls"}})");
    request.pid = 99;
    request.agentPid = 98;
    request.host = "kitty";
    return request;
}

std::string requestLine(const std::string& event, const std::string& withSecret = secret) {
    return Wire::encode(requestFor(event), withSecret);
}

// Records what the handler saw; thread-safe.
class Recorder {
public:
    HookServer::Handler handler() {
        return [this](const HookRequest& request, const ClientProbe&) {
            std::lock_guard guard(mutex_);
            requests_.push_back(request);
            return HookResponse{HookOutput{"answer to " + request.event, 2}};
        };
    }
    std::vector<HookRequest> requests() {
        std::lock_guard guard(mutex_);
        return requests_;
    }

private:
    std::mutex mutex_;
    std::vector<HookRequest> requests_;
};

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

TEST(HookServer, RunsARequestThroughTheHandlerAndAnswers) {
    TemporaryDirectory dir;
    Recorder recorder;
    HookServer server(dir.file("tw.sock"), secret, recorder.handler());
    server.start();
    EXPECT_TRUE(server.isRunning());
    EXPECT_EQ(modeOf(dir.file("tw.sock")), 0600);

    HookResponse response =
        HookClient::send(requestFor("PermissionRequest"), dir.file("tw.sock"), secret, 0.4, 5);
    EXPECT_EQ(response.output, (HookOutput{"answer to PermissionRequest", 2}));
    ASSERT_EQ(recorder.requests().size(), 1u);
    EXPECT_EQ(recorder.requests()[0], requestFor("PermissionRequest"));

    // Requests that leave out optional fields are served too.
    auto raw =
        testing::exchangeRaw(dir.file("tw.sock"), "{\"v\":1,\"secret\":\"" + secret +
                                                      "\",\"agent\":\"x\",\"event\":\"E\"}\n");
    EXPECT_EQ(raw, "{\"v\":1,\"stdout\":\"answer to E\",\"exit\":2}\n");
    EXPECT_EQ(recorder.requests().at(1).payload, JSONValue(JSONValue::Object{}));
}

TEST(HookServer, StartAndStopCanBeRepeated) {
    TemporaryDirectory dir;
    const std::string path = dir.file("tw.sock");
    File::writeAtomically(path, "stale", 0644);
    Recorder recorder;
    HookServer server(path, secret, recorder.handler());
    server.start();
    server.start();
    EXPECT_EQ(HookClient::send(requestFor("A"), path, secret, 0.4, 5).output.stdoutText,
              "answer to A");
    server.stop();
    server.stop();
    EXPECT_FALSE(server.isRunning());
    EXPECT_FALSE(File::exists(path)) << "stop removes the socket file";
    try {
        (void)HookClient::send(requestFor("B"), path, secret, 0.4, 5);
        FAIL() << "a stopped server must not answer";
    } catch (const HookClient::Failure& failure) {
        EXPECT_EQ(failure.kind(), HookClient::Failure::Kind::notRunning);
    }
    server.start();
    EXPECT_EQ(HookClient::send(requestFor("C"), path, secret, 0.4, 5).output.stdoutText,
              "answer to C");
    EXPECT_EQ(recorder.requests().size(), 2u);
}

TEST(HookServer, SocketPathsOfUpTo103BytesBind) {
    TemporaryDirectory dir;
    const std::string base = dir.path() + "/";
    const std::string fits = base + std::string(103 - base.size(), 'p');
    ASSERT_EQ(fits.size(), 103u);
    Recorder recorder;
    HookServer good(fits, secret, recorder.handler());
    good.start();
    EXPECT_EQ(HookClient::send(requestFor("A"), fits, secret, 0.4, 5).output.stdoutText,
              "answer to A");

    HookServer tooLong(fits + "p", secret, recorder.handler());
    try {
        tooLong.start();
        FAIL() << "a 104-byte path must not bind";
    } catch (const SystemError& error) {
        EXPECT_EQ(error.code(), ENAMETOOLONG);
    }
    EXPECT_FALSE(tooLong.isRunning());
    EXPECT_FALSE(File::exists(fits + "p"));

    // A failed bind (here: no such directory) leaves the server stopped too.
    HookServer nowhere(dir.file("missing/tw.sock"), secret, recorder.handler());
    EXPECT_THROW(nowhere.start(), SystemError);
    EXPECT_FALSE(nowhere.isRunning());
}

TEST(HookServer, BadRequestsAreClosedWithoutAWord) {
    TemporaryDirectory dir;
    Recorder recorder;
    HookServer server(dir.file("tw.sock"), secret, recorder.handler());
    server.start();
    std::string lastByteWrong = secret;
    lastByteWrong.back() = 'c';
    const std::vector<std::string> bad = {
        R"({"v":2,"secret":")" + secret +
            R"(","agent":"claude","event":"E"})"
            "\n",
        R"({"secret":")" + secret +
            R"(","agent":"claude","event":"E"})"
            "\n",
        R"({"v":1,"secret":")" + secret +
            R"(","agent":"claude"})"
            "\n",
        R"({"v":1,"secret":")" + secret +
            R"(","agent":"claude","event":"E","pid":4294967296})"
            "\n",
        requestLine("E", secret + "b"),
        requestLine("E", secret.substr(1)),
        requestLine("E", lastByteWrong),
        requestLine("E", ""),
        "not json at all\n",
        "[1,2,3]\n",
    };
    for (const std::string& line : bad)
        EXPECT_EQ(testing::exchangeRaw(dir.file("tw.sock"), line), "") << line;
    // The same request with the right secret is answered.
    EXPECT_EQ(testing::exchangeRaw(dir.file("tw.sock"), requestLine("E")),
              "{\"v\":1,\"stdout\":\"answer to E\",\"exit\":2}\n");
    EXPECT_EQ(recorder.requests().size(), 1u);
    try {
        (void)HookClient::send(requestFor("E"), dir.file("tw.sock"), lastByteWrong, 0.4, 5);
        FAIL() << "a wrong secret must not be answered";
    } catch (const HookClient::Failure& failure) {
        EXPECT_EQ(failure.kind(), HookClient::Failure::Kind::protocolError);
    }
}

TEST(HookServer, HandlerFailuresAndUnencodableAnswersReachTheClientAsProtocolErrors) {
    TemporaryDirectory dir;
    HookServer server(dir.file("tw.sock"), secret,
                      [](const HookRequest& request, const ClientProbe&) -> HookResponse {
                          if (request.event == "throw")
                              throw std::runtime_error("handler failed");
                          return HookResponse{HookOutput{"\xFF not text", 0}};
                      });
    server.start();
    EXPECT_EQ(testing::exchangeRaw(dir.file("tw.sock"), requestLine("bad")), "{}\n");
    for (const char* event : {"bad", "throw"}) {
        try {
            (void)HookClient::send(requestFor(event), dir.file("tw.sock"), secret, 0.4, 5);
            FAIL() << event;
        } catch (const HookClient::Failure& failure) {
            EXPECT_EQ(failure.kind(), HookClient::Failure::Kind::protocolError) << event;
        }
    }
    // The server itself carries on.
    EXPECT_TRUE(server.isRunning());
}

TEST(HookServer, ServesConnectionsInParallel) {
    TemporaryDirectory dir;
    constexpr int clients = 16;
    std::mutex mutex;
    std::condition_variable arrived;
    int waiting = 0;
    // Every handler waits until all clients are inside: only one thread per
    // connection lets that happen.
    HookServer server(dir.file("tw.sock"), secret,
                      [&](const HookRequest& request, const ClientProbe&) {
                          std::unique_lock guard(mutex);
                          ++waiting;
                          arrived.notify_all();
                          bool all = arrived.wait_for(guard, std::chrono::seconds(10),
                                                      [&] { return waiting == clients; });
                          return HookResponse{HookOutput{request.event, all ? 0 : 1}};
                      });
    server.start();
    std::vector<std::thread> threads;
    std::vector<HookOutput> outputs(clients);
    for (int i = 0; i < clients; ++i)
        threads.emplace_back([&, i] {
            outputs[i] = HookClient::send(requestFor("event-" + std::to_string(i)),
                                          dir.file("tw.sock"), secret, 0.4, 20)
                             .output;
        });
    for (auto& thread : threads)
        thread.join();
    for (int i = 0; i < clients; ++i)
        EXPECT_EQ(outputs[i], (HookOutput{"event-" + std::to_string(i), 0}));
}

TEST(HookServer, HandlerSeesAVanishedClientThroughItsProbe) {
    TemporaryDirectory dir;
    std::mutex mutex;
    std::condition_variable changed;
    bool holding = false;
    bool stillThereAtFirst = false;
    bool noticed = false;
    HookServer server(dir.file("tw.sock"), secret,
                      [&](const HookRequest&, const ClientProbe& probe) {
                          {
                              std::lock_guard guard(mutex);
                              holding = true;
                              stillThereAtFirst = !probe.isDisconnected();
                          }
                          changed.notify_all();
                          // The broker's rhythm: look again every quarter second at most.
                          for (int i = 0; i < 40 && !probe.isDisconnected(); ++i)
                              std::this_thread::sleep_for(std::chrono::milliseconds(250));
                          {
                              std::lock_guard guard(mutex);
                              noticed = probe.isDisconnected();
                          }
                          changed.notify_all();
                          return HookResponse{};
                      });
    server.start();
    int client = testing::connectRaw(dir.file("tw.sock"));
    ASSERT_GE(client, 0);
    ASSERT_TRUE(Wire::writeAll(client, requestLine("PermissionRequest")));
    std::unique_lock guard(mutex);
    ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(5), [&] { return holding; }));
    EXPECT_TRUE(stillThereAtFirst);
    guard.unlock();
    double taken = testing::secondsTaken([&] {
        ::close(client);
        guard.lock();
        changed.wait_for(guard, std::chrono::seconds(5), [&] { return noticed; });
        guard.unlock();
    });
    guard.lock();
    EXPECT_TRUE(noticed);
    EXPECT_LT(taken, 1.0);
}

TEST(HookServer, DestroyingTheServerReleasesHeldConnections) {
    TemporaryDirectory dir;
    std::atomic<int> holding = 0;
    std::atomic<int> released = 0;
    auto server = std::make_unique<HookServer>(
        dir.file("tw.sock"), secret, [&](const HookRequest&, const ClientProbe& probe) {
            ++holding;
            while (!probe.isDisconnected())
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            ++released;
            return HookResponse{};
        });
    server->start();
    std::vector<int> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(testing::connectRaw(dir.file("tw.sock")));
        ASSERT_TRUE(Wire::writeAll(clients.back(), requestLine("Stop")));
    }
    // A fourth client connects but never sends its line.
    clients.push_back(testing::connectRaw(dir.file("tw.sock")));
    for (int i = 0; i < 500 && holding < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(holding, 3);
    server.reset();
    EXPECT_EQ(released, 3);
    for (int fd : clients)
        ::close(fd);
}

// Runs `body` in a child process as the user "nobody" and returns its exit
// status. The child only makes system calls, as a forked copy of a threaded
// program must.
template <typename Body> int runAsNobody(Body body) {
    pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
            ::setresuid(65534, 65534, 65534) != 0)
            ::_exit(90);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 99;
}

TEST(HookServer, APeerOfAnotherUserGetsNoReplyEvenWithTheSecret) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as a second user";
    TemporaryDirectory dir;
    ::chmod(dir.path().c_str(), 0755);
    Recorder recorder;
    HookServer server(dir.file("tw.sock"), secret, recorder.handler());
    server.start();
    // Let the other user reach the socket at all; only the peer check stands in its way.
    ::chmod(dir.file("tw.sock").c_str(), 0666);
    const std::string line = requestLine("PermissionRequest");
    auto address = *Wire::makeAddress(dir.file("tw.sock"));
    int status = runAsNobody([&] {
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            return 2;
        if (::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
            return 3;
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 5000) != 1)
            return 4;
        // Closed without a reply: end of stream, or a reset because the
        // server never read the line.
        char byte;
        ssize_t got = ::read(fd, &byte, 1);
        return got == 0 || (got < 0 && errno == ECONNRESET) ? 0 : 5;
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(recorder.requests().empty());
    // The same line from this user is answered.
    EXPECT_EQ(testing::exchangeRaw(dir.file("tw.sock"), line),
              "{\"v\":1,\"stdout\":\"answer to PermissionRequest\",\"exit\":2}\n");
}

} // namespace
} // namespace tidewick
