#include "control/ControlServer.h"

#include "control/SessionMatcher.h"
#include "foundation/FileDescriptor.h"
#include "foundation/SystemError.h"
#include "sessions/SessionText.h"
#include "wire/Wire.h"

#include <cerrno>
#include <deque>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tidewick {

namespace {

/// Lines are gathered up to this size before they are written.
constexpr std::size_t writeBatchBytes = 64 * 1024;

ControlReply failure(ControlOutcome outcome, std::string message) {
    ControlReply reply;
    reply.outcome = outcome;
    reply.message = std::move(message);
    return reply;
}

bool isDecision(ControlCommand command) {
    switch (command) {
    case ControlCommand::allow:
    case ControlCommand::deny:
    case ControlCommand::reply:
    case ControlCommand::letStop:
    case ControlCommand::allowAlways:
    case ControlCommand::answer:
        return true;
    case ControlCommand::sessions:
    case ControlCommand::pending:
    case ControlCommand::subscribe:
    case ControlCommand::transcriptStep:
    case ControlCommand::pause:
    case ControlCommand::resume:
    case ControlCommand::setting:
    case ControlCommand::forget:
    case ControlCommand::forgetAll:
    case ControlCommand::continueSession:
    case ControlCommand::end:
        return false;
    }
    return false;
}

// The reply to a pause, a setting or forgetting: the sentence either way.
ControlReply replyFor(const ControlResult& result) {
    ControlReply reply;
    reply.outcome = result.isDone() ? ControlOutcome::done : ControlOutcome::refused;
    reply.message = result.sentence;
    return reply;
}

// The requests that change the application rather than answer an agent; nothing for others.
std::optional<ControlReply> control(const ControlRequest& request, ApplicationControls& target) {
    switch (request.command) {
    case ControlCommand::pause:
        return replyFor(target.pause(request.until));
    case ControlCommand::resume:
        return replyFor(target.resume());
    case ControlCommand::setting:
        if (request.setting.empty())
            return failure(ControlOutcome::badRequest, "Name the setting to change.");
        return replyFor(target.changeSetting(request.setting, request.text, request.change));
    case ControlCommand::forgetAll:
        return replyFor(target.forgetAll());
    default:
        return std::nullopt;
    }
}

using Delivery = SessionActions::Delivery;

Delivery deliveredIf(bool delivered) {
    return {delivered ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, {}};
}

// Hands the decision over and says how it went.
Delivery deliver(const ControlRequest& request, const SessionKey& key, SessionActions& target) {
    switch (request.command) {
    case ControlCommand::allow:
        return deliveredIf(
            target.answerPermission(key, SessionActions::Answer::allow, std::nullopt));
    case ControlCommand::deny:
        return deliveredIf(
            target.answerPermission(key, SessionActions::Answer::deny, request.message));
    case ControlCommand::reply:
        return deliveredIf(target.reply(key, request.text));
    case ControlCommand::letStop:
        return deliveredIf(target.letStop(key));
    case ControlCommand::allowAlways:
        return target.allowAlways(key, request.rule);
    case ControlCommand::answer:
        return target.answerQuestions(key, request.answers);
    default:
        break;
    }
    return deliveredIf(false);
}

// Whether the first permission request `key` holds asks questions.
bool asksQuestions(const std::vector<Session>& known, const SessionKey& key) {
    for (const Session& session : known)
        if (session.key == key)
            for (const PendingRequest& request : session.pending)
                if (request.kind == PendingKind::permission)
                    return request.isQuestion();
    return false;
}

std::string notDelivered(const ControlRequest& request, const SessionKey& key,
                         const std::vector<Session>& known,
                         const std::map<std::string, std::string>& shortIds) {
    const std::string who = describeSession(key, shortIds);
    switch (request.command) {
    case ControlCommand::allow:
        if (asksQuestions(known, key))
            return SessionText::answerInstead(key.agent);
        return SessionText::noPermissionRequest(who);
    case ControlCommand::deny:
    case ControlCommand::allowAlways:
        return SessionText::noPermissionRequest(who);
    case ControlCommand::answer:
        return SessionText::noQuestionWaiting(who);
    default:
        return SessionText::noReplyWaiting(who);
    }
}

// The reply for a decision that did not simply reach the agent.
void noteDelivery(ControlReply& reply, const Delivery& delivery, const ControlRequest& request,
                  const std::vector<Session>& known) {
    switch (delivery.kind) {
    case Delivery::Kind::delivered:
        if (!delivery.sentence.empty())
            reply.message = delivery.sentence;
        return;
    case Delivery::Kind::nothingHeld:
        reply.outcome = ControlOutcome::notDelivered;
        reply.message = notDelivered(request, *reply.session, known, reply.shortIds);
        return;
    case Delivery::Kind::refused:
        reply.outcome = ControlOutcome::notDelivered;
        reply.message = delivery.sentence;
        return;
    case Delivery::Kind::badAnswer:
        reply.outcome = ControlOutcome::badRequest;
        reply.message = delivery.sentence;
        return;
    }
}

/// The events one subscriber has still to be sent: filled by the application's watcher,
/// which it never holds up, and emptied by the subscriber's connection thread, which the
/// eventfd wakes.
class Subscriber {
public:
    /// For the subscriber on `connection`, which stays open while this lives.
    explicit Subscriber(int connection)
        : connection_(connection), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!wake_)
            throw SystemError("eventfd", "a control subscription", errno);
    }

    [[nodiscard]] int fd() const { return wake_.get(); }

    void push(ControlEvent event) {
        std::lock_guard guard(lock_);
        if (behind_)
            return;
        if (queue_.size() >= ControlServer::subscriberBacklog) {
            behind_ = true;
            queue_.clear();
            // Its thread may be stuck writing to a subscriber that reads nothing.
            ::shutdown(connection_, SHUT_RDWR);
        } else {
            queue_.push_back(std::move(event));
        }
        const std::uint64_t one = 1;
        (void)!::write(wake_.get(), &one, sizeof one);
    }

    /// The events waiting; nothing once the subscriber has fallen too far behind.
    [[nodiscard]] std::optional<std::deque<ControlEvent>> take() {
        std::uint64_t count = 0;
        (void)!::read(wake_.get(), &count, sizeof count);
        std::lock_guard guard(lock_);
        if (behind_)
            return std::nullopt;
        return std::exchange(queue_, {});
    }

