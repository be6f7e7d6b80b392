#include "wire/HookServer.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"
#include "wire/HookClient.h"
#include "wire/LineReader.h"
#include "wire/RecordingServer.h"
#include "wire/WireTestSupport.h"

#include <gmock/gmock.h>

namespace tidewick {
namespace {

using ::testing::Property;
using ::testing::Throws;

HookRequest requestFor(const std::string& event) {
    return {.agent = "claude",
            .event = event,
            .payload = JSONValue::parse(R"({"session_id":"s1","tool_input":{"command":"ls"}})"),
            .pid = 99,
            .host = "kitty",
            .agentPid = 98};
}

// What the server sends back to `line` on a connection of its own, within 5 s.
LineReader::Result replyTo(const std::string& path, const std::string& line) {
    const FileDescriptor socket(testing::openRaw(path, testing::RawSocket::connected));
    EXPECT_TRUE(Wire::writeAll(socket.get(), line));
    return LineReader(socket.get()).next(5);
}

// The decoding rules and the client's failures have tests of their own; here, what
// the server does with what it decodes.
TEST(HookServer, AnswersGoodRequestsAndClosesOnEverythingElse) {
    testing::RecordingServer app;
    app.start([](const HookRequest& request, const ClientProbe&) {
        return HookOutput{request.event == "bad" ? "\xFF" : "answer to " + request.event, 2};
    });
    const std::string path = app.paths.socketPath();
    EXPECT_EQ(testing::modeOf(path), 0600);
    auto answered = HookClient::attempt(requestFor("PermissionRequest"), path, app.secret, 0.4, 20);
    ASSERT_TRUE(answered.response);
    EXPECT_EQ(answered.response->output, (HookOutput{"answer to PermissionRequest", 2}));
    EXPECT_EQ(app.requests(), std::vector{requestFor("PermissionRequest")});

    // A malformed line or a wrong secret is never answered, nor handled.
    std::string lastByteWrong = app.secret;
    lastByteWrong.back() ^= 1;
    for (const std::string& line :
         {std::string("not json at all\n"), Wire::encode(requestFor("E"), lastByteWrong)})
        EXPECT_EQ(replyTo(path, line).status, LineReader::Status::closed) << line;
    EXPECT_EQ(app.requests().size(), 1u);
    // An answer that cannot be encoded goes out as the "{}" that clients refuse.
    EXPECT_EQ(replyTo(path, Wire::encode(requestFor("bad"), app.secret)).line, "{}");
}

TEST(HookServer, SocketPathsOfUpTo103BytesBind) {
    TemporaryDirectory dir;
    const std::string fits = dir.path() + "/" + std::string(102 - dir.path().size(), 'p');
    ASSERT_EQ(fits.size(), 103u);
    HookServer good(fits, "k", [](const HookRequest&, const ClientProbe&) {
        return HookResponse{HookOutput{"ok", 0}};
    });
    good.start();
    EXPECT_EQ(HookClient::attempt(requestFor("A"), fits, "k", 0.4, 20).response->output.stdoutText,
              "ok");
    for (const std::string& bad : {fits + "p", dir.path() + "/missing/tw.sock"}) {
        SCOPED_TRACE(bad);
        HookServer server(bad, "k", nullptr);
        EXPECT_THAT([&] { server.start(); },
                    Throws<SystemError>(
                        Property(&SystemError::code, bad.size() > 103 ? ENAMETOOLONG : ENOENT)));
        EXPECT_FALSE(server.isRunning());
        EXPECT_FALSE(File::exists(bad));
    }
}

} // namespace
} // namespace tidewick
