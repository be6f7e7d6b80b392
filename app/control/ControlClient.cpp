#include "control/ControlClient.h"

#include "wire/LocalClient.h"
#include "wire/Wire.h"

namespace tidewick {

namespace {

// How long connecting may wait out a full backlog.
constexpr double connectSeconds = 1.0;

// Nobody answered a connection that was accepted: an application of protocol 1 closes
// requests of later versions without a word. Asking it something it knows tells it apart
// from a wrong secret or a stalled application.
[[noreturn]] void unanswered(const TidewickPaths& paths, const std::string& secret) {
    const LocalClient::Result probe =
        LocalClient::exchange(paths.controlSocketPath(),
                              ControlProtocol::encodeFirstVersionProbe(secret), connectSeconds,
                              ControlClient::replySeconds);
    if (probe.line)
        if (auto envelope = ControlProtocol::decodeEnvelope(*probe.line);
            envelope && envelope->version == 1)
            throw ControlClient::VersionMismatch(
                ControlProtocol::versionMismatchSentence(ControlProtocol::version, 1));
    throw ControlClient::NotRunning();
}

// The reply a line carries; throws when it is of another version or no reply at all.
ControlReply replyIn(const std::string& line) {
    const auto envelope = ControlProtocol::decodeEnvelope(line);
    if (!envelope)
        throw ControlClient::NotRunning();
    if (envelope->version != ControlProtocol::version)
        throw ControlClient::VersionMismatch(envelope->message.value_or(
            ControlProtocol::versionMismatchSentence(ControlProtocol::version, envelope->version)));
    auto reply = ControlProtocol::decodeReply(line);
    if (!reply)
        throw ControlClient::NotRunning();
    return std::move(*reply);
}

} // namespace

ControlClient::NotRunning::NotRunning() : std::runtime_error(notRunningSentence) {}

ControlReply ControlClient::send(const ControlRequest& request, const TidewickPaths& paths) {
    // Without a secret no application can have started for these paths.
    auto secret = paths.secretIfReadable();
    if (!secret)
        throw NotRunning();
    const std::string line = ControlProtocol::encode(request, *secret);
    LocalClient::Result result =
        LocalClient::exchange(paths.controlSocketPath(), line, connectSeconds, replySeconds);
    if (!result.line && result.failure == LocalClient::Failure::noAnswer)
        unanswered(paths, *secret);
    if (!result.line)
        throw NotRunning();
    return replyIn(*result.line);
}

ControlClient::Subscription ControlClient::subscribe(const TidewickPaths& paths) {
    auto secret = paths.secretIfReadable();
    if (!secret)
        throw NotRunning();
    ControlRequest request;
    request.command = ControlCommand::subscribe;
    Subscription subscription{LocalClient::connect(paths.controlSocketPath(), connectSeconds),
                              nullptr};
    if (!subscription.socket ||
        !Wire::writeAll(subscription.socket.get(), ControlProtocol::encode(request, *secret)))
        throw NotRunning();
    subscription.lines = std::make_unique<LineReader>(subscription.socket.get());
    LineReader::Result first = subscription.lines->next(replySeconds);
    if (first.status != LineReader::Status::line)
        unanswered(paths, *secret);
    const ControlReply reply = replyIn(first.line);
    if (reply.outcome != ControlOutcome::done)
        throw NotRunning();
    return subscription;
}

} // namespace tidewick
