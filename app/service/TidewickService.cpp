#include "service/TidewickService.h"

#include "adapters/Adapters.h"
#include "agents/AgentCommand.h"
#include "agents/AgentProbe.h"
#include "service/AgentRuns.h"
#include "transcripts/Transcripts.h"
#include "events/PermissionUpdates.h"
#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/QueueScheduler.h"
#include "foundation/SerialQueue.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "install/HookConfigEditor.h"
#include "presentation/SoundPlayer.h"
#include "service/AlertThrottle.h"
#include "service/SettingsEditor.h"
#include "service/SettingsText.h"
#include "sessions/ShortIds.h"
#include "sessions/AlwaysAllow.h"
#include "sessions/DebouncedSaver.h"
#include "sessions/DecisionBroker.h"
#include "sessions/SessionPersistence.h"
#include "sessions/SessionText.h"
#include "transcripts/TranscriptLocations.h"
#include "wire/HookServer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <condition_variable>
#include <filesystem>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <sys/file.h>
#include <unistd.h>

namespace tidewick {

namespace {

constexpr const char* workQueueLabel = "tidewick.service.work";
/// Most options offered as buttons of a notification.
constexpr std::size_t maxChoiceButtons = 4;

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

SessionKey keyOf(const AgentEvent& event) {
    return SessionKey{event.agent, event.sessionId};
}

// The request listed in its session while the agent waits.
PendingRequest heldRequest(const ParsedHook& parsed, bool permission, Date now, double timeout) {
    const AgentEvent& event = parsed.event;
    PendingRequest request;
    request.id = UUID::random();
    request.kind = permission ? PendingKind::permission : PendingKind::reply;
    request.title = event.title.value_or(
        std::string(permission ? SessionText::permissionNeeded : SessionText::finished));
    request.detail = event.detail;
    request.createdAt = now;
    request.deadline = addSeconds(now, timeout);
    if (permission && parsed.call) {
        request.questions = parsed.call->questions;
        request.alwaysAllow = AlwaysAllow::offer(event.agent, *parsed.call);
    }
    return request;
}

Alert heldAlert(const PendingRequest& request, const SessionKey& key) {
    const bool permission = request.kind == PendingKind::permission;
    Alert alert;
    alert.kind = permission ? Alert::Kind::needsPermission : Alert::Kind::waitingReply;
    alert.session = key;
    alert.title = request.title;
    alert.detail = request.detail;
    alert.requestId = request.id;
    alert.informational = false;
    alert.turnEnded = !permission;
    alert.canAlwaysAllow = request.alwaysAllow.has_value();
    alert.question = request.isQuestion();
    // A notification has room for a few buttons: one question with one answer fits.
    if (request.questions.size() == 1 && !request.questions[0].multiSelect &&
        request.questions[0].options.size() <= maxChoiceButtons)
        for (const QuestionOption& option : request.questions[0].options)
            alert.choices.push_back(option.label);
    return alert;
}

// An agent that reports an error has usually stopped working: the user should know.
Alert errorAlert(const AgentEvent& event, const SessionKey& key) {
    Alert alert;
    alert.kind = Alert::Kind::error;
    alert.session = key;
    alert.title = event.title.value_or(std::string(SessionText::error));
    alert.detail = event.detail;
    alert.informational = true;
    return alert;
}

// Told when a turn ended with nobody replying, so the user still learns it is over.
Alert finishedAlert(const SessionKey& key, const std::optional<std::string>& detail) {
    Alert alert;
    alert.kind = Alert::Kind::finished;
    alert.session = key;
    alert.title = SessionText::finished;
    alert.detail = detail;
    alert.informational = false;
    alert.turnEnded = false;
    return alert;
}

// The user's own latest messages in a session's record: what was sent just before it
// was ended here.
constexpr std::size_t sentBeforeEndCount = 3;

struct EndFacts {
    std::optional<std::int64_t> userMessages;
    std::optional<std::vector<std::string>> sentBefore;
};

EndFacts endFacts(const Session& session, const TranscriptLocations& locations) {
    try {
        const Transcript transcript = Transcripts::read(session, locations);
        std::vector<std::string> sent;
        const auto prompts = transcript.userPrompts();
        const std::size_t first = prompts.size() > sentBeforeEndCount
                                      ? prompts.size() - sentBeforeEndCount
                                      : 0;
        for (std::size_t i = first; i < prompts.size(); ++i)
            sent.push_back(prompts[i]->text);
        return {transcript.userMessages, std::move(sent)};
    } catch (const std::exception&) {
        return {}; // No record to count from: the session is ended all the same.
    }
}

std::string searchPathOf(const std::optional<std::string>& given) {
    if (given)
        return *given;
    const char* path = std::getenv("PATH");
    return path ? path : "/usr/local/bin:/usr/bin:/bin";
}

} // namespace

struct TidewickService::State {
    State(const TidewickPaths& paths, Options givenOptions)
        : options(std::move(givenOptions)),
          processes(options.processes ? *options.processes : ProcessAccess::system()),
          locations(TranscriptLocations::forHome(paths.home())), probe(processes, locations),
          work(std::make_unique<SerialQueue>(workQueueLabel)),
          scheduler(*work), store(options.clock),
          settingsFile(paths.settingsFile(), [this](const std::string& s) { report(s); }),
          activity(paths.activityFile(), options.activityLimitBytes),
          persistence(paths.sessionsFile()), throttle(options.alertThrottleSeconds),
          saver([this] { saveSessions(); }, scheduler, options.saveDelaySeconds),
          editor(settingsFile, options.clock) {
        store.setOnChange([this](const StoreChange& change) { changed(change); });
        if (!options.readUsage)
            options.readUsage =
                [this, sources = UsageSources{paths.claudeLimitsFile(),
                                              TranscriptLocations::forHome(paths.home())}] {
                    return Usage::readAgents(sources, store.snapshot());
                };
        if (options.soundSearchPath)
            sounds.emplace(SoundLibrary(paths.soundsDirectory()), *options.soundSearchPath,
                           [this](const std::string& s) { report(s); });
    }

