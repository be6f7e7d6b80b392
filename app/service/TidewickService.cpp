#include "service/TidewickService.h"

#include "adapters/Adapters.h"
#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/QueueScheduler.h"
#include "foundation/SerialQueue.h"
#include "foundation/SystemError.h"
#include "service/AlertThrottle.h"
#include "sessions/DebouncedSaver.h"
#include "sessions/DecisionBroker.h"
#include "sessions/SessionPersistence.h"
#include "wire/HookServer.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <sys/file.h>
#include <unistd.h>
#include <unordered_map>

namespace tidewick {

namespace {

constexpr const char* workQueueLabel = "tidewick.service.work";

// The single-instance lock: an exclusive flock on a file of the app folder. The kernel
// drops it when the process dies, so a crash never leaves Tidewick locked out.
FileDescriptor takeInstanceLock(const std::string& path) {
    FileDescriptor lock = FileDescriptor::open(path, O_RDWR | O_CREAT, 0600);
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            throw TidewickService::AlreadyRunning(TidewickService::alreadyRunningSentence);
        throw SystemError("flock", path, errno);
    }
    return lock;
}

SessionStore::Outcome outcomeOf(const DecisionBroker::Result& result) {
    switch (result.kind()) {
    case DecisionBroker::Result::Kind::timedOut:
        return SessionStore::Outcome::timedOut();
    case DecisionBroker::Result::Kind::clientGone:
        return SessionStore::Outcome::withdrawn();
    case DecisionBroker::Result::Kind::decided:
        break;
    }
    const Decision& decision = *result.decision();
    switch (decision.type()) {
    case Decision::Type::deny:
        return SessionStore::Outcome::denied();
    case Decision::Type::reply:
        return SessionStore::Outcome::replied(decision.text().value_or(""));
    case Decision::Type::allow:
        return SessionStore::Outcome::allowed();
    case Decision::Type::letStop:
        return SessionStore::Outcome::letStop();
    case Decision::Type::timeout:
        break;
    }
    return SessionStore::Outcome::timedOut();
}

SessionKey keyOf(const AgentEvent& event) {
    return SessionKey{event.agent, event.sessionId};
}

} // namespace

struct TidewickService::State {
    State(const TidewickPaths& paths, Options givenOptions)
        : options(std::move(givenOptions)), work(std::make_unique<SerialQueue>(workQueueLabel)),
          scheduler(*work), store(options.clock),
          settingsFile(paths.settingsFile(), [this](const std::string& s) { report(s); }),
          activity(paths.activityFile(), options.activityLimitBytes),
          persistence(paths.sessionsFile()), throttle(options.alertThrottleSeconds),
          saver([this] { (void)persistence.save(store.snapshot()); }, scheduler,
                options.saveDelaySeconds) {
        store.setOnChange([this](const StoreChange& change) { changed(change); });
    }

    void report(const std::string& sentence) const {
        if (options.reportProblem)
            options.reportProblem(sentence);
        else
            std::cerr << sentence << std::endl;
    }

    // Every change reaches the UI and schedules the debounced save.
    void changed(const StoreChange& change) {
        saver.noteChange();
        std::vector<ChangeHandler> handlers;
        {
            std::lock_guard guard(handlersLock);
            handlers = changeHandlers;
        }
        for (const ChangeHandler& handler : handlers)
            guarded("a change handler", [&] { handler(change); });
    }

    // Runs on the work queue.
    void appendActivity(const AgentEvent& event, Date time) {
        try {
            activity.append(event, time);
            activityFailing = false;
        } catch (const std::exception& error) {
            if (!activityFailing)
                report(std::string("Tidewick couldn't write its activity log: ") + error.what() +
                       ".");
            activityFailing = true;
        }
    }

    // A failing handler of the UI must not cost an agent its answer nor leave a request
    // listed that nobody holds any more.
    template <typename Call> void guarded(const char* what, Call&& call) const {
        try {
            call();
        } catch (const std::exception& error) {
            report(std::string("Tidewick's ") + what + " failed: " + error.what() + ".");
        } catch (...) {
            report(std::string("Tidewick's ") + what + " failed.");
        }
    }