private:
    const int connection_;
    const FileDescriptor wake_;
    std::mutex lock_;
    std::deque<ControlEvent> queue_;
    bool behind_ = false;
};

/// Gathers lines and writes them in batches; false once a write failed.
class BatchWriter {
public:
    explicit BatchWriter(LocalServer::Stream& stream) : stream_(stream) {}

    [[nodiscard]] bool add(const std::string& line) {
        batch_ += line;
        return batch_.size() < writeBatchBytes || flush();
    }
    [[nodiscard]] bool flush() {
        const bool written = batch_.empty() || stream_.write(batch_);
        batch_.clear();
        return written;
    }

private:
    LocalServer::Stream& stream_;
    std::string batch_;
};

} // namespace

ControlServer::ControlServer(std::string socketPath, std::string secret, ApplicationView& target)
    : secret_(std::move(secret)), target_(target),
      server_(
          std::move(socketPath),
          [this](std::string_view line, LocalServer::Stream& stream) { serve(line, stream); },
          LocalServer::Options{"tidewick.control", "tidewick.ctl-conn", 16, 10.0, nullptr}) {}

void ControlServer::start() {
    server_.start();
}

void ControlServer::stop() {
    server_.stop();
    server_.closeConnections();
}

ControlReply ControlServer::respond(const ControlRequest& request, ApplicationView& target) {
    std::vector<Session> known = target.sessions();
    ControlReply reply;
    std::vector<std::string> named;
    if (std::optional<ControlReply> changed = control(request, target))
        return *changed;
    if (request.command == ControlCommand::subscribe) {
        return failure(ControlOutcome::badRequest, "A subscription needs a connection of its own.");
    } else if (request.command == ControlCommand::sessions) {
        for (const Session& session : known)
            named.push_back(session.key.sessionId);
        reply.sessions = known;
    } else if (request.command == ControlCommand::pending) {
        reply.pending = target.pendingRequests();
        for (const HeldRequest& held : reply.pending)
            named.push_back(held.first.sessionId);
    } else if ((request.command == ControlCommand::reply ||
                request.command == ControlCommand::continueSession) &&
               request.text.empty()) {
        return failure(ControlOutcome::badRequest, "A reply needs some text.");
    } else if (request.command == ControlCommand::answer && request.answers.empty()) {
        return failure(ControlOutcome::badRequest, "An answer needs some text.");
    } else if (request.command == ControlCommand::transcriptStep && !request.step) {
        return failure(ControlOutcome::badRequest, "A transcript step needs the step.");
    } else {
        SessionMatch match = matchSession(known, request.session, request.agent);
        if (!match.key)
            return failure(match.outcome, std::move(match.message));
        reply.session = match.key;
        named.push_back(match.key->sessionId);
    }
    reply.shortIds = shortIdsOf(known, named);
    if (reply.session && request.command == ControlCommand::transcriptStep)
        target.setTranscriptStep(*reply.session, *request.step);
    if (reply.session && request.command == ControlCommand::forget) {
        const ControlResult result = target.forget(*reply.session);
        reply.outcome = result.isDone() ? ControlOutcome::done : ControlOutcome::refused;
        reply.message = result.sentence;
    }
    if (reply.session && (request.command == ControlCommand::continueSession ||
                          request.command == ControlCommand::end)) {
        const SessionActions::Result result =
            request.command == ControlCommand::end
                ? target.endSession(*reply.session)
                : target.continueSession(*reply.session, request.text);
        reply.outcome = result.done ? ControlOutcome::done : ControlOutcome::notDelivered;
        reply.message = result.sentence;
    }
    if (reply.session && isDecision(request.command))
        noteDelivery(reply, deliver(request, *reply.session, target), request, known);
    return reply;
}