    void report(const std::string& sentence) const {
        if (options.reportProblem)
            options.reportProblem(sentence);
        else
            std::cerr << sentence << std::endl;
    }

    // Every change reaches the watchers and schedules the debounced save.
    void changed(const StoreChange& change) {
        saver.noteChange();
        std::shared_lock guard(watchersLock);
        // Not a structured binding: clang before 16 cannot capture one in a lambda.
        for (const auto& entry : watchers)
            if (const Watcher& watcher = entry.second; watcher.changed)
                guarded("a change handler", [&] { watcher.changed(change); });
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

    // Runs on the work queue. A file that did not load at start is kept aside before the
    // first save replaces it; while that fails, nothing replaces it.
    void saveSessions() {
        if (sessionsUnreadable) {
            try {
                const std::optional<std::string> kept =
                    persistence.keepUnreadable(options.clock());
                sessionsUnreadable = false;
                if (kept)
                    noteKeptSessions(*kept);
            } catch (const std::exception& error) {
                report(std::string("Tidewick couldn't set its unreadable sessions file aside, "
                                   "so it did not save the sessions: ") +
                       error.what() + ".");
                return;
            }
        }
        (void)persistence.save(store.snapshot());
    }

    void noteKeptSessions(const std::string& kept) {
        const std::string sentence = SessionText::keptUnreadableSessions(kept);
        report(sentence);
        try {
            activity.note(sentence, options.clock());
        } catch (const std::exception& error) {
            report(std::string("Tidewick couldn't write its activity log: ") + error.what() +
                   ".");
        }
    }

    // The application sounds the alert, once; the interfaces ring their bells only where
    // it could not.
    void announce(Alert alert) {
        const AlertSound sound = settingsFile.current().soundFor(alert.kind);
        alert.bell = sound != AlertSound::none &&
                     (!sounds || sounds->play(sound) == SoundPlayer::Outcome::bell);
        std::shared_lock guard(watchersLock);
        for (const auto& entry : watchers)
            if (const Watcher& watcher = entry.second; watcher.alerted)
                guarded("alert handler", [&] { watcher.alerted(alert); });
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
    const ProcessAccess& processes;
    TranscriptLocations locations;
    // Used on the work queue only.
    AgentProbe probe;
    // Every change to the store and every save runs on this one queue, in order.
    std::unique_ptr<SerialQueue> work;
    // The debounced saves run on the work queue too.
    QueueScheduler scheduler;
    SessionStore store;
    DecisionBroker broker;
    SettingsFile settingsFile;
    std::optional<SoundPlayer> sounds;
    ActivityLog activity;
    SessionPersistence persistence;
    AlertThrottle throttle;
    DebouncedSaver saver;
    SettingsEditor editor;
    // Touched on the work queue only: one report per run of failures, not one per event.
    bool activityFailing = false;
    // On the work queue only: the usage-limit alerts, and whether a check after a Codex
    // event is already due.
    UsageWatch usage{[this] { return options.readUsage(); }, options.clock,
                     [this](const Alert& alert) { announce(alert); }};
    bool usageCheckDue = false;
    // Touched on the work queue only: the sessions file found at start did not load.
    bool sessionsUnreadable = false;

    // Held shared while watchers are told, so that unwatch(), which takes it exclusively,
    // returns only once no call to the watcher it removes is running.
    std::shared_mutex watchersLock;
    std::map<WatchId, Watcher> watchers;
    WatchId nextWatchId = 1;

    // Serialises start() and stop(); never taken by handle().
    std::mutex lifecycle;
    // Guards the fields below it.
    std::mutex lock;
    std::condition_variable idle;
    bool running = false;
    /// Set while stopping and after: nothing new is held.
    bool closed = false;
    int inFlight = 0;
    /// Sessions with a request on its way to being held (listed or not yet): never forgotten.
    std::map<SessionKey, int> holding;
    /// Counts the starts and stops: a periodic usage or agent check of an earlier run ends
    /// itself.
    std::uint64_t generation = 0;
    /// The call behind each held permission request, for answers beyond yes or no.
    std::unordered_map<UUID, HeldCall> calls;

    FileDescriptor instanceLock;
    std::string secret;
    std::string serverSecret;
    // The programs continuing sessions; its thread reports their ends to the service.
    std::unique_ptr<AgentRuns> runs;
    // Last, so that tearing down waits for the connection threads first.
    std::unique_ptr<HookServer> server;
};

TidewickService::TidewickService(TidewickPaths paths, Options options)
    : paths_(std::move(paths)), state_(std::make_unique<State>(paths_, std::move(options))) {
    state_->runs = std::make_unique<AgentRuns>(
        File::join(paths_.appSupport(), "Logs"),
        [this](const SessionKey& key, int status, const std::string& log) {
            continuationEnded(key, status, log);
        });
}

TidewickService::TidewickService(TidewickPaths paths)
    : TidewickService(std::move(paths), Options()) {}

TidewickService::~TidewickService() {
    stop();
    // Whatever still runs must end while everything it uses exists: held requests
    // (handle() driven directly), then the connection threads, then the queued work.
    drain();
    state_->server.reset();
    state_->runs.reset();
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
    // A pause that ended while Tidewick was not running ends now; a later end is awaited.
    (void)s.editor.resumeIfDue();
    scheduleResume(s.settingsFile.current());
    removeCrashLeftovers();
    SessionPersistence::Contents saved = s.persistence.read();
    s.work->sync([&] {
        s.sessionsUnreadable = saved.unreadable;
        s.store.restore(std::move(saved.sessions));
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
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(s.lock);
        s.instanceLock = std::move(instanceLock);
        s.running = true;
        generation = ++s.generation;
    }
    scheduleAgentCheck(generation);
    // A second after start: the interfaces and notifications of this process watch by then.
    if (s.options.usageCheckSeconds > 0)
        checkUsageEvery(std::min(1.0, s.options.usageCheckSeconds), generation);
}

void TidewickService::checkUsageEvery(double delaySeconds, std::uint64_t generation) {
    State& s = *state_;
    s.work->asyncAfter(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                           std::chrono::duration<double>(delaySeconds)),
                       [this, generation] {
                           State& s = *state_;
                           {
                               std::lock_guard guard(s.lock);
                               if (!s.running || s.generation != generation)
                                   return;
                           }
                           s.usage.check();
                           checkUsageEvery(s.options.usageCheckSeconds, generation);
                       });
}

void TidewickService::removeCrashLeftovers() const {
    // Temporaries of atomic writes whose writer was killed: Tidewick's own files, and the
    // agents' configuration files it edits.
    std::vector<std::string> folders = {paths_.appSupport(), paths_.binDirectory()};
    for (AgentKind agent : allAgentKinds) {
        folders.push_back(File::join(paths_.backupsDirectory(), rawValue(agent)));
        const std::string config = HookConfigEditor::forAgent(agent)->configPath(paths_.home());
        folders.push_back(File::parent(File::resolveLinks(config)));
    }
    for (const std::string& folder : folders)
        (void)File::removeStaleTemporaries(folder);
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
    ++s.generation;
}

void TidewickService::drain() {
    State& s = *state_;
    std::unique_lock guard(s.lock);
    // Requests are registered with the broker under this lock, so once it is closed every
    // request that will ever be held is there to be answered.
    s.closed = true;
    guard.unlock();
    (void)s.broker.resolveAll(Decision::timeout());
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
    const std::optional<AgentKind> agent = fromRaw<AgentKind>(request.agent);
    if (!agent)
        return HookResponse{HookOutput::silent()};
    const std::unique_ptr<AgentAdapter> adapter = Adapters::adapter(*agent);
    const std::optional<ParsedHook> parsed =
        adapter->parse(request.event, Payload(request.payload));
    if (!parsed)
        return HookResponse{adapter->failSafe(request.event)};
    // Read per request, so an edit of the file applies from the next one; a pause whose
    // end has come is over even if its timer has not run yet.
    (void)s.editor.resumeIfDue();
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
    if (parsed->event.kind == EventKind::error)
        raise(errorAlert(parsed->event, keyOf(parsed->event)));
    return answer(std::nullopt);
}

void TidewickService::setTranscriptStep(const SessionKey& session, std::int64_t step) {
    State& s = *state_;
    s.work->sync([&] { s.store.setTranscriptStep(session, step); });
}

void TidewickService::record(const AgentEvent& event, const HookRequest& request) {
    State& s = *state_;
    const SessionKey key = keyOf(event);
    const Date time = s.options.clock();
    s.work->sync([&] {
        const Session after = s.store.apply(event);
        if (request.host)
            s.store.setHost(key, request.host);
        // A new process is looked at once, to tell it later from another given its pid.
        if (request.agentPid && after.agentPid != request.agentPid)
            s.store.setAgentPid(key, request.agentPid, s.processes.startTime(*request.agentPid));
        if (request.tmuxPane)
            s.store.setTmuxPane(key, request.tmuxPane, request.tmuxSocket);
        // Codex writes its latest limits into its record as it works: look soon after.
        if (key.agent == AgentKind::codex && s.options.usageCheckSeconds > 0 && !s.usageCheckDue) {
            s.usageCheckDue = true;
            s.work->asyncAfter(std::chrono::seconds(1), [&s] {
                s.usageCheckDue = false;
                std::unique_lock guard(s.lock);
                if (!s.running)
                    return;
                guard.unlock();
                s.usage.check();
            });
        }
        // Queued behind this task: the log is for the user to read later, the agent need
        // not wait for the write.
        s.work->async([&s, event, time] { s.appendActivity(event, time); });
    });
}

void TidewickService::allowReadOnly(const AgentEvent& event, const HookRequest& request) {
    // The timeline tells why nobody was asked, then the tool runs as if it had been allowed.
    AgentEvent note = event;
    note.kind = EventKind::notification;
    note.title = SessionText::allowedReadOnly(event.detail);
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
    const AlertThrottle::Admission admission = s.throttle.admit(alert, s.options.clock());
    switch (admission.kind) {
    case AlertThrottle::Admission::Kind::now:
        s.announce(alert);
        return;
    case AlertThrottle::Admission::Kind::kept:
        s.work->asyncAfter(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                               std::chrono::duration<double>(admission.waitSeconds)),
                           [this, key = alert.session] { raiseKept(key); });
        return;
    case AlertThrottle::Admission::Kind::joined:
        return;
    }
}

void TidewickService::raiseKept(const SessionKey& key) {
    State& s = *state_;
    std::vector<Alert> kept = s.throttle.takeKept(key, s.options.clock());
    // A request answered or withdrawn meanwhile needs no announcing any more.
    std::erase_if(kept, [&s](const Alert& alert) {
        return alert.requestId && !s.broker.isWaiting(*alert.requestId);
    });
    if (kept.empty())
        return;
    Alert newest = kept.back();
    newest.alsoHeld = kept.size() - 1;
    s.announce(newest);
}

HookResponse TidewickService::holdForUser(const ParsedHook& parsed, const AgentAdapter& adapter,
                                          const HookRequest& hookRequest,
                                          const TidewickSettings& settings,
                                          const std::function<bool()>& isClientGone) {
    State& s = *state_;
    const AgentEvent& event = parsed.event;
    const SessionKey key = keyOf(event);
    // From before the session lists it until after it is resolved, so forget() cannot take
    // the session away from under a request.
    {
        std::lock_guard guard(s.lock);
        ++s.holding[key];
    }
    struct Release {
        State& s;
        const SessionKey& key;
        ~Release() {
            std::lock_guard guard(s.lock);
            if (--s.holding[key] == 0)
                s.holding.erase(key);
        }
    } release{s, key};
    record(event, hookRequest);
    const bool permission = parsed.hold == HoldKind::permission;
    const double timeout =
        permission ? settings.permissionTimeoutSeconds : settings.replyTimeoutSeconds;
    const PendingRequest request = heldRequest(parsed, permission, s.options.clock(), timeout);

    // Registered before it is listed: an answer may come the moment the user sees it.
    {
        std::lock_guard guard(s.lock);
        if (s.closed)
            return HookResponse{adapter.output(parsed, Decision::timeout())};
        s.broker.expect(request.id);
        if (parsed.call)
            s.calls.emplace(request.id, *parsed.call);
    }
    s.work->sync([&] { s.store.addPending(request, key); });
    raise(heldAlert(request, key));
    const HoldResult result = s.broker.wait(request.id, timeout, isClientGone);
    {
        std::lock_guard guard(s.lock);
        s.calls.erase(request.id);
    }
    s.work->sync([&] { s.store.resolvePending(request.id, key, result); });

    // The agent stops its turn unanswered: say so, unless the session is gone meanwhile.
    if (!permission && result.isTimeout() && s.store.session(key))
        raise(finishedAlert(key, event.detail));
    return HookResponse{adapter.output(parsed, result.decision())};
}

bool TidewickService::resolveFirst(const SessionKey& session, PendingKind kind, Decision decision) {
    const std::optional<Session> found = state_->store.session(session);
    if (!found)
        return false;
    auto request = std::find_if(found->pending.begin(), found->pending.end(),
                                [kind](const PendingRequest& r) { return r.kind == kind; });
    if (request == found->pending.end())
        return false;
    return state_->broker.resolve(request->id, std::move(decision));
}

bool TidewickService::answerPermission(const SessionKey& session, Answer answer,
                                       std::optional<std::string> message) {
    if (answer == Answer::deny)
        return resolveFirst(session, PendingKind::permission, Decision::deny(std::move(message)));
    // A plain allow would leave the agent's own question dialog up: questions get answers.
    const std::optional<Session> found = state_->store.session(session);
    if (!found)
        return false;
    for (const PendingRequest& request : found->pending)
        if (request.kind == PendingKind::permission)
            return !request.isQuestion() && state_->broker.resolve(request.id, Decision::allow());
    return false;
}

std::optional<std::pair<PendingRequest, HeldCall>>
TidewickService::heldCall(const SessionKey& session, bool questions) const {
    const std::optional<Session> found = state_->store.session(session);
    if (!found)
        return std::nullopt;
    for (const PendingRequest& request : found->pending) {
        if (request.kind != PendingKind::permission || request.isQuestion() != questions)
            continue;
        std::lock_guard guard(state_->lock);
        auto call = state_->calls.find(request.id);
        if (call == state_->calls.end())
            return std::nullopt;
        return std::pair(request, call->second);
    }
    return std::nullopt;
}

namespace {

using Delivery = SessionActions::Delivery;

Delivery refusal(Delivery::Kind kind, std::string sentence) {
    return Delivery{kind, std::move(sentence)};
}

// The lasting permission for Claude Code: the rule the user gave ("npm test:*" for the held
// tool, or "Tool(content)"), else the offered rule, else the agent's own suggestions.
std::optional<JSONValue::Array> claudeUpdates(const HeldCall& call,
                                              const std::optional<AlwaysAllowOffer>& offer,
                                              const std::optional<std::string>& rule) {
    if (rule) {
        const std::size_t open = rule->find('(');
        if (open != std::string::npos && open > 0 && rule->back() == ')')
            return JSONValue::Array{PermissionUpdates::allowRule(
                rule->substr(0, open), rule->substr(open + 1, rule->size() - open - 2))};
        return JSONValue::Array{PermissionUpdates::allowRule(call.tool, *rule)};
    }
    if (offer && offer->kind == AlwaysAllowOffer::Kind::agentRule)
        return JSONValue::Array{PermissionUpdates::allowRule(offer->tool, offer->text)};
    if (!call.suggestions.empty())
        return call.suggestions;
    return std::nullopt;
}

// A prefix as the read-only test compares it: lower case, without a rule's ":*".
std::string asPrefix(std::string_view rule) {
    std::string prefix = Text::lowercased(rule);
    if (prefix.ends_with(":*"))
        prefix.resize(prefix.size() - 2);
    return std::string(Text::trimmed(prefix));
}

} // namespace

SessionActions::Delivery TidewickService::allowAlways(const SessionKey& session,
                                                     std::optional<std::string> rule) {
    if (session.agent == AgentKind::codex)
        return refusal(Delivery::Kind::refused, std::string(SessionText::codexKeepsNoRule));
    auto held = heldCall(session, false);
    if (!held)
        return refusal(Delivery::Kind::nothingHeld, {});
    const auto& [request, call] = *held;
    if (rule) {
        rule = std::string(Text::trimmed(*rule));
        if (rule->empty() || (session.agent != AgentKind::claude && asPrefix(*rule).empty()))
            return refusal(Delivery::Kind::badAnswer, std::string(SessionText::emptyRule));
    }
    if (session.agent == AgentKind::claude) {
        auto updates = claudeUpdates(call, request.alwaysAllow, rule);
        if (!updates)
            return refusal(Delivery::Kind::refused, SessionText::noRuleOffered(session.agent));
        std::string sentence = PermissionUpdates::describe(*updates);
        if (!state_->broker.resolve(request.id, Decision::allow(std::nullopt, std::move(*updates))))
            return refusal(Delivery::Kind::nothingHeld, {});
        return Delivery{Delivery::Kind::delivered, std::move(sentence)};
    }
    std::optional<std::string> prefix = rule ? std::optional(asPrefix(*rule)) : std::nullopt;
    if (!prefix && request.alwaysAllow)
        prefix = request.alwaysAllow->text;
    if (!prefix)
        return refusal(Delivery::Kind::refused, SessionText::noRuleOffered(session.agent));
    if (!state_->broker.resolve(request.id, Decision::allow()))
        return refusal(Delivery::Kind::nothingHeld, {});
    addSafePrefix(session, *prefix);
    return Delivery{Delivery::Kind::delivered, SessionText::nowAllowsPrefix(*prefix)};
}

void TidewickService::addSafePrefix(const SessionKey& session, const std::string& prefix) {
    State& s = *state_;
    // Through the editor, the settings file's one writer here: it never writes over a file
    // that does not read, and keeps what else changed in it meanwhile.
    const ControlResult added =
        s.editor.changeSetting("gating.safePrefixes", prefix, SettingCatalog::Change::add);
    if (!added.isDone())
        s.report("Tidewick couldn't save the prefix it allows: " + added.sentence);
    AgentEvent note;
    note.agent = session.agent;
    note.sessionId = session.sessionId;
    note.kind = EventKind::notification;
    note.title = SessionText::nowAllowsPrefix(prefix);
    note.receivedAt = s.options.clock();
    s.work->sync([&] { (void)s.store.apply(note); });
}

SessionActions::Delivery TidewickService::answerQuestions(const SessionKey& session,
                                                         std::vector<std::string> answers) {
    auto held = heldCall(session, true);
    if (!held)
        return refusal(Delivery::Kind::nothingHeld, {});
    const auto& [request, call] = *held;
    if (answers.size() != call.questions.size())
        return refusal(Delivery::Kind::badAnswer,
                       SessionText::answersWanted(session.agent, call.questions.size()));
    for (std::size_t i = 0; i < answers.size(); ++i) {
        answers[i] = call.questions[i].answerFor(answers[i]);
        if (answers[i].empty())
            return refusal(Delivery::Kind::badAnswer, std::string(SessionText::emptyAnswer));
    }
    JSONValue input = AskedQuestions::answeredInput(call.input, call.questions, answers);
    std::string sentence = AskedQuestions::describeAnswers(input).value_or("");
    if (!state_->broker.resolve(request.id, Decision::allow(std::move(input), {})))
        return refusal(Delivery::Kind::nothingHeld, {});
    return Delivery{Delivery::Kind::delivered, std::move(sentence)};
}

bool TidewickService::reply(const SessionKey& session, std::string text) {
    return resolveFirst(session, PendingKind::reply, Decision::reply(std::move(text)));
}

bool TidewickService::letStop(const SessionKey& session) {
    return resolveFirst(session, PendingKind::reply, Decision::letStop());
}

SessionActions::Result TidewickService::continueSession(const SessionKey& key, std::string text) {
    namespace Say = SessionText;
    State& s = *state_;
    const std::optional<std::string_view> name = AgentCommand::programName(key.agent);
    if (!name)
        return {false, Say::cannotContinueFromHere(key.agent)};
    const std::optional<Session> session = s.store.session(key);
    if (!session)
        return {false, Say::alreadyOver(key.agent)};
    if (text.empty())
        return {false, "A reply needs some text."};
    const bool holdsPermission =
        std::any_of(session->pending.begin(), session->pending.end(),
                    [](const PendingRequest& r) { return r.kind == PendingKind::permission; });
    if (holdsPermission || session->status == SessionStatus::working)
        return {false, Say::busyNow(key.agent, holdsPermission)};
    if (!session->pending.empty()) {
        const bool delivered = reply(key, std::move(text));
        return {delivered, std::string(delivered ? Say::replied : Say::alreadyEnded)};
    }
    std::error_code ignored;
    if (!session->projectPath || !std::filesystem::is_directory(*session->projectPath, ignored))
        return {false, std::string(Say::noProjectFolder)};

    const TidewickSettings settings = s.settingsFile.current();
    const auto configured = settings.agentCommands.find(std::string(rawValue(key.agent)));
    const std::optional<std::vector<std::string>> program = AgentCommand::resolve(
        key.agent,
        {session->agentPid, session->agentStartTime, searchPathOf(s.options.searchPath),
         configured == settings.agentCommands.end() ? std::nullopt
                                                    : std::optional(configured->second)},
        s.processes);
    if (!program)
        return {false, Say::programNotFound(key.agent, *name)};

    Subprocess::Command command;
    command.arguments = AgentCommand::continuation(key.agent, *program, key.sessionId, text);
    command.directory = *session->projectPath;
    s.work->sync([&] { s.store.logReply(key, text); });
    const std::string log = s.runs->logPath(key);
    try {
        s.runs->start(key, command);
    } catch (const std::exception& error) {
        std::string sentence = Say::couldNotStart(key.agent, error.what(), log);
        s.work->sync([&] { s.store.addNote(key, TimelineKind::error, sentence); });
        return {false, std::move(sentence)};
    }
    return {true, Say::continuing(key.agent, log)};
}

void TidewickService::continuationEnded(const SessionKey& key, int status, const std::string& log) {
    if (status == 0)
        return;
    State& s = *state_;
    s.work->async([&s, key, status, log] {
        // Interrupted because the user ended the session: nothing went wrong.
        const std::optional<Session> session = s.store.session(key);
        if (!session || session->endedByYouAt)
            return;
        s.store.addNote(key, TimelineKind::error,
                        SessionText::continuationFailed(key.agent, status, log));
    });
}

SessionActions::Result TidewickService::endSession(const SessionKey& key) {
    State& s = *state_;
    const std::optional<Session> session = s.store.session(key);
    if (!session || session->status == SessionStatus::ended)
        return {false, SessionText::alreadyOver(key.agent)};
    const EndFacts facts = endFacts(*session, s.locations);
    const std::optional<std::int32_t> pid = session->agentPid;
    const std::optional<std::int64_t> started = session->agentStartTime;
    const bool running = pid && s.processes.isSameProcess(*pid, started);
    if (running && s.processes.signal(*pid, SIGINT)) {
        const auto grace = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(s.options.endGraceSeconds));
        s.work->asyncAfter(grace, [&s, pid = *pid, started] {
            if (s.processes.isSameProcess(pid, started))
                (void)s.processes.signal(pid, SIGTERM);
        });
    }
    // Whatever the agent is held on ends with the session.
    for (const PendingRequest& request : session->pending)
        (void)s.broker.resolve(request.id,
                               request.kind == PendingKind::permission
                                   ? Decision::deny(std::string(SessionText::endedByYouDenial))
                                   : Decision::letStop());
    s.work->sync([&] {
        s.store.markEndedByYou(key, facts.sentBefore);
        s.store.setMessagesAtEnd(key, facts.userMessages);
    });
    return {true, running ? SessionText::ending(key.agent)
                          : SessionText::endedWithoutProcess(key.agent)};
}

void TidewickService::checkAgents() {
    State& s = *state_;
    s.work->sync([&] {
        const std::vector<Session> sessions = s.store.snapshot();
        for (const AgentProbe::Finding& finding : s.probe.check(sessions, s.options.clock())) {
            if (finding.kind == AgentProbe::Finding::Kind::turnFinished) {
                (void)s.store.markTurnFinished(finding.key);
                continue;
            }
            const std::optional<Session> before = s.store.session(finding.key);
            if (!before || !s.store.markExited(finding.key, finding.pid))
                continue;
            // A hook command left waiting by the vanished agent is let go.
            for (const PendingRequest& request : before->pending)
                (void)s.broker.resolve(request.id, Decision::timeout());
        }
    });
}

void TidewickService::scheduleAgentCheck(std::uint64_t generation) {
    State& s = *state_;
    if (s.options.agentCheckSeconds <= 0)
        return;
    const auto delay = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(s.options.agentCheckSeconds));
    s.work->asyncAfter(delay, [this, generation] {
        {
            std::lock_guard guard(state_->lock);
            if (state_->generation != generation)
                return;
        }
        checkAgents();
        scheduleAgentCheck(generation);
    });
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

void TidewickService::scheduleResume(const TidewickSettings& settings) {
    State& s = *state_;
    if (!settings.gating.paused || !settings.gating.pausedUntil)
        return;
    const double wait =
        std::chrono::duration<double>(*settings.gating.pausedUntil - s.options.clock()).count();
    Scheduler& timers = s.options.timers ? *s.options.timers : s.scheduler;
    // A later pause or a resume meanwhile is no matter: resumeIfDue reads the file then.
    timers.schedule(wait, [&s] { (void)s.editor.resumeIfDue(); });
}

ControlResult TidewickService::pause(std::optional<Date> until) {
    ControlResult result = state_->editor.pause(until);
    if (result.isDone())
        scheduleResume(state_->settingsFile.current());
    return result;
}

ControlResult TidewickService::resume() {
    return state_->editor.resume();
}

ControlResult TidewickService::changeSetting(const std::string& name, const std::string& value,
                                             SettingCatalog::Change change) {
    return state_->editor.changeSetting(name, value, change);
}

ControlResult TidewickService::forget(const SessionKey& key) {
    State& s = *state_;
    ControlResult result;
    // On the work queue, where requests are listed: nothing can be held in between.
    s.work->sync([&] {
        const std::optional<Session> session = s.store.session(key);
        if (!session) {
            result = ControlResult::refused(std::string(SessionText::noSuchSession));
            return;
        }
        std::vector<std::string_view> ids;
        const std::vector<Session> all = s.store.snapshot();
        for (const Session& each : all)
            ids.push_back(each.key.sessionId);
        const std::string who = std::string(displayName(key.agent)) + " session " +
                                ShortIds(std::move(ids)).of(key.sessionId);
        bool holding = false;
        {
            std::lock_guard guard(s.lock);
            holding = s.holding.count(key) > 0;
        }
        const double quiet =
            std::chrono::duration<double>(s.options.clock() - session->lastActivityAt).count();
        if (holding || !session->pending.empty())
            result = ControlResult::refused(SessionText::forgetHeld(who));
        else if (session->status == SessionStatus::working &&
                 quiet < forgetWorkingAfterMinutes * 60.0)
            result = ControlResult::refused(
                SessionText::forgetWorking(who, forgetWorkingAfterMinutes));
        else {
            s.store.remove(key);
            s.saver.flush();
            result = ControlResult::done(SessionText::forgotten(who));
        }
    });
    return result;
}

ControlResult TidewickService::forgetAll() {
    State& s = *state_;
    std::size_t forgotten = 0, kept = 0;
    s.work->sync([&] {
        for (const Session& session : s.store.snapshot()) {
            bool holding = false;
            {
                std::lock_guard guard(s.lock);
                holding = s.holding.count(session.key) > 0;
            }
            if (holding || !session.pending.empty()) {
                ++kept;
                continue;
            }
            s.store.remove(session.key);
            ++forgotten;
        }
        // The user erased the history: saved at once, not a while later.
        s.saver.flush();
    });
    return ControlResult::done(SessionText::forgotAll(forgotten, kept));
}

TidewickService::Watch TidewickService::watch(Watcher watcher) {
    State& s = *state_;
    Watch watch;
    // On the work queue, where every change happens: no change falls between the
    // sessions returned and the first one the watcher is told.
    s.work->sync([&] {
        std::unique_lock guard(s.watchersLock);
        watch.id = s.nextWatchId++;
        s.watchers.emplace(watch.id, std::move(watcher));
        watch.sessions = s.store.snapshot();
    });
    return watch;
}

void TidewickService::unwatch(WatchId id) {
    std::unique_lock guard(state_->watchersLock);
    state_->watchers.erase(id);
}

} // namespace tidewick