    // Keeps count of running handle() calls so that stop() can wait for them.
    class InFlight {
    public:
        explicit InFlight(State& state) : state_(state) {
            std::lock_guard guard(state_.lock);
            ++state_.inFlight;
        }
        ~InFlight() {
            std::lock_guard guard(state_.lock);
            if (--state_.inFlight == 0)
                state_.idle.notify_all();
        }
        InFlight(const InFlight&) = delete;
        InFlight& operator=(const InFlight&) = delete;

    private:
        State& state_;
    };

    Options options;
    // Every change to the store and every save runs on this one queue, in order.
    std::unique_ptr<SerialQueue> work;
    // The debounced saves run on the work queue too.
    QueueScheduler scheduler;
    SessionStore store;
    DecisionBroker broker;
    SettingsFile settingsFile;
    ActivityLog activity;
    SessionPersistence persistence;
    AlertThrottle throttle;
    DebouncedSaver saver;
    // Touched on the work queue only: one report per run of failures, not one per event.
    bool activityFailing = false;

    std::mutex handlersLock;
    AlertHandler alertHandler;
    std::vector<ChangeHandler> changeHandlers;

    // Serialises start() and stop(); never taken by handle().
    std::mutex lifecycle;
    // Guards the fields below it.
    std::mutex lock;
    std::condition_variable idle;
    bool running = false;
    /// Set while stopping and after: nothing new is held.
    bool closed = false;
    int inFlight = 0;
    /// The requests being held now, with the decision accepted for each (first wins).
    /// The request is listed in its session before its thread waits in the broker, so a
    /// quick answer can arrive before the broker knows the waiter: kept here, it is
    /// never lost (the waiter looks here every quarter second).
    std::unordered_map<UUID, std::optional<Decision>> held;

    FileDescriptor instanceLock;
    std::string secret;
    std::string serverSecret;
    // Last, so that tearing down waits for the connection threads first.
    std::unique_ptr<HookServer> server;
};

TidewickService::TidewickService(TidewickPaths paths, Options options)
    : paths_(std::move(paths)), state_(std::make_unique<State>(paths_, std::move(options))) {}

TidewickService::TidewickService(TidewickPaths paths)
    : TidewickService(std::move(paths), Options()) {}

TidewickService::~TidewickService() {
    stop();
    // Whatever still runs must end while everything it uses exists: held requests
    // (handle() driven directly), then the connection threads, then the queued work.
    drain();
    state_->server.reset();
    state_->work.reset();
}

std::string TidewickService::instanceLockPath() const {
    return File::join(paths_.appSupport(), "tidewick.lock");
}

void TidewickService::start() {
    State& s = *state_;
    std::lock_guard life(s.lifecycle);
    if (isRunning())
        return;
    paths_.ensureDirectories();
    // Taken before the hook server replaces the socket file: a second instance must fail
    // here rather than steal the socket from the running one.
    FileDescriptor instanceLock = takeInstanceLock(instanceLockPath());
    s.secret = paths_.loadOrCreateSecret();
    // Read now so that a malformed file is reported at start-up, not at the first event.
    (void)s.settingsFile.current();
    std::vector<Session> saved = s.persistence.load();
    s.work->sync([&] {
        s.store.restore(std::move(saved));
        (void)s.store.prune();
    });
    if (!s.server || s.serverSecret != s.secret) {
        s.server.reset();
        s.server = std::make_unique<HookServer>(
            paths_.socketPath(), s.secret,
            [this](const HookRequest& request, const ClientProbe& probe) {
                return handle(request, probe);
            });
        s.serverSecret = s.secret;
    }
    {
        std::lock_guard guard(s.lock);
        s.closed = false;
    }
    s.server->start();
    std::lock_guard guard(s.lock);
    s.instanceLock = std::move(instanceLock);
    s.running = true;
}

void TidewickService::stop() {
    State& s = *state_;
    std::lock_guard life(s.lifecycle);
    if (!isRunning())
        return;
    // No new connections first, so nothing can be held after the drain.
    s.server->stop();
    drain();
    // On the work queue like every save, after the changes already queued.
    s.work->sync([&s] { s.saver.flush(); });
    std::lock_guard guard(s.lock);
    s.instanceLock.reset();
    s.running = false;
}

void TidewickService::drain() {
    State& s = *state_;
    std::unique_lock guard(s.lock);
    s.closed = true;
    std::vector<UUID> ids;
    for (const auto& entry : s.held)
        ids.push_back(entry.first);
    guard.unlock();
    for (const UUID& id : ids)
        (void)deliver(id, Decision::timeout());
    guard.lock();
    s.idle.wait(guard, [&s] { return s.inFlight == 0; });
}

