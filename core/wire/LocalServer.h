// A local line server: accepts connections on a Unix-domain socket, lets in
// only processes of this user, reads one bounded request line, hands it to the
// handler on the connection's own thread and writes the handler's answer line,
// or, for a streaming handler, as many lines as it writes while the client
// stays. The hook socket and the control socket are both built on it. Request
// lines are read by the process's RequestReader, on one thread for every
// connection that has not sent its line yet, within its bounds on memory and
// descriptors.
#pragma once

#include "foundation/FileDescriptor.h"
#include "wire/ClientProbe.h"
#include "wire/RequestReader.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace tidewick {

class LocalServer {
public:
    /// Answers one request line (given without its line feed). Called on the
    /// connection's own thread, concurrently with other connections; it may
    /// block as long as it needs, and `probe` tells whether the client still
    /// waits. The answer is written as it is (it should end in a line feed);
    /// nothing, or an exception, closes the connection without a reply.
    using Handler =
        std::function<std::optional<std::string>(std::string_view line, const ClientProbe& probe)>;

    /// The open connection a streaming handler writes its lines to.
    class Stream {
    public:
        /// How long one write may wait for a client that reads nothing before it fails.
        static constexpr double sendSeconds = 10.0;

        /// A stream on the server side of connection `fd`, which stays owned by the server.
        explicit Stream(int fd);

        /// Tells whether the client has gone; its fd() is the connection, for poll().
        [[nodiscard]] const ClientProbe& probe() const { return probe_; }
        /// Writes `bytes` whole (lines should end in a line feed). False once the client
        /// has gone, the server has cut the connection off, or the client has left the
        /// connection unread for sendSeconds; the stream is then of no further use.
        [[nodiscard]] bool write(std::string_view bytes);

    private:
        ClientProbe probe_;
    };

    /// Answers one request line (given without its line feed) by writing to `stream` for
    /// as long as it likes, on the connection's own thread; returning, or an exception,
    /// closes the connection. It must return soon once the probe reports the client gone.
    using StreamHandler = std::function<void(std::string_view line, Stream& stream)>;

    struct Options {
        /// Name of the accepting thread (the system shows its first 15 bytes).
        std::string threadName = "tidewick.server";
        /// Name of each connection's thread.
        std::string connectionThreadName = "tidewick.connection";
        /// Connections waiting to be accepted before clients see a full backlog.
        int backlog = 32;
        /// How long a connected client has to send its request line.
        double requestReadSeconds = 10.0;
        /// Reads the request lines; none: the one the process shares.
        std::shared_ptr<RequestReader> reader;
    };

    /// A stopped server for `socketPath` answering each request with one line.
    LocalServer(std::string socketPath, Handler handler, Options options);
    /// A stopped server for `socketPath` whose handler writes what it likes.
    LocalServer(std::string socketPath, StreamHandler handler, Options options);
    /// Stops the server, wakes every connection still open (its probe then
    /// reports the client gone) and waits until their threads have finished.
    ~LocalServer();
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    /// Replaces any file at the socket path with a listening socket of mode
    /// 0600 and starts accepting; raises the process's soft descriptor limit to
    /// its hard limit first. Does nothing when already running. Throws
    /// SystemError naming the failed call (ENAMETOOLONG for a path over 103
    /// bytes); the server is then left stopped with nothing open.
    void start();

    /// Stops accepting and removes the socket file. Connections being served
    /// finish their exchange. Does nothing when stopped.
    void stop();

    /// Wakes every connection still being served (its probe reports the client
    /// gone, its reply is lost) and waits until their threads have finished.
    void closeConnections();

    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] const std::string& socketPath() const { return socketPath_; }

private:
    struct Connections;
    static void acceptLoop(std::shared_ptr<Connections> connections, int listener);
    /// Hands a connection just accepted to the reader, or closes it (another user, no
    /// descriptor to spare).
    static void admit(const std::shared_ptr<Connections>& connections, FileDescriptor connection);
    static void startServing(const std::shared_ptr<Connections>& connections,
                             FileDescriptor connection, RequestReader::Line line);
    static void serve(const Connections& connections, int fd, std::string_view line);

    std::string socketPath_;
    std::shared_ptr<Connections> connections_;
    mutable std::mutex lock_; // Guards listener_, running_ and acceptThread_.
    FileDescriptor listener_;
    bool running_ = false;
    std::thread acceptThread_;
};

} // namespace tidewick
