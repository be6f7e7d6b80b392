// Helpers shared by the socket tests: temporary directories, raw clients and
// listeners that speak (or break) the protocol on purpose.
#pragma once

#include "wire/Socket.h"
#include "wire/Wire.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tidewick::testing {

/// A fresh directory under /tmp, removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        char pattern[] = "/tmp/tw-wire-XXXXXX";
        path_ = ::mkdtemp(pattern);
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// A connected raw client socket, or -1.
inline int connectRaw(const std::string& path) {
    int fd = Socket::openStream();
    auto address = Wire::makeAddress(path);
    if (fd < 0 || !address)
        return -1;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

/// A socket bound and listening at `path`, or -1.
inline int listenRaw(const std::string& path, int backlog = 8) {
    int fd = Socket::openStream();
    auto address = Wire::makeAddress(path);
    if (fd < 0 || !address)
        return -1;
    ::unlink(path.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        ::listen(fd, backlog) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

/// Sends `line` on a new connection and returns everything the server sent
/// before closing (empty when it closed without a word); nothing when the
/// connection failed or the server neither answered nor closed in 5 s.
inline std::optional<std::string> exchangeRaw(const std::string& path, const std::string& line) {
    int fd = connectRaw(path);
    if (fd < 0)
        return std::nullopt;
    Socket::Descriptor guard(fd);
    if (!Wire::writeAll(fd, line))
        return std::nullopt;
    std::string received;
    char buffer[4096];
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 5000) <= 0)
            return std::nullopt;
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got <= 0)
            return received;
        received.append(buffer, static_cast<size_t>(got));
    }
}

/// A one-connection server that reads the request line, then sends `reply`
/// verbatim (nothing when it is empty) and either closes or keeps the
/// connection open until the test ends.
class FakeServer {
public:
    enum class After { close, hold };

    FakeServer(std::string path, std::string reply, After after = After::close)
        : listener_(testing::listenRaw(path)) {
        EXPECT_GE(listener_, 0);
        EXPECT_EQ(::pipe(stop_), 0);
        thread_ = std::thread([this, reply = std::move(reply), after] {
            int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0)
                return;
            received_ = Wire::readLine(fd, 5);
            if (!reply.empty())
                (void)Wire::writeAll(fd, reply);
            if (after == After::hold) {
                pollfd entry{stop_[0], POLLIN, 0};
                (void)::poll(&entry, 1, 10000);
            }
            ::close(fd);
        });
    }
    ~FakeServer() { finish(); }

    /// Lets the connection go and returns the request line that arrived.
    std::optional<std::string> finish() {
        if (thread_.joinable()) {
            (void)::write(stop_[1], "x", 1);
            thread_.join();
            ::close(listener_);
            ::close(stop_[0]);
            ::close(stop_[1]);
        }
        return received_;
    }

private:
    int listener_;
    int stop_[2] = {-1, -1};
    std::thread thread_;
    std::optional<std::string> received_;
};

/// Seconds elapsed while running `body`.
template <typename Body> double secondsTaken(Body&& body) {
    auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace tidewick::testing
