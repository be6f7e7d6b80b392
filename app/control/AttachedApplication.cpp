#include "control/AttachedApplication.h"

#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tidewick {

namespace {

// How long each line of the sessions an application starts a subscription with may take.
constexpr double snapshotLineSeconds = ControlClient::replySeconds;

void apply(std::map<SessionKey, Session>& sessions, const StoreChange& change) {
    switch (change.kind) {
    case StoreChange::Kind::session:
        if (change.session)
            sessions[change.key] = *change.session;
        return;
    case StoreChange::Kind::removed:
        sessions.erase(change.key);
        return;
    case StoreChange::Kind::pending:
        if (auto found = sessions.find(change.key); found != sessions.end())
            found->second.pending = change.pending;
        return;
    }
}

} // namespace

AttachedApplication::AttachedApplication(TidewickPaths paths, Options options)
    : paths_(std::move(paths)), options_(options), settingsFile_(paths_.settingsFile()),
      stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!stop_)
        throw SystemError("eventfd", "the attached interface", errno);
}

AttachedApplication::AttachedApplication(TidewickPaths paths)
    : AttachedApplication(std::move(paths), Options()) {}

AttachedApplication::~AttachedApplication() {
    if (!thread_.joinable())
        return;
    const std::uint64_t one = 1;
    (void)!::write(stop_.get(), &one, sizeof one);
    thread_.join();
}

std::optional<std::pair<ControlClient::Subscription, AttachedApplication::Mirror>>
AttachedApplication::subscribe() {
    std::optional<ControlClient::Subscription> subscription;
    try {
        subscription = ControlClient::subscribe(paths_);
    } catch (const ControlClient::NotRunning&) {
        return std::nullopt;
    }
    Mirror sessions;
    for (;;) {
        LineReader::Result line = subscription->lines->next(snapshotLineSeconds);
        if (line.status != LineReader::Status::line)
            return std::nullopt;
        const std::optional<ControlEvent> event = ControlProtocol::decodeEvent(line.line);
        if (!event)
            continue;
        if (event->kind == ControlEvent::Kind::ready)
            return std::pair{std::move(*subscription), std::move(sessions)};
        if (event->kind == ControlEvent::Kind::change)
            apply(sessions, *event->change);
    }
}

bool AttachedApplication::attach() {
    auto subscribed = subscribe();
    if (!subscribed)
        return false;
    {
        std::lock_guard guard(sessionsLock_);
        sessions_ = std::move(subscribed->second);
    }
    subscription_ = std::move(subscribed->first);
    thread_ = std::thread([this] { follow(); });
    return true;
}