void ControlServer::serve(std::string_view line, LocalServer::Stream& stream) {
    const auto envelope = ControlProtocol::decodeEnvelope(line);
    if (!envelope || !envelope->secret || !Wire::secretsMatch(secret_, *envelope->secret))
        return;
    if (envelope->version != ControlProtocol::version) {
        if (envelope->version >= 1)
            (void)stream.write(ControlProtocol::encodeVersionMismatch(envelope->version));
        return;
    }
    const auto decoded = ControlProtocol::decodeRequest(line);
    if (!decoded)
        return;
    if (decoded->second.command == ControlCommand::subscribe)
        subscribe(stream);
    else
        (void)stream.write(ControlProtocol::encode(respond(decoded->second, target_)));
}

void ControlServer::subscribe(LocalServer::Stream& stream) {
    auto subscriber = std::make_shared<Subscriber>(stream.probe().fd());
    const ApplicationView::Watch watch = target_.watch({
        .changed =
            [subscriber](const StoreChange& change) {
                subscriber->push({ControlEvent::Kind::change, change, std::nullopt});
            },
        .alerted =
            [subscriber](const Alert& alert) {
                subscriber->push({ControlEvent::Kind::alert, std::nullopt, alert});
            },
    });
    struct Unwatch {
        ApplicationView& target;
        ApplicationView::WatchId id;
        ~Unwatch() { target.unwatch(id); }
    } unwatch{target_, watch.id};

    BatchWriter out(stream);
    if (!out.add(ControlProtocol::encode(ControlReply{})))
        return;
    for (const Session& session : watch.sessions)
        if (!out.add(ControlProtocol::encode(
                ControlEvent{ControlEvent::Kind::change, StoreChange::changed(session), {}})))
            return;
    if (!out.add(ControlProtocol::encode(ControlEvent{ControlEvent::Kind::ready, {}, {}})) ||
        !out.flush())
        return;
    for (;;) {
        pollfd fds[2] = {{stream.probe().fd(), POLLIN, 0}, {subscriber->fd(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        // A subscriber only listens: anything from it, the end of its stream or the server
        // cutting it off included, ends the subscription.
        if (fds[0].revents != 0)
            return;
        std::optional<std::deque<ControlEvent>> events = subscriber->take();
        if (!events)
            return;
        for (const ControlEvent& event : *events)
            if (!out.add(ControlProtocol::encode(event)))
                return;
        if (!out.flush())
            return;
    }
}

} // namespace tidewick
