#include "wire/Wire.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

struct SocketPair {
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0); }
    ~SocketPair() {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(int i) {
        if (fds[i] >= 0)
            ::close(fds[i]);
        fds[i] = -1;
    }
    int fds[2] = {-1, -1};
};

HookRequest sampleRequest() {
    HookRequest request;
    request.agent = "claude";
    request.event = "PermissionRequest";
    request.payload = JSONValue::parse(R"({"tool":"Bash","text":"two\nlines","n":[1,2.5]})");
    request.pid = 4242;
    request.host = "iterm";
    request.agentPid = -7;
    request.noHold = true;
    return request;
}

std::string withoutNewline(std::string line) {
    EXPECT_EQ(line.back(), '\n');
    line.pop_back();
    return line;
}

TEST(Wire, AddressesUpTo103Bytes) {
    std::string path = "/tmp/" + std::string(98, 's');
    ASSERT_EQ(path.size(), 103u);
    auto address = Wire::makeAddress(path);
    ASSERT_TRUE(address);
    EXPECT_EQ(address->sun_family, AF_UNIX);
    EXPECT_EQ(std::string(address->sun_path), path);
    EXPECT_FALSE(Wire::makeAddress(path + "s"));
}

TEST(Wire, RequestLineCarriesEveryFieldAndDecodesBack) {
    HookRequest request = sampleRequest();
    std::string line = Wire::encode(request, "s3cret");
    EXPECT_EQ(line, "{\"v\":1,\"secret\":\"s3cret\",\"agent\":\"claude\",\"event\":"
                    "\"PermissionRequest\",\"pid\":4242,\"payload\":{\"tool\":\"Bash\",\"text\":"
                    "\"two\\nlines\",\"n\":[1,2.5]},\"host\":\"iterm\",\"agentPid\":-7,"
                    "\"noHold\":true}\n");
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "one line, however the payload looks";
    auto decoded = Wire::decode(withoutNewline(line));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->first, "s3cret");
    EXPECT_EQ(decoded->second, request);

    // Optional fields are left out, and noHold is never written as false.
    HookRequest bare;
    bare.agent = "cursor";
    bare.event = "stop";
    EXPECT_EQ(Wire::encode(bare, "k"),
              "{\"v\":1,\"secret\":\"k\",\"agent\":\"cursor\",\"event\":\"stop\",\"pid\":0,"
              "\"payload\":{}}\n");
    auto back = Wire::decode(withoutNewline(Wire::encode(bare, "k")));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->second, bare);
}

TEST(Wire, DecodingIsStrictOnTheEnvelopeAndLenientOnTheRest) {
    auto decode = [](const std::string& body) {
        return Wire::decode("{\"v\":1,\"secret\":\"s\",\"agent\":\"codex\",\"event\":\"Stop\"" +
                            body + "}");
    };
    // The envelope.
    EXPECT_FALSE(Wire::decode(R"({"v":2,"secret":"s","agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"({"v":"1","secret":"s","agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"({"v":1.0,"secret":"s","agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"({"secret":"s","agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"({"v":1,"secret":"s","agent":"codex"})"));
    EXPECT_FALSE(Wire::decode(R"({"v":1,"secret":5,"agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"({"v":1,"agent":"codex","event":"Stop"})"));
    EXPECT_FALSE(Wire::decode(R"([1])"));
    EXPECT_FALSE(Wire::decode(R"({"v":1,)"));
    EXPECT_FALSE(Wire::decode(""));
    // Process ids that do not fit 32 bits are malformed, not zero.
    EXPECT_FALSE(decode(",\"pid\":2147483648"));
    EXPECT_FALSE(decode(",\"agentPid\":-2147483649"));
    EXPECT_FALSE(decode(",\"pid\":123456789012345678901234567890"));
    ASSERT_TRUE(decode(",\"pid\":-2147483648,\"agentPid\":2147483647"));
    EXPECT_EQ(decode(",\"pid\":-2147483648")->second.pid, INT32_MIN);
    EXPECT_EQ(decode(",\"agentPid\":2147483647")->second.agentPid, INT32_MAX);

    // The rest.
    auto plain = decode("");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->second.payload, JSONValue(JSONValue::Object{}));
    EXPECT_EQ(plain->second.pid, 0);
    EXPECT_FALSE(plain->second.host);
    EXPECT_FALSE(plain->second.agentPid);
    EXPECT_FALSE(plain->second.noHold);
    EXPECT_EQ(decode(",\"noHold\":false")->second, plain->second);
    EXPECT_EQ(
        decode(",\"payload\":[1],\"pid\":\"12\",\"host\":3,\"agentPid\":1.5,\"noHold\":1")->second,
        plain->second);
}

