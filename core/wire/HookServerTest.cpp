#include "wire/HookServer.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"
#include "wire/HookClient.h"
#include "wire/WireTestSupport.h"

#include <gmock/gmock.h>

#include <mutex>
#include <sys/stat.h>

namespace tidewick {
namespace {

using ::testing::Property;
using ::testing::Throws;

const std::string secret = std::string(32, 'a') + std::string(32, 'b');

HookRequest requestFor(const std::string& event) {
    return {.agent = "claude",
            .event = event,
            .payload = JSONValue::parse(R"({"session_id":"s1","tool_input":{"command":"ls"}})"),
            .pid = 99,
            .host = "kitty",
            .agentPid = 98};
}

std::string requestLine(const std::string& event, const std::string& withSecret = secret) {
    return Wire::encode(requestFor(event), withSecret);
}

HookClient::Outcome sendTo(const std::string& path, const std::string& event,
                           const std::string& withSecret = secret) {
    return HookClient::attempt(requestFor(event), path, withSecret, 0.4, 20);
}

// A server in a temporary directory whose handler records each request and
// answers "answer to <event>" with exit code 2; the event "throw" throws and
// "bad" answers text that is not UTF-8.
class HookServerTest : public ::testing::Test {
protected:
    std::vector<HookRequest> requests() {
        std::lock_guard guard(mutex_);
        return requests_;
    }

    TemporaryDirectory dir_;
    const std::string path_ = dir_.path() + "/tw.sock";
    std::mutex mutex_;
    std::vector<HookRequest> requests_;
    HookServer server_{path_, secret, [this](const HookRequest& request, const ClientProbe&) {
                           if (request.event == "throw")
                               throw std::runtime_error("handler failed");
                           std::lock_guard guard(mutex_);
                           requests_.push_back(request);
                           return HookResponse{HookOutput{
                               request.event == "bad" ? "\xFF" : "answer to " + request.event, 2}};
                       }};
};

TEST_F(HookServerTest, AnswersGoodRequestsAndClosesOnEverythingElse) {
    server_.start();
    EXPECT_EQ(testing::modeOf(path_), 0600);
    auto answered = sendTo(path_, "PermissionRequest");
    ASSERT_TRUE(answered.response);
    EXPECT_EQ(answered.response->output, (HookOutput{"answer to PermissionRequest", 2}));
    ASSERT_EQ(requests().size(), 1u);
    EXPECT_EQ(requests()[0], requestFor("PermissionRequest"));
    // Requests that leave out optional fields are served too.
    const std::string head = R"({"v":1,"secret":")" + secret + R"(","agent":"x")";
    EXPECT_EQ(testing::exchangeRaw(path_, head + ",\"event\":\"E\"}\n"),
              "{\"v\":1,\"stdout\":\"answer to E\",\"exit\":2}\n");
    EXPECT_EQ(requests().at(1).payload, JSONValue(JSONValue::Object{}));

    std::string lastByteWrong = secret;
    lastByteWrong.back() = 'c';
    // Malformed lines (the decoding rules have their own test) and every near
    // miss of the secret.
    for (const std::string& line :
         {head + "}\n", std::string("not json at all\n"), requestLine("E", secret + "b"),
          requestLine("E", secret.substr(1)), requestLine("E", lastByteWrong),
          requestLine("E", "b" + secret.substr(1)), requestLine("E", "")})
        EXPECT_EQ(testing::exchangeRaw(path_, line), "") << line;
    EXPECT_EQ(requests().size(), 2u);
    // A handler that fails or answers what cannot be encoded: the client
    // sees a protocol error, and the server carries on.
    EXPECT_EQ(testing::exchangeRaw(path_, requestLine("bad")), "{}\n");
    for (auto [event, withSecret] :
         {std::pair{"E", lastByteWrong}, {"bad", secret}, {"throw", secret}}) {
        auto outcome = sendTo(path_, event, withSecret);
        EXPECT_FALSE(outcome.response) << event;
        EXPECT_EQ(outcome.failure, HookClient::Failure::Kind::protocolError) << event;
    }
    EXPECT_TRUE(server_.isRunning());
}

TEST_F(HookServerTest, SocketPathsOfUpTo103BytesBind) {
    const std::string fits = dir_.path() + "/" + std::string(102 - dir_.path().size(), 'p');
    ASSERT_EQ(fits.size(), 103u);
    HookServer good(fits, secret, [](const HookRequest&, const ClientProbe&) {
        return HookResponse{HookOutput{"ok", 0}};
    });
    good.start();
    EXPECT_EQ(sendTo(fits, "A").response->output.stdoutText, "ok");
    for (const std::string& bad : {fits + "p", dir_.path() + "/missing/tw.sock"}) {
        SCOPED_TRACE(bad);
        HookServer server(bad, secret, nullptr);
        EXPECT_THAT([&] { server.start(); },
                    Throws<SystemError>(
                        Property(&SystemError::code, bad.size() > 103 ? ENAMETOOLONG : ENOENT)));
        EXPECT_FALSE(server.isRunning());
        EXPECT_FALSE(File::exists(bad));
    }
}

TEST_F(HookServerTest, APeerOfAnotherUserGetsNoReplyEvenWithTheSecret) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to act as a second user";
    ::chmod(dir_.path().c_str(), 0755);
    server_.start();
    // Let the other user reach the socket at all; only the peer check stands in its way.
    ::chmod(path_.c_str(), 0666);
    const std::string line = requestLine("PermissionRequest");
    auto address = *Wire::makeAddress(path_);
    int status = testing::runAsNobody([&] {
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            return 2;
        // The server may already have closed, failing the write: as good as no reply.
        if (::send(fd, line.data(), line.size(), MSG_NOSIGNAL) < 0)
            return errno == EPIPE || errno == ECONNRESET ? 0 : 3;
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
    EXPECT_TRUE(requests().empty());
    EXPECT_TRUE(sendTo(path_, "PermissionRequest").response) << "this user is answered";
}

} // namespace
} // namespace tidewick
