// The application's one coordinator: receives each hook request, keeps the
// sessions up to date, holds what the user must answer, and renders the answer
// in the agent's own dialect.
#pragma once

#include "foundation/Clock.h"
#include "foundation/TidewickPaths.h"
#include "service/Alert.h"
#include "service/TidewickSettings.h"
#include "sessions/SessionStore.h"
#include "wire/ClientProbe.h"
#include "wire/HookRequest.h"
#include "wire/HookResponse.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tidewick {

class TidewickService {
public:
    /// Thrown by start() when another Tidewick already runs for these paths.
    class AlreadyRunning : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    using AlertHandler = std::function<void(const Alert&)>;
    using ChangeHandler = std::function<void(const StoreChange&)>;

    enum class Answer { allow, deny };

    struct Options {
        /// The service's clock (held requests' dates, sessions, alerts).
        Clock clock = tidewick::now;
        /// Alerts of one session closer together than this are dropped, so a burst raises one.
        double alertThrottleSeconds = 3.0;
        /// Delay between the first change of a burst and its save.
        double saveDelaySeconds = 1.5;
    };

    /// A stopped service for `paths`; nothing is read or written until start().
    explicit TidewickService(TidewickPaths paths, Options options = {});
    /// Stops the service (see stop()).
    ~TidewickService();
    TidewickService(const TidewickService&) = delete;
    TidewickService& operator=(const TidewickService&) = delete;

    /// Start-up: takes the single-instance lock (else throws AlreadyRunning with the
    /// sentence "Tidewick is already running. Quit it before starting another."),
    /// makes the directories and the secret, loads settings and sessions, and starts
    /// the hook server on the socket path. Throws SystemError when a step fails; the
    /// service is then left stopped.
    void start();
    /// Stops accepting hook commands, answers every held request with the time-out
    /// decision, waits for their connections to finish, saves the sessions at once and
    /// removes the socket. Does nothing when stopped.
    void stop();
    [[nodiscard]] bool isRunning() const;

    /// Runs one hook request: the hook server's handler, public so that tests and the
    /// control commands can drive it. Blocks while the request is held.
    [[nodiscard]] HookResponse handle(const HookRequest& request, const ClientProbe& probe);
    /// The same with any client-gone test (tests pass a lambda).
    [[nodiscard]] HookResponse handle(const HookRequest& request,
                                      const std::function<bool()>& isClientGone);

    /// Answers the first permission request held in `session`. True only when the
    /// decision reached the waiting agent (the first decision wins).
    bool answerPermission(const SessionKey& session, Answer answer,
                          std::optional<std::string> message = std::nullopt);
    /// Sends `text` as the reply to the turn held in `session`. True when delivered.
    bool reply(const SessionKey& session, std::string text);
    /// Lets the agent held at the end of its turn in `session` stop. True when delivered.
    bool letStop(const SessionKey& session);

    /// Every held request with its session, oldest first.
    [[nodiscard]] std::vector<std::pair<SessionKey, PendingRequest>> pendingRequests() const;
    /// Every session, those needing the user first.
    [[nodiscard]] std::vector<Session> sessions() const;
    /// The settings in force now (re-read when the file changed).
    [[nodiscard]] TidewickSettings settings();
    /// Saves `settings` to the settings file; they apply from the next request.
    void saveSettings(const TidewickSettings& settings);

    /// Installs the alert handler (terminal UI, notifications). Called on the thread that
    /// raised the alert; it must not block.
    void setAlertHandler(AlertHandler handler);
    /// Adds a handler told about every change of the sessions (for a UI to redraw).
    void addChangeHandler(ChangeHandler handler);

    [[nodiscard]] const TidewickPaths& paths() const { return paths_; }
    /// The shared secret (valid after start()); the control socket checks it too.
    [[nodiscard]] const std::string& secret() const;

private:
    struct State;
    TidewickPaths paths_;
    std::unique_ptr<State> state_;
};

} // namespace tidewick