void AttachedApplication::follow() {
    const int reattachMilliseconds = static_cast<int>(options_.reattachSeconds * 1000);
    for (;;) {
        if (subscription_) {
            pollfd fds[2] = {{stop_.get(), POLLIN, 0}, {subscription_->socket.get(), POLLIN, 0}};
            if (::poll(fds, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            if (fds[0].revents != 0)
                return;
            if (readEvents())
                continue;
            subscription_.reset();
        } else {
            // Detached: a look every reattachSeconds, woken at once when the view goes.
            pollfd stop{stop_.get(), POLLIN, 0};
            const int woken = ::poll(&stop, 1, reattachMilliseconds);
            if (woken > 0 || (woken < 0 && errno != EINTR))
                return;
        }
        // Cut off (fallen behind, or the application went away): subscribe again at once,
        // then on every look.
        std::string sentence = lostSentence;
        std::optional<std::pair<ControlClient::Subscription, Mirror>> subscribed;
        try {
            subscribed = subscribe();
        } catch (const ControlClient::VersionMismatch& mismatch) {
            sentence = mismatch.what();
        }
        if (subscribed) {
            subscription_ = std::move(subscribed->first);
            replaceSessions(std::move(subscribed->second));
            if (!lostWith_.empty()) {
                lostWith_.clear();
                tellConnection(Connection::restored, restoredSentence);
            }
        } else if (lostWith_ != sentence) {
            replaceSessions({});
            lostWith_ = sentence;
            tellConnection(Connection::lost, sentence);
        }
    }
}

bool AttachedApplication::readEvents() {
    for (;;) {
        LineReader::Result line = subscription_->lines->next(0);
        if (line.status == LineReader::Status::waiting)
            return true;
        if (line.status == LineReader::Status::closed)
            return false;
        const std::optional<ControlEvent> event = ControlProtocol::decodeEvent(line.line);
        if (!event)
            continue;
        std::shared_lock tell(watchersLock_);
        if (event->kind == ControlEvent::Kind::change) {
            {
                std::lock_guard guard(sessionsLock_);
                apply(sessions_, *event->change);
            }
            for (const auto& [id, watcher] : watchers_)
                if (watcher.changed)
                    watcher.changed(*event->change);
        } else if (event->kind == ControlEvent::Kind::alert) {
            for (const auto& [id, watcher] : watchers_)
                if (watcher.alerted)
                    watcher.alerted(*event->alert);
        }
    }
}

void AttachedApplication::replaceSessions(Mirror fresh) {
    std::shared_lock tell(watchersLock_);
    std::vector<StoreChange> changes;
    {
        std::lock_guard guard(sessionsLock_);
        for (const auto& [key, session] : sessions_)
            if (!fresh.count(key))
                changes.push_back(StoreChange::removed(key));
        for (const auto& [key, session] : fresh)
            if (auto old = sessions_.find(key); old == sessions_.end() || old->second != session)
                changes.push_back(StoreChange::changed(session));
        sessions_ = std::move(fresh);
    }
    for (const StoreChange& change : changes)
        for (const auto& [id, watcher] : watchers_)
            if (watcher.changed)
                watcher.changed(change);
}

void AttachedApplication::tellConnection(Connection connection, const std::string& sentence) {
    std::shared_lock tell(watchersLock_);
    for (const auto& [id, watcher] : watchers_)
        if (watcher.connection)
            watcher.connection(connection, sentence);
}

ApplicationView::Watch AttachedApplication::watch(Watcher watcher) {
    std::unique_lock guard(watchersLock_);
    Watch watch;
    watch.id = nextWatchId_++;
    watchers_.emplace(watch.id, std::move(watcher));
    watch.sessions = sessions();
    return watch;
}

void AttachedApplication::unwatch(WatchId id) {
    std::unique_lock guard(watchersLock_);
    watchers_.erase(id);
}

std::vector<Session> AttachedApplication::sessions() const {
    std::vector<Session> list;
    {
        std::lock_guard guard(sessionsLock_);
        list.reserve(sessions_.size());
        for (const auto& [key, session] : sessions_)
            list.push_back(session);
    }
    std::sort(list.begin(), list.end(), SessionStore::listsBefore);
    return list;
}

std::vector<HeldRequest> AttachedApplication::pendingRequests() const {
    std::vector<HeldRequest> list;
    {
        std::lock_guard guard(sessionsLock_);
        for (const auto& [key, session] : sessions_)
            for (const PendingRequest& request : session.pending)
                list.emplace_back(key, request);
    }
    std::sort(list.begin(), list.end(), SessionStore::heldBefore);
    return list;
}

bool AttachedApplication::sendFor(ControlRequest request, const SessionKey& session) {
    return deliveryFor(std::move(request), session).kind == Delivery::Kind::delivered;
}

SessionActions::Delivery AttachedApplication::deliveryFor(ControlRequest request,
                                                          const SessionKey& session) {
    // The whole identifier with its agent: exactly the session the user sees.
    request.session = session.sessionId;
    request.agent = session.agent;
    ControlReply reply;
    try {
        reply = ControlClient::send(request, paths_);
    } catch (const std::exception&) {
        // Not running, another version or a text that is not UTF-8: nothing reached it.
        return {Delivery::Kind::nothingHeld, {}};
    }
    std::string sentence = reply.message.value_or("");
    switch (reply.outcome) {
    case ControlOutcome::done:
        return {Delivery::Kind::delivered, std::move(sentence)};
    case ControlOutcome::badRequest:
        return {Delivery::Kind::badAnswer, std::move(sentence)};
    default:
        // The application's own sentence says why: nothing held, or refused (Codex).
        return {sentence.empty() ? Delivery::Kind::nothingHeld : Delivery::Kind::refused,
                std::move(sentence)};
    }
}

SessionActions::Delivery AttachedApplication::allowAlways(const SessionKey& session,
                                                          std::optional<std::string> rule) {
    ControlRequest request;
    request.command = ControlCommand::allowAlways;
    request.rule = std::move(rule);
    return deliveryFor(std::move(request), session);
}

SessionActions::Delivery AttachedApplication::answerQuestions(const SessionKey& session,
                                                              std::vector<std::string> answers) {
    ControlRequest request;
    request.command = ControlCommand::answer;
    request.answers = std::move(answers);
    return deliveryFor(std::move(request), session);
}

bool AttachedApplication::answerPermission(const SessionKey& session, Answer answer,
                                           std::optional<std::string> message) {
    ControlRequest request;
    request.command = answer == Answer::allow ? ControlCommand::allow : ControlCommand::deny;
    request.message = std::move(message);
    return sendFor(std::move(request), session);
}

bool AttachedApplication::reply(const SessionKey& session, std::string text) {
    ControlRequest request;
    request.command = ControlCommand::reply;
    request.text = std::move(text);
    return sendFor(std::move(request), session);
}

bool AttachedApplication::letStop(const SessionKey& session) {
    ControlRequest request;
    request.command = ControlCommand::letStop;
    return sendFor(std::move(request), session);
}

SessionActions::Result AttachedApplication::sendForResult(ControlRequest request,
                                                           const SessionKey& session) {
    request.session = session.sessionId;
    request.agent = session.agent;
    try {
        const ControlReply reply = ControlClient::send(request, paths_);
        return {reply.outcome == ControlOutcome::done, reply.message.value_or("")};
    } catch (const std::exception& error) {
        return {false, error.what()};
    }
}

SessionActions::Result AttachedApplication::continueSession(const SessionKey& session,
                                                            std::string text) {
    ControlRequest request;
    request.command = ControlCommand::continueSession;
    request.text = std::move(text);
    return sendForResult(std::move(request), session);
}

SessionActions::Result AttachedApplication::endSession(const SessionKey& session) {
    ControlRequest request;
    request.command = ControlCommand::end;
    return sendForResult(std::move(request), session);
}

void AttachedApplication::setTranscriptStep(const SessionKey& session, std::int64_t step) {
    ControlRequest request;
    request.command = ControlCommand::transcriptStep;
    request.step = step;
    (void)sendFor(std::move(request), session);
}

ControlResult AttachedApplication::control(const ControlRequest& request) {
    try {
        const ControlReply reply = ControlClient::send(request, paths_);
        const std::string sentence = reply.message.value_or("");
        return reply.outcome == ControlOutcome::done ? ControlResult::done(sentence)
                                                     : ControlResult::refused(sentence);
    } catch (const std::exception& error) {
        return ControlResult::refused(error.what());
    }
}

ControlResult AttachedApplication::pause(std::optional<Date> until) {
    ControlRequest request;
    request.command = ControlCommand::pause;
    request.until = until;
    return control(request);
}

ControlResult AttachedApplication::resume() {
    ControlRequest request;
    request.command = ControlCommand::resume;
    return control(request);
}

ControlResult AttachedApplication::changeSetting(const std::string& name, const std::string& value,
                                                 SettingCatalog::Change change) {
    ControlRequest request;
    request.command = ControlCommand::setting;
    request.setting = name;
    request.text = value;
    request.change = change;
    return control(request);
}

ControlResult AttachedApplication::forget(const SessionKey& session) {
    ControlRequest request;
    request.command = ControlCommand::forget;
    request.session = session.sessionId;
    request.agent = session.agent;
    return control(request);
}

ControlResult AttachedApplication::forgetAll() {
    ControlRequest request;
    request.command = ControlCommand::forgetAll;
    return control(request);
}

TidewickSettings AttachedApplication::settings() {
    return settingsFile_.current();
}

} // namespace tidewick