TEST(Wire, ResponseLines) {
    EXPECT_EQ(Wire::encode(HookOutput{"{\"a\":\"x\ny\"}", 2}),
              "{\"v\":1,\"stdout\":\"{\\\"a\\\":\\\"x\\ny\\\"}\",\"exit\":2}\n");
    auto back = Wire::decodeResponse(withoutNewline(Wire::encode(HookOutput{"é\n", -3})));
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, (HookOutput{"é\n", -3}));
    // Text that JSON cannot carry turns into the "{}" that clients refuse.
    EXPECT_EQ(Wire::encode(HookOutput{"\xC3", 0}), "{}\n");

    EXPECT_FALSE(Wire::decodeResponse("{}"));
    EXPECT_FALSE(Wire::decodeResponse(R"({"v":2,"stdout":"x","exit":0})"));
    EXPECT_FALSE(Wire::decodeResponse(R"(["v",1])"));
    EXPECT_FALSE(Wire::decodeResponse("not json"));
    EXPECT_EQ(*Wire::decodeResponse(R"({"v":1})"), HookOutput{});
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
        auto line = Wire::readLine(pair.fds[0], 5);
        writer.join();
        ASSERT_TRUE(line);
        EXPECT_EQ(*line, "{\"a\":1}");
    }
    {
        // A peer that closes after a partial line still delivers it.
        SocketPair pair;
        ASSERT_TRUE(Wire::writeAll(pair.fds[1], "partial"));
        pair.closeEnd(1);
        EXPECT_EQ(Wire::readLine(pair.fds[0], 5), "partial");
    }
    {
        // Closing with nothing sent, or sending nothing in time, gives nothing.
        SocketPair closed;
        closed.closeEnd(1);
        EXPECT_FALSE(Wire::readLine(closed.fds[0], 5));
        SocketPair silent;
        EXPECT_FALSE(Wire::readLine(silent.fds[0], 0.05));
        EXPECT_TRUE(Wire::writeAll(silent.fds[1], "")) << "empty data is written at once";
    }
}

TEST(Wire, ReadLineStopsPastSixteenMebibytes) {
    for (size_t length : {Wire::maxLineBytes, Wire::maxLineBytes + 1}) {
        SocketPair pair;
        std::thread writer([fd = pair.fds[1], length] {
            (void)Wire::writeAll(fd, std::string(length, 'x') + "\n");
        });
        auto line = Wire::readLine(pair.fds[0], 30);
        pair.closeEnd(0); // Unblocks the writer once the reader has given up.
        writer.join();
        if (length == Wire::maxLineBytes) {
            ASSERT_TRUE(line);
            EXPECT_EQ(line->size(), length);
        } else {
            EXPECT_FALSE(line) << "a line of " << length << " bytes";
        }
    }
}

TEST(Wire, WriteAllToAVanishedPeerFailsWithoutSignal) {
    auto previous = std::signal(SIGPIPE, SIG_DFL); // A SIGPIPE would end this test program.
    SocketPair pair;
    pair.closeEnd(0);
    EXPECT_FALSE(Wire::writeAll(pair.fds[1], "hello\n"));
    std::signal(SIGPIPE, previous);
}

TEST(Wire, SecretsMustMatchByteForByte) {
    const std::string secret(64, 'a');
    EXPECT_TRUE(Wire::secretsMatch(secret, secret));
    EXPECT_FALSE(Wire::secretsMatch(secret, secret + "a"));
    EXPECT_FALSE(Wire::secretsMatch(secret, secret.substr(1)));
    EXPECT_FALSE(Wire::secretsMatch(secret, std::string(63, 'a') + "b"));
    EXPECT_FALSE(Wire::secretsMatch(secret, "b" + std::string(63, 'a')));
    EXPECT_FALSE(Wire::secretsMatch(secret, ""));
}

} // namespace
} // namespace tidewick
