// The application's one coordinator: receives each hook request, keeps the
// sessions up to date, holds what the user must answer, and renders the answer
// in the agent's own dialect.
#pragma once

#include "agents/ProcessAccess.h"
#include "events/AgentAdapter.h"
#include "foundation/Clock.h"
#include "foundation/TidewickPaths.h"
#include "service/ActivityLog.h"
#include "service/Alert.h"
#include "service/ApplicationView.h"
#include "foundation/Scheduler.h"
#include "service/TidewickSettings.h"
#include "service/UsageWatch.h"
#include "sessions/SessionStore.h"
#include "wire/ClientProbe.h"
#include "wire/HookRequest.h"
#include "wire/HookResponse.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tidewick {

class TidewickService final : public ApplicationView {
public:
    /// Thrown by start() when another Tidewick already runs for these paths.
    class AlreadyRunning : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Told a complete sentence about a problem the service works around (a malformed
    /// settings file, an activity log that cannot be written).
    using ProblemReporter = std::function<void(const std::string& sentence)>;

    /// The sentence AlreadyRunning carries.
    static constexpr const char* alreadyRunningSentence =
        "Tidewick is already running. Quit it before starting another.";

    struct Options {
        /// The service's clock (held requests' dates, sessions, alerts).
        Clock clock = tidewick::now;
        /// Alerts of one session closer together than this are held back and announced
        /// together when the window ends, so a burst raises one alert at a time.
        double alertThrottleSeconds = 3.0;
        /// Delay between the first change of a burst and its save.
        double saveDelaySeconds = 1.5;
        /// Where problems are reported; empty: written to standard error.
        ProblemReporter reportProblem;
        /// Size past which "activity.jsonl" is rotated to "activity.jsonl.1".
        std::uintmax_t activityLimitBytes = ActivityLog::defaultLimitBytes;
        /// Runs the end of a pause for a while; null: the work queue. Must outlive the
        /// service.
        Scheduler* timers = nullptr;
        /// How often, while running, the service looks whether the agents it shows as
        /// running still do (0: never).
        double agentCheckSeconds = 5;
        /// How long an agent interrupted by endSession() has before it is terminated.
        double endGraceSeconds = 5;
        /// The processes agents run as; null: the system's.
        const ProcessAccess* processes = nullptr;
        /// Where agents' programs are looked for; nothing: this process's PATH.
        std::optional<std::string> searchPath;
        /// While running, the agents' usage limits are read this often (and a second after
        /// each Codex event) to alert once per window past 90 %; 0: never.
        double usageCheckSeconds = 15;
        /// Reads the usage figures; empty: Claude Code's and Codex's files under the home.
        UsageWatch::Reader readUsage;
        /// Where the player programs of the alert sounds are looked for (a PATH value); the
        /// service plays each alert's sound once, for every interface. Nothing: no sound is
        /// played, and each alert that has one asks the interfaces for the bell instead.
        std::optional<std::string> soundSearchPath;
    };

    /// A working session quiet for this long may be forgotten: its agent is likely gone.
    static constexpr int forgetWorkingAfterMinutes = 10;

    /// A stopped service for `paths`; nothing is read or written until start().
    TidewickService(TidewickPaths paths, Options options);
    /// The same with the default options. (Two constructors: GCC cannot take the nested
    /// Options with member defaults as a default argument inside the class.)
    explicit TidewickService(TidewickPaths paths);
    /// Stops the service (see stop()).
    ~TidewickService();
    TidewickService(const TidewickService&) = delete;
    TidewickService& operator=(const TidewickService&) = delete;

    /// Start-up: takes the single-instance lock (else throws AlreadyRunning with the
    /// sentence "Tidewick is already running. Quit it before starting another."),
    /// makes the directories and the secret, removes the temporaries of atomic writes
    /// whose writer died, loads settings and sessions, and starts the hook server on the
    /// socket path. A sessions file that does not load is kept aside as
    /// "sessions.json.unreadable-<time>" before the first save replaces it, which the
    /// activity log and the problem reporter are told once. Throws SystemError when a step fails; the
    /// service is then left stopped.
    void start();
    /// Stops accepting hook commands, answers every held request with the time-out
    /// decision, waits for their connections to finish, saves the sessions at once,
    /// removes the socket and releases the single-instance lock. Does nothing when
    /// stopped. Must not be called from a handler the service calls (alert, change).
    void stop();
    [[nodiscard]] bool isRunning() const;

    /// Runs one hook request: the hook server's handler, public so that tests and the
    /// control commands can drive it. Blocks while the request is held. Thread-safe.
    /// Works before start() too; once stop() has begun, a request that would be held is
    /// answered at once with the time-out decision. An unknown agent gets the silent
    /// answer, an invocation the adapter ignores the adapter's fail-safe answer.
    [[nodiscard]] HookResponse handle(const HookRequest& request, const ClientProbe& probe);
    /// The same with any client-gone test (tests pass a lambda).
    [[nodiscard]] HookResponse handle(const HookRequest& request,
                                      const std::function<bool()>& isClientGone);

    // The user's view and decisions (see SessionActions).
    bool answerPermission(const SessionKey& session, Answer answer,
                          std::optional<std::string> message = std::nullopt) override;
    Delivery allowAlways(const SessionKey& session, std::optional<std::string> rule) override;
    Delivery answerQuestions(const SessionKey& session, std::vector<std::string> answers) override;
    bool reply(const SessionKey& session, std::string text) override;
    bool letStop(const SessionKey& session) override;
    /// Continues a finished, idle or ended session with the agent's own program, run
    /// headless in the session's project folder, in a process group of its own, with its
    /// output in "Logs" of the application folder. Refused for a session at work or
    /// waiting for a permission answer, and for Antigravity. The timeline shows the reply
    /// and, if the program cannot start or ends with an error, a sentence saying so.
    Result continueSession(const SessionKey& session, std::string text) override;
    /// Interrupts the session's agent (SIGINT, then SIGTERM after endGraceSeconds if it
    /// is still the same process) and marks the session ended by you, with the number of
    /// your messages and the last ones from its record. Refused for an ended session.
    Result endSession(const SessionKey& session) override;
    /// Looks once at the agents the sessions show as running (what the service does
    /// every agentCheckSeconds): those gone end their session with "The agent exited",
    /// turns their record shows over become finished. Thread-safe.
    void checkAgents();
    [[nodiscard]] std::vector<HeldRequest> pendingRequests() const override;
    [[nodiscard]] std::vector<Session> sessions() const override;
    /// Records how far the application has read the session's transcript (its
    /// transcriptStep: see Transcript::position). Nothing happens for an unknown session.
    void setTranscriptStep(const SessionKey& session, std::int64_t step) override;
    /// The settings in force now (re-read when the file changed).
    [[nodiscard]] TidewickSettings settings() override;
    /// Saves `settings` to the settings file; they apply from the next request.
    void saveSettings(const TidewickSettings& settings);

    /// Pausing, settings and forgetting (see ApplicationControls). A pause with an end
    /// resumes by itself then (also after a restart), or at the first request after it.
    ControlResult pause(std::optional<Date> until) override;
    ControlResult resume() override;
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change change) override;
    /// Refused for a session holding a request (or about to), and for a working one heard
    /// from within forgetWorkingAfterMinutes. The sessions file is saved at once.
    ControlResult forget(const SessionKey& session) override;
    ControlResult forgetAll() override;

