#include "wire/HookClient.h"

#include "wire/Socket.h"
#include "wire/Wire.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace tidewick {

namespace {

const char* sentence(HookClient::Failure::Kind kind) {
    switch (kind) {
    case HookClient::Failure::Kind::notRunning:
        return "Tidewick isn't running.";
    case HookClient::Failure::Kind::noSecret:
        return "Tidewick's secret file is missing or damaged.";
    case HookClient::Failure::Kind::protocolError:
        return "Tidewick didn't send a valid answer.";
    }
    return "Tidewick didn't send a valid answer.";
}

using Kind = HookClient::Failure::Kind;

// Connects, waiting out a full backlog until the deadline. Nothing on success.
std::optional<Kind> connectWithin(int fd, const sockaddr_un& address, double timeoutSeconds) {
    using Steady = std::chrono::steady_clock;
    const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0)
        return Kind::notRunning;
    for (;;) {
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            break;
        // Only a full backlog is worth waiting for; a missing socket file or a
        // refused connection means the application is not there.
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN || Steady::now() >= deadline)
            return Kind::notRunning;
        ::usleep(5000);
    }
    if (::fcntl(fd, F_SETFL, flags) != 0)
        return Kind::notRunning;
    return std::nullopt;
}

// Bounds a write that a stalled listener never drains, so the hook command
// can never hang on a large request.
void limitSending(int fd, double seconds) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(seconds);
    limit.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(limit.tv_sec)) * 1e6);
    (void)::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace

HookClient::Failure::Failure(Kind kind) : std::runtime_error(sentence(kind)), kind_(kind) {}

HookResponse HookClient::send(const HookRequest& request, const std::string& socketPath,
                              std::string_view secret, double connectTimeout,
                              double responseTimeout) {
    Outcome outcome = attempt(request, socketPath, secret, connectTimeout, responseTimeout);
    if (!outcome.response)
        throw Failure(outcome.failure);
    return std::move(*outcome.response);
}

HookClient::Outcome HookClient::attempt(const HookRequest& request, const std::string& socketPath,
                                        std::string_view secret, double connectTimeout,
                                        double responseTimeout) {
    auto failed = [](Kind kind) { return Outcome{std::nullopt, kind}; };
    Socket::Descriptor socket(Socket::openStream());
    if (socket.get() < 0)
        return failed(Kind::notRunning);
    auto address = Wire::makeAddress(socketPath);
    if (!address)
        return failed(Kind::notRunning);
    if (auto failure = connectWithin(socket.get(), *address, connectTimeout))
        return failed(*failure);

    // The /tmp fallback path is predictable, so another user could be
    // listening there: the secret goes only to a listener of our own user.
    auto peer = Socket::peerUserId(socket.get());
    if (!peer || *peer != ::geteuid())
        return failed(Kind::notRunning);

    std::string line = Wire::encode(request, secret);
    limitSending(socket.get(), responseTimeout);
    if (!Wire::writeAll(socket.get(), line))
        return failed(Kind::notRunning);

    auto reply = Wire::readLine(socket.get(), responseTimeout);
    if (!reply)
        return failed(Kind::protocolError);
    auto output = Wire::decodeResponse(*reply);
    if (!output)
        return failed(Kind::protocolError);
    return Outcome{HookResponse{std::move(*output)}, Kind::protocolError};
}

} // namespace tidewick
