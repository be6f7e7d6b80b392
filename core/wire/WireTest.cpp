#include "wire/Wire.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tidewick {
namespace {

// Closing an end twice is harmless: the second close gets -1.
struct SocketPair {
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0); }
    ~SocketPair() {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(int i) { ::close(std::exchange(fds[i], -1)); }
    int fds[2] = {-1, -1};
};

std::string withoutNewline(std::string line) {
    EXPECT_EQ(line.back(), '\n');
    line.pop_back();
    return line;
}

TEST(Wire, RequestLinesRoundTripByteExactly) {
    const HookRequest request{
        .agent = "claude",
        .event = "PermissionRequest",
        .payload = JSONValue::parse(R"({"tool":"Bash","text":"two\nlines","n":[1,2.5]})"),
        .pid = 4242,
        .host = "iterm",
        .agentPid = -7,
        .tmuxPane = "%3",
        .tmuxSocket = "/tmp/tmux-0/default",
        .noHold = true};
    std::string line = Wire::encode(request, "s3cret");
    EXPECT_EQ(line, "{\"v\":1,\"secret\":\"s3cret\",\"agent\":\"claude\",\"event\":"
                    "\"PermissionRequest\",\"pid\":4242,\"payload\":{\"tool\":\"Bash\",\"text\":"
                    "\"two\\nlines\",\"n\":[1,2.5]},\"host\":\"iterm\",\"agentPid\":-7,"
                    "\"tmuxPane\":\"%3\",\"tmuxSocket\":\"/tmp/tmux-0/default\",\"noHold\":true}\n");
    EXPECT_EQ(Wire::decode(withoutNewline(line), "s3cret"), request);

    // Optional fields are left out, and noHold is never written as false.
    HookRequest bare;
    bare.agent = "cursor";
    bare.event = "stop";
    line = Wire::encode(bare, "k");
    EXPECT_EQ(line, "{\"v\":1,\"secret\":\"k\",\"agent\":\"cursor\",\"event\":\"stop\",\"pid\":0,"
                    "\"payload\":{}}\n");
    EXPECT_EQ(Wire::decode(withoutNewline(line), "k"), bare);
}

TEST(Wire, DecodingIsStrictOnTheEnvelopeAndLenientOnTheRest) {
    const std::string envelope = R"({"v":1,"secret":"s","agent":"codex","event":"Stop")";
    for (const std::string& rejected :
         {std::string(R"({"v":2,"secret":"s","agent":"codex","event":"Stop"})"),
          std::string(R"({"v":"1","secret":"s","agent":"codex","event":"Stop"})"),
          std::string(R"({"v":1.0,"secret":"s","agent":"codex","event":"Stop"})"),
          std::string(R"({"secret":"s","agent":"codex","event":"Stop"})"),
          std::string(R"({"v":1,"secret":"s","agent":"codex"})"),
          std::string(R"({"v":1,"secret":5,"agent":"codex","event":"Stop"})"),
          std::string(R"({"v":1,"agent":"codex","event":"Stop"})"), std::string("[1]"),
          std::string(R"({"v":1,)"), std::string(),
          // Process ids that do not fit 32 bits are malformed, not zero.
          envelope + R"(,"pid":2147483648})", envelope + R"(,"agentPid":-2147483649})",
          envelope + R"(,"pid":99999999999999999999})",
          // A secret that differs in its length or its last byte.
          std::string(R"({"v":1,"secret":"ss","agent":"codex","event":"Stop"})"),
          std::string(R"({"v":1,"secret":"t","agent":"codex","event":"Stop"})")})
        EXPECT_FALSE(Wire::decode(rejected, "s")) << rejected;
    auto limits = Wire::decode(envelope + R"(,"pid":-2147483648,"agentPid":2147483647})", "s");
    ASSERT_TRUE(limits);
    EXPECT_EQ(limits->pid, INT32_MIN);
    EXPECT_EQ(limits->agentPid, INT32_MAX);

    // Other fields of the wrong type count as absent.
    auto plain = Wire::decode(envelope + "}", "s");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->payload, JSONValue(JSONValue::Object{}));
    EXPECT_FALSE(plain->host || plain->agentPid || plain->noHold);
    EXPECT_EQ(Wire::decode(
                  envelope + R"(,"payload":[1],"pid":"12","host":3,"agentPid":1.5,"noHold":1})",
                  "s"),
              plain);
}

TEST(Wire, ResponseLines) {
    EXPECT_EQ(Wire::encode(HookOutput{"{\"a\":\"x\ny\"}", 2}),
              "{\"v\":1,\"stdout\":\"{\\\"a\\\":\\\"x\\ny\\\"}\",\"exit\":2}\n");
    EXPECT_EQ(*Wire::decodeResponse(withoutNewline(Wire::encode(HookOutput{"é\n", -3}))),
              (HookOutput{"é\n", -3}));
    // Text that JSON cannot carry turns into the "{}" that clients refuse.
    EXPECT_EQ(Wire::encode(HookOutput{"\xC3", 0}), "{}\n");
    for (const char* rejected : {"{}", R"({"v":2,"stdout":"x","exit":0})", R"(["v",1])", "no"})
        EXPECT_FALSE(Wire::decodeResponse(rejected)) << rejected;
    EXPECT_EQ(*Wire::decodeResponse(R"({"v":1,"stdout":7,"exit":"2"})"), HookOutput{});
}

TEST(Wire, ReadLineFramesOneLine) {
    {
        // Several small writes, and bytes after the line feed are dropped.
        SocketPair pair;
        std::thread writer([fd = pair.fds[1]] {
            for (const char* piece : {"{\"a\"", ":", "1}", "\nleftover", "\nmore\n"}) {
                EXPECT_TRUE(Wire::writeAll(fd, piece));
                ::usleep(2000);
            }
        });
        EXPECT_EQ(Wire::readLine(pair.fds[0], 5), "{\"a\":1}");
        writer.join();
    }
    // A peer that closes after a partial line still delivers it; closing
    // with nothing sent, or sending nothing in time, gives nothing.
    SocketPair partial, closed, silent;
    ASSERT_TRUE(Wire::writeAll(partial.fds[1], "partial"));
    partial.closeEnd(1);
    closed.closeEnd(1);
    EXPECT_EQ(Wire::readLine(partial.fds[0], 5), "partial");
    EXPECT_FALSE(Wire::readLine(closed.fds[0], 5));
    EXPECT_FALSE(Wire::readLine(silent.fds[0], 0.05));

    // At most 16 MiB, line feed not counted.
    for (size_t length : {Wire::maxLineBytes, Wire::maxLineBytes + 1}) {
        SocketPair pair;
        std::thread writer([fd = pair.fds[1], length] {
            (void)Wire::writeAll(fd, std::string(length, 'x') + "\n");
        });
        auto line = Wire::readLine(pair.fds[0], 30);
        pair.closeEnd(0); // Unblocks the writer once the reader has given up.
        writer.join();
        EXPECT_EQ(line.has_value(), length == Wire::maxLineBytes) << length;
    }
}

TEST(Wire, WriteAllToAVanishedPeerFailsWithoutSignal) {
    auto previous = std::signal(SIGPIPE, SIG_DFL); // A SIGPIPE would end this test program.
    SocketPair pair;
    pair.closeEnd(0);
    EXPECT_FALSE(Wire::writeAll(pair.fds[1], "hello\n"));
    std::signal(SIGPIPE, previous);
}

} // namespace
} // namespace tidewick
