// An interface's view of an application running in another process, through a
// subscription on its control socket: a copy of its sessions that the stream
// keeps up to date, decisions sent as control requests for exactly the session
// shown, and a new subscription as soon as the application is back after it
// went away.
#pragma once

#include "control/ControlClient.h"
#include "service/ApplicationView.h"

#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <thread>

namespace tidewick {

class AttachedApplication final : public ApplicationView {
public:
    struct Options {
        /// How often a view whose application went away looks for it again.
        double reattachSeconds = 1.0;
    };

    /// Told when the application went away.
    static constexpr const char* lostSentence =
        "Tidewick isn't running any more. This window attaches again as soon as it is back.";
    /// Told when it is back.
    static constexpr const char* restoredSentence = "Tidewick is running again.";

    /// A view of the application of `paths`, not attached yet.
    AttachedApplication(TidewickPaths paths, Options options);
    explicit AttachedApplication(TidewickPaths paths);
    /// Stops following the application; held requests are left as they are.
    ~AttachedApplication() override;
    AttachedApplication(const AttachedApplication&) = delete;
    AttachedApplication& operator=(const AttachedApplication&) = delete;

    /// Subscribes to the application running for these paths and, when one answers,
    /// follows it from then on, on a thread of its own. True when attached; false when no
    /// application answers. Throws ControlClient::VersionMismatch when it speaks another
    /// version. Call it once.
    [[nodiscard]] bool attach();

    [[nodiscard]] std::vector<Session> sessions() const override;
    [[nodiscard]] std::vector<HeldRequest> pendingRequests() const override;
    /// Decisions go to the application as control requests naming the session exactly;
    /// false when it was not delivered there, or no application answered.
    bool answerPermission(const SessionKey& session, Answer answer,
                          std::optional<std::string> message = std::nullopt) override;
    /// Sent as control requests too: delivered with what the application says it did,
    /// refused or a bad answer with its sentence, nothing held when no application answered.
    Delivery allowAlways(const SessionKey& session, std::optional<std::string> rule) override;
    Delivery answerQuestions(const SessionKey& session, std::vector<std::string> answers) override;
    bool reply(const SessionKey& session, std::string text) override;
    bool letStop(const SessionKey& session) override;
    /// Asked of the application; a failure to reach it is the sentence of the result.
    Result continueSession(const SessionKey& session, std::string text) override;
    Result endSession(const SessionKey& session) override;
    /// Changes and alerts are told on the view's thread, and so are lost and restored
    /// connections; after a new subscription the watcher is told one change per session
    /// that differs (removed or replaced), so that a copy kept from the changes stays right.
    [[nodiscard]] Watch watch(Watcher watcher) override;
    void unwatch(WatchId id) override;
    /// Read from the settings file, as the application does.
    [[nodiscard]] TidewickSettings settings() override;
    /// Sent to the application as a control request; lost when none answers.
    void setTranscriptStep(const SessionKey& session, std::int64_t step) override;
    [[nodiscard]] const TidewickPaths& paths() const override { return paths_; }
    [[nodiscard]] Location location() const override { return Location::attached; }
    /// Sent to the application as control requests; refused with a sentence when none
    /// answers.
    ControlResult pause(std::optional<Date> until) override;
    ControlResult resume() override;
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change change) override;
    ControlResult forget(const SessionKey& session) override;
    ControlResult forgetAll() override;

private:
    using Mirror = std::map<SessionKey, Session>;

    /// Subscribes and reads the sessions the application starts from.
    [[nodiscard]] std::optional<std::pair<ControlClient::Subscription, Mirror>> subscribe();
    void follow();
    /// Reads what arrived; false once the subscription has ended.
    bool readEvents();
    /// Replaces the copy with `sessions` and tells the watchers what that changed.
    void replaceSessions(Mirror sessions);
    void tellConnection(Connection connection, const std::string& sentence);
    /// Sends `request` for exactly `session`; true when the application did what it asks.
    bool sendFor(ControlRequest request, const SessionKey& session);
    /// Sends `request` for `session`; whether it was done, and the application's sentence.
    Result sendForResult(ControlRequest request, const SessionKey& session);
    /// Sends `request` for exactly `session` and says how it went.
    [[nodiscard]] Delivery deliveryFor(ControlRequest request, const SessionKey& session);
    /// Sends `request` and turns its reply into the result with its sentence.
    ControlResult control(const ControlRequest& request);

    const TidewickPaths paths_;
    const Options options_;
    SettingsFile settingsFile_;
    /// Wakes the thread when the view goes.
    FileDescriptor stop_;

    // Held shared by the thread while it applies one event and tells the watchers, and
    // exclusively by watch() and unwatch(): a watcher starts from exactly the copy the
    // changes it is told apply to.
    mutable std::shared_mutex watchersLock_;
    std::map<WatchId, Watcher> watchers_;
    WatchId nextWatchId_ = 1;

    mutable std::mutex sessionsLock_;
    Mirror sessions_;

    // The thread's own.
    std::optional<ControlClient::Subscription> subscription_;
    /// The sentence last told for a lost connection; empty while connected.
    std::string lostWith_;
    std::thread thread_;
};

} // namespace tidewick