bool TidewickService::isRunning() const {
    std::lock_guard guard(state_->lock);
    return state_->running;
}

const std::string& TidewickService::secret() const {
    return state_->secret;
}

HookResponse TidewickService::handle(const HookRequest& request, const ClientProbe& probe) {
    return handle(request, [&probe] { return probe.isDisconnected(); });
}

HookResponse TidewickService::handle(const HookRequest& request,
                                     const std::function<bool()>& isClientGone) {
    State& s = *state_;
    State::InFlight inFlight(s);
    const std::optional<AgentKind> agent = agentKindFromRaw(request.agent);
    if (!agent)
        return HookResponse{HookOutput::silent()};
    const std::unique_ptr<AgentAdapter> adapter = Adapters::adapter(*agent);
    const std::optional<ParsedHook> parsed =
        adapter->parse(request.event, Payload(request.payload));
    if (!parsed)
        return HookResponse{adapter->failSafe(request.event)};
    // Read per request, so an edit of the file applies from the next one.
    const TidewickSettings settings = s.settingsFile.current();
    auto answer = [&](const std::optional<Decision>& decision) {
        return HookResponse{adapter->output(*parsed, decision)};
    };

    switch (parsed->hold) {
    case HoldKind::none:
        break;
    case HoldKind::permission:
        if (request.noHold)
            break;
        switch (settings.gating.evaluate(parsed->event)) {
        case GatingPolicy::Verdict::ask:
            return holdForUser(*parsed, *adapter, request, settings, isClientGone);
        case GatingPolicy::Verdict::allowSilently:
            allowReadOnly(parsed->event, request);
            return answer(Decision::allow());
        case GatingPolicy::Verdict::passThrough:
            break;
        }
        break;
    case HoldKind::reply:
        if (request.noHold || settings.gating.paused)
            break;
        return holdForUser(*parsed, *adapter, request, settings, isClientGone);
    }
    record(parsed->event, request);
    return answer(std::nullopt);
}

void TidewickService::record(const AgentEvent& event, const HookRequest& request) {
    State& s = *state_;
    const SessionKey key = keyOf(event);
    const Date time = s.options.clock();
    s.work->sync([&] {
        (void)s.store.apply(event);
        if (request.host)
            s.store.setHost(key, request.host);
        if (request.agentPid)
            s.store.setAgentPid(key, request.agentPid);
        // Queued behind this task: the log is for the user to read later, the agent need
        // not wait for the write.
        s.work->async([&s, event, time] { s.appendActivity(event, time); });
    });
}

void TidewickService::allowReadOnly(const AgentEvent& event, const HookRequest& request) {
    // The timeline tells why nobody was asked, then the tool runs as if it had been allowed.
    AgentEvent note = event;
    note.kind = EventKind::notification;
    note.title = "Allowed (read-only): " + event.detail.value_or("command");
    note.detail.reset();
    note.needsDecision = false;
    note.decisionType = DecisionType::none;
    record(note, request);

    AgentEvent started = event;
    started.kind = EventKind::toolStarted;
    started.needsDecision = false;
    started.decisionType = DecisionType::none;
    record(started, request);
}

void TidewickService::raise(const Alert& alert) {
    State& s = *state_;
    AlertHandler handler;
    {
        std::lock_guard guard(s.handlersLock);
        handler = s.alertHandler;
    }
    if (!handler || !s.throttle.admit(alert.session, s.options.clock()))
        return;
    s.guarded("alert handler", [&] { handler(alert); });
}

