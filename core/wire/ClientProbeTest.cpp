#include "wire/ClientProbe.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace tidewick {
namespace {

TEST(ClientProbe, TellsAWaitingClientFromAGoneOneWithoutConsumingBytes) {
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    ClientProbe probe(fds[0]);
    EXPECT_FALSE(probe.isDisconnected());
    // Stray bytes from a client that is still there are neither taken for a
    // close nor eaten.
    ASSERT_EQ(::write(fds[1], "x", 1), 1);
    EXPECT_FALSE(probe.isDisconnected());
    EXPECT_FALSE(probe.isDisconnected());
    char byte = 0;
    ASSERT_EQ(::recv(fds[0], &byte, 1, MSG_DONTWAIT), 1);
    // A client that only shuts its writing side has ended its stream too.
    ::shutdown(fds[1], SHUT_WR);
    EXPECT_TRUE(probe.isDisconnected());
    ::close(fds[1]);
    ::close(fds[0]);
    EXPECT_TRUE(probe.isDisconnected()) << "an invalid descriptor counts as gone";
}

} // namespace
} // namespace tidewick