    /// Watches the sessions (see ApplicationView). Changes are told on the work queue,
    /// alerts on the thread that raised them (a connection's) or on the work queue for
    /// alerts the throttle held back. A watcher may answer requests but must not call
    /// stop(); one that throws is reported and costs nothing else. Must not be called
    /// from a watcher.
    [[nodiscard]] Watch watch(Watcher watcher) override;
    void unwatch(WatchId id) override;
    [[nodiscard]] Location location() const override { return Location::inProcess; }

    [[nodiscard]] const TidewickPaths& paths() const override { return paths_; }
    /// The shared secret (valid after start()); the control socket checks it too.
    [[nodiscard]] const std::string& secret() const;
    /// The file whose lock marks the running instance: "tidewick.lock" in appSupport.
    [[nodiscard]] std::string instanceLockPath() const;

private:
    struct State;
    HookResponse holdForUser(const ParsedHook& parsed, const AgentAdapter& adapter,
                             const HookRequest& request, const TidewickSettings& settings,
                             const std::function<bool()>& isClientGone);
    void removeCrashLeftovers() const;
    void record(const AgentEvent& event, const HookRequest& request);
    /// Runs checkAgents() now and again every agentCheckSeconds while `generation` is the
    /// current run of the service.
    void scheduleAgentCheck(std::uint64_t generation);
    void continuationEnded(const SessionKey& key, int status, const std::string& log);
    void allowReadOnly(const AgentEvent& event, const HookRequest& request);
    /// Announces `alert` now or, within its session's throttle window, when the window ends.
    void raise(const Alert& alert);
    /// Announces what the throttle kept for `key`, once its window has ended.
    void raiseKept(const SessionKey& key);
    /// Reads the usage figures on the work queue after `delaySeconds` if the service still
    /// runs as `generation`, then again every usageCheckSeconds.
    void checkUsageEvery(double delaySeconds, std::uint64_t generation);
    /// Hands `decision` to the session's oldest held request of `kind`; true when delivered.
    bool resolveFirst(const SessionKey& session, PendingKind kind, Decision decision);
    /// Has the pause in the settings end by itself when its time comes.
    void scheduleResume(const TidewickSettings& settings);
    /// The session's oldest held permission request that asks questions (or, with
    /// `questions` false, that does not) and the call behind it, while it is held.
    std::optional<std::pair<PendingRequest, HeldCall>> heldCall(const SessionKey& session,
                                                                bool questions) const;
    /// Adds `prefix` to the commands Tidewick allows without asking and notes it in the
    /// session's timeline.
    void addSafePrefix(const SessionKey& session, const std::string& prefix);
    /// Closes the door to new holds, answers every held request with the time-out decision
    /// and waits until no handle() call is running.
    void drain();

    TidewickPaths paths_;
    std::unique_ptr<State> state_;
};

} // namespace tidewick
