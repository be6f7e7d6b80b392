#include "wire/LocalServer.h"

#include "foundation/SystemError.h"
#include "wire/Socket.h"
#include "wire/Wire.h"

#include <cerrno>
#include <condition_variable>
#include <pthread.h>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace tidewick {

// What the accept thread and the connection threads share. They hold it by
// shared pointer, so it outlives the server object if it must.
struct LocalServer::Connections {
    Connections(StreamHandler handler, Options givenOptions)
        : handler(std::move(handler)), options(std::move(givenOptions)),
          reader(options.reader ? options.reader : RequestReader::shared()) {}

    const StreamHandler handler;
    const Options options;
    const std::shared_ptr<RequestReader> reader;

    std::mutex mutex;
    std::condition_variable finished;
    std::set<int> open; // Descriptors of connections being served.

    void admit(int fd) {
        std::lock_guard guard(mutex);
        open.insert(fd);
    }

    // Closed under the lock so that a concurrent wakeUpAllAndWait() never
    // touches a descriptor number that has already been reused.
    void release(FileDescriptor connection) {
        std::lock_guard guard(mutex);
        open.erase(connection.get());
        connection.reset();
        finished.notify_all();
    }

    void wakeUpAllAndWait() {
        std::unique_lock guard(mutex);
        for (int fd : open)
            ::shutdown(fd, SHUT_RDWR);
        finished.wait(guard, [this] { return open.empty(); });
    }
};

namespace {

void nameThread(const std::string& name) {
    // Linux keeps 15 bytes of a thread name.
    (void)::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
}

// The one-line handler as a streaming one: its answer is the only line written.
LocalServer::StreamHandler answeringOnce(LocalServer::Handler handler) {
    return [handler = std::move(handler)](std::string_view line, LocalServer::Stream& stream) {
        // A client that has gone meanwhile is nobody's concern any more.
        if (std::optional<std::string> answer = handler(line, stream.probe()))
            (void)stream.write(*answer);
    };
}

} // namespace

LocalServer::Stream::Stream(int fd) : probe_(fd) {
    // A client that stops reading must not hold the connection's thread for ever.
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(sendSeconds);
    (void)::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool LocalServer::Stream::write(std::string_view bytes) {
    return Wire::writeAll(probe_.fd(), bytes);
}

void LocalServer::serve(const Connections& connections, int fd, std::string_view line) {
    Stream stream(fd);
    connections.handler(line, stream);
}

void LocalServer::startServing(const std::shared_ptr<Connections>& connections,
                               FileDescriptor connection, RequestReader::Line line) {
    const int fd = connection.release();
    connections->admit(fd);
    try {
        std::thread([connections, fd, line = std::move(line)] {
            FileDescriptor connection(fd);
            nameThread(connections->options.connectionThreadName);
            try {
                serve(*connections, fd, line.text());
            } catch (...) {
                // A failing handler costs only its own connection.
            }
            connections->release(std::move(connection));
        }).detach();
    } catch (const std::system_error&) {
        connections->release(FileDescriptor(fd));
    }
}

void LocalServer::admit(const std::shared_ptr<Connections>& connections,
                        FileDescriptor connection) {
    // Every refusal closes without a word, so a probing client learns nothing.
    auto peer = Socket::peerUserId(connection.get());
    if (!peer || *peer != ::geteuid())
        return;
    RequestReader& reader = *connections->reader;
    // Idle connections must never use up the descriptors the rest of the application
    // needs: the one that has waited longest for its line goes.
    if (!reader.makeDescriptorRoom(connection.get()))
        return;
    reader.add(connections.get(), std::move(connection), connections->options.requestReadSeconds,
               [connections](FileDescriptor ready, RequestReader::Line line) {
                   startServing(connections, std::move(ready), std::move(line));
               });
}

void LocalServer::acceptLoop(std::shared_ptr<Connections> connections, int listener) {
    nameThread(connections->options.threadName);
    for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            // Out of descriptors: a connection still silent makes room; with none to
            // close, pause until connections that finish free some.
            if (errno == EMFILE || errno == ENFILE) {
                if (!connections->reader->closeOldest())
                    ::usleep(10000);
                continue;
            }
            if (errno == ENOBUFS || errno == ENOMEM) {
                ::usleep(10000);
                continue;
            }
            return; // stop() shut the listener down.
        }
        admit(connections, FileDescriptor(fd));
    }
}

LocalServer::LocalServer(std::string socketPath, Handler handler, Options options)
    : LocalServer(std::move(socketPath), answeringOnce(std::move(handler)), std::move(options)) {}

LocalServer::LocalServer(std::string socketPath, StreamHandler handler, Options options)
    : socketPath_(std::move(socketPath)),
      connections_(std::make_shared<Connections>(std::move(handler), std::move(options))) {}

LocalServer::~LocalServer() {
    stop();
    closeConnections();
}

void LocalServer::closeConnections() {
    connections_->reader->cancel(connections_.get());
    connections_->wakeUpAllAndWait();
}

void LocalServer::start() {
    std::lock_guard guard(lock_);
    if (running_)
        return;
    Socket::ignoreBrokenPipes();
    Socket::raiseDescriptorLimit();
    FileDescriptor listener = Socket::openStream();
    if (!listener)
        throw SystemError("socket", socketPath_, errno ? errno : EIO);
    const int fd = listener.get();
    auto fail = [&](const char* call, int error, bool removeFile) {
        if (removeFile)
            ::unlink(socketPath_.c_str());
        throw SystemError(call, socketPath_, error ? error : EIO);
    };
    ::unlink(socketPath_.c_str()); // A stale socket from an earlier run.
    auto address = Wire::makeAddress(socketPath_);
    if (!address)
        fail("bind", ENAMETOOLONG, false);
    // Linux gives the socket file the mode of the socket itself, so the file
    // is owner-only from the moment it appears rather than after the chmod.
    (void)::fchmod(fd, 0600);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0)
        fail("bind", errno, false);
    if (::chmod(socketPath_.c_str(), 0600) != 0)
        fail("chmod", errno, true);
    if (::listen(fd, connections_->options.backlog) != 0)
        fail("listen", errno, true);
    try {
        acceptThread_ = std::thread(acceptLoop, connections_, fd);
    } catch (const std::system_error& error) {
        fail("pthread_create", error.code().value(), true);
    }
    listener_ = std::move(listener);
    running_ = true;
}

void LocalServer::stop() {
    std::lock_guard guard(lock_);
    if (!running_)
        return;
    running_ = false;
    // Shutting the listener down makes the blocked accept() fail, which ends
    // the accept thread; closing comes after the join so the number cannot be
    // reused under it.
    ::shutdown(listener_.get(), SHUT_RDWR);
    if (acceptThread_.joinable())
        acceptThread_.join();
    listener_.reset();
    ::unlink(socketPath_.c_str());
}

bool LocalServer::isRunning() const {
    std::lock_guard guard(lock_);
    return running_;
}

} // namespace tidewick
