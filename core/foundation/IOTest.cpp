#include "foundation/IO.h"

#include "foundation/FileDescriptor.h"
#include "foundation/SystemError.h"
#include "testing/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace ::testing;

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        in.reset(ends[0]);
        out.reset(ends[1]);
    }
    FileDescriptor in;  // the end to read
    FileDescriptor out; // the end to write
};

std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>('a' + i % 26);
    return text;
}

TEST(IOTest, ReadsToTheEndOrTheLimitWhateverTheSource) {
    TemporaryDirectory scratch;
    const std::string big = pattern(300000); // several reads, past any first guess
    const std::string path = scratch.path() + "/big";
    {
        FileDescriptor file = FileDescriptor::open(path, O_WRONLY | O_CREAT, 0600);
        IO::writeAll(file.get(), big, path);
    }
    FileDescriptor file = FileDescriptor::open(path, O_RDONLY);
    EXPECT_EQ(IO::readAll(file.get(), IO::noLimit, path), big);
    EXPECT_EQ(IO::readAll(file.get(), IO::noLimit, path), "") << "already at the end";

    Pipe pipe;
    std::thread writer([&] {
        IO::writeAll(pipe.out.get(), big, "pipe");
        pipe.out.reset();
    });
    EXPECT_EQ(IO::readAll(pipe.in.get(), 100000, "pipe"), big.substr(0, 100000));
    EXPECT_EQ(IO::readAll(pipe.in.get(), 0, "pipe"), "");
    EXPECT_EQ(IO::readAll(pipe.in.get(), IO::noLimit, "pipe"), big.substr(100000))
        << "what passed the limit is left to read";
    writer.join();

    FileDescriptor proc = FileDescriptor::open("/proc/self/stat", O_RDONLY);
    EXPECT_EQ(IO::readAll(proc.get(), IO::noLimit, "stat").find(std::to_string(::getpid())), 0u)
        << "a file that says it is empty is still read";
}

extern "C" void interruptOnly(int) {}

TEST(IOTest, CarriesOnThroughInterruptedCalls) {
    // A handler without SA_RESTART: blocked reads and writes fail with EINTR.
    struct sigaction action {}, previous{};
    action.sa_handler = interruptOnly;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
    const std::string data = pattern(4 << 20);
    Pipe pipe;
    std::string received;
    std::thread reader([&] { received = IO::readAll(pipe.in.get(), IO::noLimit, "pipe"); });
    // The reader waits on an empty pipe: every signal interrupts its read.
    for (int i = 0; i < 50; ++i) {
        ::pthread_kill(reader.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // The writer waits on a full pipe: the signals interrupt its writes.
    std::atomic<bool> done = false;
    const pthread_t writer = ::pthread_self();
    std::thread interrupter([&] {
        while (!done) {
            ::pthread_kill(writer, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    IO::writeAll(pipe.out.get(), data, "pipe");
    done = true;
    interrupter.join();
    pipe.out.reset();
    reader.join();
    ::sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(received.size(), data.size());
    EXPECT_TRUE(received == data);
}

TEST(IOTest, FailuresNameTheCallAndASocketPeerGoneRaisesNoSignal) {
    FileDescriptor writeOnly = FileDescriptor::open("/dev/null", O_WRONLY);
    EXPECT_THAT([&] { (void)IO::readAll(writeOnly.get(), IO::noLimit, "/dev/null"); },
                ThrowsMessage<SystemError>("read(/dev/null): Bad file descriptor"));

    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    FileDescriptor mine(ends[0]);
    ::close(ends[1]);
    auto previous = std::signal(SIGPIPE, SIG_DFL); // a SIGPIPE would end this test program
    EXPECT_THAT([&] { IO::sendAll(mine.get(), "to nobody", "socket"); },
                Throws<SystemError>(
                    AllOf(Property(&SystemError::code, EPIPE),
                          Property(&SystemError::what, StrEq("send(socket): Broken pipe")))));
    std::signal(SIGPIPE, previous);
}

} // namespace
} // namespace tidewick