HookResponse TidewickService::holdForUser(const ParsedHook& parsed, const AgentAdapter& adapter,
                                          const HookRequest& hookRequest,
                                          const TidewickSettings& settings,
                                          const std::function<bool()>& isClientGone) {
    State& s = *state_;
    const AgentEvent& event = parsed.event;
    const SessionKey key = keyOf(event);
    record(event, hookRequest);

    const bool permission = parsed.hold == HoldKind::permission;
    const double timeout =
        permission ? settings.permissionTimeoutSeconds : settings.replyTimeoutSeconds;
    PendingRequest request;
    request.id = UUID::random();
    request.kind = permission ? PendingKind::permission : PendingKind::reply;
    request.title = event.title.value_or(permission ? "Permission needed" : "Finished");
    request.detail = event.detail;
    request.createdAt = s.options.clock();
    request.deadline = addSeconds(request.createdAt, timeout);

    {
        std::lock_guard guard(s.lock);
        if (s.closed)
            return HookResponse{adapter.output(parsed, Decision::timeout())};
        s.held.emplace(request.id, std::nullopt);
    }
    s.work->sync([&] { s.store.addPending(request, key); });

    Alert alert;
    alert.kind = permission ? Alert::Kind::needsPermission : Alert::Kind::waitingReply;
    alert.session = key;
    alert.title = request.title;
    alert.detail = request.detail;
    alert.requestId = request.id;
    alert.informational = false;
    alert.turnEnded = !permission;
    raise(alert);

    auto accepted = [&s, id = request.id]() -> std::optional<Decision> {
        std::lock_guard guard(s.lock);
        return s.held.at(id);
    };
    DecisionBroker::Result result = s.broker.wait(
        request.id, timeout, [&] { return accepted().has_value() || isClientGone(); });
    {
        std::lock_guard guard(s.lock);
        // A decision accepted here was promised to its sender: it wins over a time-out
        // or a vanished client seen at the same moment.
        if (std::optional<Decision> decision = s.held.at(request.id))
            result = DecisionBroker::Result::decided(std::move(*decision));
        s.held.erase(request.id);
    }
    const SessionStore::Outcome outcome = outcomeOf(result);
    s.work->sync([&] { s.store.resolvePending(request.id, key, outcome); });
    const Decision decision = result.decision().value_or(Decision::timeout());
    HookResponse response{adapter.output(parsed, decision)};

    // The agent stops its turn unanswered: say so, unless the session is gone meanwhile.
    if (!permission && outcome.kind() == SessionStore::Outcome::Kind::timedOut &&
        s.store.session(key)) {
        Alert finished;
        finished.kind = Alert::Kind::finished;
        finished.session = key;
        finished.title = "Finished";
        finished.detail = event.detail;
        finished.informational = false;
        finished.turnEnded = false;
        raise(finished);
    }
    return response;
}

bool TidewickService::resolveFirst(const SessionKey& session, PendingKind kind, Decision decision) {
    const std::optional<Session> found = state_->store.session(session);
    if (!found)
        return false;
    auto request = std::find_if(found->pending.begin(), found->pending.end(),
                                [kind](const PendingRequest& r) { return r.kind == kind; });
    if (request == found->pending.end())
        return false;
    return deliver(request->id, std::move(decision));
}

bool TidewickService::deliver(const UUID& id, Decision decision) {
    State& s = *state_;
    {
        std::lock_guard guard(s.lock);
        auto found = s.held.find(id);
        if (found == s.held.end() || found->second)
            return false;
        found->second = decision;
    }
    // Wakes the waiter at once; one not yet waiting finds the decision at its first look.
    (void)s.broker.resolve(id, std::move(decision));
    return true;
}

bool TidewickService::answerPermission(const SessionKey& session, Answer answer,
                                       std::optional<std::string> message) {
    return resolveFirst(session, PendingKind::permission,
                        answer == Answer::allow ? Decision::allow()
                                                : Decision::deny(std::move(message)));
}

bool TidewickService::reply(const SessionKey& session, std::string text) {
    return resolveFirst(session, PendingKind::reply, Decision::reply(std::move(text)));
}

bool TidewickService::letStop(const SessionKey& session) {
    return resolveFirst(session, PendingKind::reply, Decision::letStop());
}

std::vector<HeldRequest> TidewickService::pendingRequests() const {
    return state_->store.pendingRequests();
}

std::vector<Session> TidewickService::sessions() const {
    return state_->store.snapshot();
}

TidewickSettings TidewickService::settings() {
    return state_->settingsFile.current();
}

void TidewickService::saveSettings(const TidewickSettings& settings) {
    state_->settingsFile.save(settings);
}

void TidewickService::setAlertHandler(AlertHandler handler) {
    std::lock_guard guard(state_->handlersLock);
    state_->alertHandler = std::move(handler);
}

void TidewickService::addChangeHandler(ChangeHandler handler) {
    std::lock_guard guard(state_->handlersLock);
    state_->changeHandlers.push_back(std::move(handler));
}

} // namespace tidewick
