// For the control tests: a control target that records the decisions it is handed
// and tells its watchers what a test makes it, and a control server on a fresh home.
#pragma once

#include "control/ControlServer.h"
#include "service/ApplicationView.h"
#include "testing/TemporaryDirectory.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace tidewick::testing {

inline Session sessionWith(AgentKind agent, std::string id,
                           std::vector<PendingRequest> pending = {}) {
    Session session;
    session.key = SessionKey{agent, std::move(id)};
    session.pending = std::move(pending);
    return session;
}

inline PendingRequest heldRequest(PendingKind kind, std::string title) {
    PendingRequest request;
    request.id = UUID::random();
    request.kind = kind;
    request.title = std::move(title);
    request.createdAt = dateFromSeconds(1'700'000'000.5);
    request.deadline = dateFromSeconds(1'700'000'300.5);
    return request;
}

/// Answers as the service would: a decision is delivered once per held request, and a
/// question is never allowed plainly.
class FakeTarget final : public ApplicationView {
public:
    struct Call {
        std::string what;
        SessionKey key;
        std::optional<std::string> text;
    };

    std::vector<Session> all;
    /// When set, what allowAlways and answerQuestions report instead of taking a request.
    std::optional<Delivery> scripted;
    /// What the controls (pause, settings, forgetting) answer.
    ControlResult controlResult = ControlResult::done("Done.");

    std::vector<Session> sessions() const override {
        std::lock_guard guard(mutex_);
        return all;
    }
    std::vector<HeldRequest> pendingRequests() const override {
        std::lock_guard guard(mutex_);
        std::vector<HeldRequest> held;
        for (const Session& session : all)
            for (const PendingRequest& request : session.pending)
                held.emplace_back(session.key, request);
        return held;
    }
    bool answerPermission(const SessionKey& key, SessionActions::Answer answer,
                          std::optional<std::string> message) override {
        if (answer == SessionActions::Answer::deny)
            return take("deny", key, PendingKind::permission, std::move(message));
        return take("allow", key, PendingKind::permission, std::move(message),
                    Taking::notAQuestion);
    }
    Delivery allowAlways(const SessionKey& key, std::optional<std::string> rule) override {
        return deliver("allowAlways", key, std::move(rule));
    }
    Delivery answerQuestions(const SessionKey& key, std::vector<std::string> answers) override {
        std::string joined;
        for (const std::string& answer : answers)
            joined += (joined.empty() ? "" : "|") + answer;
        return deliver("answer", key, joined);
    }
    bool reply(const SessionKey& key, std::string text) override {
        return take("reply", key, PendingKind::reply, std::move(text));
    }
    bool letStop(const SessionKey& key) override {
        return take("letStop", key, PendingKind::reply, std::nullopt);
    }
    void setTranscriptStep(const SessionKey& key, std::int64_t step) override {
        note("transcriptStep", key, std::to_string(step));
    }
    ControlResult pause(std::optional<Date> until) override {
        return control("pause", {}, until ? std::to_string(secondsSince1970(*until)) : "");
    }
    ControlResult resume() override { return control("resume", {}, std::nullopt); }
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change change) override {
        return control("setting", {}, name + " " + std::string(rawValue(change)) + " " + value);
    }
    ControlResult forget(const SessionKey& key) override { return control("forget", key, {}); }
    ControlResult forgetAll() override { return control("forgetAll", {}, std::nullopt); }
    TidewickSettings settings() override { return {}; }
    const TidewickPaths& paths() const override { return paths_; }
    Location location() const override { return Location::inProcess; }

    Watch watch(Watcher watcher) override {
        std::lock_guard guard(mutex_);
        watchers_.emplace(++lastWatch_, std::move(watcher));
        return {lastWatch_, all};
    }
    void unwatch(WatchId id) override {
        std::lock_guard guard(mutex_);
        watchers_.erase(id);
    }

    /// Every call handed on so far, in order.
    std::vector<Call> calls() {
        std::lock_guard guard(mutex_);
        return calls_;
    }
    /// Applies a session change to `all` and tells every watcher, as the service would.
    void change(const Session& session) {
        std::lock_guard guard(mutex_);
        std::erase_if(all, [&](const Session& s) { return s.key == session.key; });
        all.push_back(session);
        for (const auto& [id, watcher] : watchers_)
            if (watcher.changed)
                watcher.changed(StoreChange::changed(session));
    }
    void alert(const Alert& alert) {
        std::lock_guard guard(mutex_);
        for (const auto& [id, watcher] : watchers_)
            if (watcher.alerted)
                watcher.alerted(alert);
    }
    std::size_t watcherCount() {
        std::lock_guard guard(mutex_);
        return watchers_.size();
    }

private:
    enum class Taking { any, notAQuestion };

    void note(std::string what, SessionKey key, std::optional<std::string> text) {
        std::lock_guard guard(mutex_);
        calls_.push_back({std::move(what), std::move(key), std::move(text)});
    }
    ControlResult control(std::string what, SessionKey key, std::optional<std::string> text) {
        note(std::move(what), std::move(key), std::move(text));
        return controlResult;
    }
    Delivery deliver(std::string what, const SessionKey& key, std::optional<std::string> text) {
        if (scripted) {
            note(std::move(what), key, std::move(text));
            return *scripted;
        }
        const bool taken = take(std::move(what), key, PendingKind::permission, std::move(text));
        return {taken ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, "done"};
    }
    /// Notes the call and removes the first request of `kind` that `key` holds, unless
    /// it is a question that `taking` leaves alone.
    bool take(std::string what, const SessionKey& key, PendingKind kind,
              std::optional<std::string> text, Taking taking = Taking::any) {
        note(std::move(what), key, std::move(text));
        std::lock_guard guard(mutex_);
        for (Session& session : all) {
            if (session.key != key)
                continue;
            const auto held = std::ranges::find(session.pending, kind, &PendingRequest::kind);
            if (held == session.pending.end() ||
                (taking == Taking::notAQuestion && held->isQuestion()))
                return false;
            session.pending.erase(held);
            return true;
        }
        return false;
    }

    mutable std::mutex mutex_; // Guards `all` once the server runs, calls_ and watchers_.
    std::vector<Call> calls_;
    std::map<WatchId, Watcher> watchers_;
    WatchId lastWatch_ = 0;
    TidewickPaths paths_{"/nonexistent"};
};

/// A server of `target` on a fresh home, with that home's paths and secret.
struct RunningServer {
    explicit RunningServer(ApplicationView& target) {
        paths.ensureDirectories();
        secret = paths.loadOrCreateSecret();
        server.emplace(paths.controlSocketPath(), secret, target);
        server->start();
    }
    TemporaryDirectory home;
    TidewickPaths paths{home.path()};
    std::string secret;
    std::optional<ControlServer> server;
};

} // namespace tidewick::testing
