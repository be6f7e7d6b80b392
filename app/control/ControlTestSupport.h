// A control target that records the decisions it is handed and tells its
// watchers what a test makes it, for the control tests.
#pragma once

#include "service/ApplicationView.h"

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

/// Answers as the service would: a decision is delivered once per held request.
class FakeTarget final : public ApplicationView {
public:
    struct Call {
        std::string what;
        SessionKey key;
        std::optional<std::string> text;
    };

    std::vector<Session> all;

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
    /// When set, what allowAlways and answerQuestions report instead of taking a request.
    std::optional<Delivery> scripted;

    bool answerPermission(const SessionKey& key, SessionActions::Answer answer,
                          std::optional<std::string> message) override {
        if (answer == SessionActions::Answer::allow && firstPermissionAsks(key)) {
            std::lock_guard guard(mutex_);
            calls_.push_back({"allow", key, std::nullopt});
            return false;
        }
        return take(answer == SessionActions::Answer::allow ? "allow" : "deny", key,
                    PendingKind::permission, std::move(message));
    }
    Delivery allowAlways(const SessionKey& key, std::optional<std::string> rule) override {
        if (scripted)
            return record("allowAlways", key, std::move(rule));
        return delivery(take("allowAlways", key, PendingKind::permission, std::move(rule)));
    }
    Delivery answerQuestions(const SessionKey& key, std::vector<std::string> answers) override {
        std::string joined;
        for (const std::string& answer : answers)
            joined += (joined.empty() ? "" : "|") + answer;
        if (scripted)
            return record("answer", key, joined);
        return delivery(take("answer", key, PendingKind::permission, joined));
    }
    bool reply(const SessionKey& key, std::string text) override {
        return take("reply", key, PendingKind::reply, std::move(text));
    }
    bool letStop(const SessionKey& key) override {
        return take("letStop", key, PendingKind::reply, std::nullopt);
    }

    std::vector<Call> calls() {
        std::lock_guard guard(mutex_);
        return calls_;
    }

    Watch watch(Watcher watcher) override {
        std::lock_guard guard(mutex_);
        watchers_.emplace(++lastWatch_, std::move(watcher));
        return {lastWatch_, all};
    }
    void unwatch(WatchId id) override {
        std::lock_guard guard(mutex_);
        watchers_.erase(id);
    }
    TidewickSettings settings() override { return {}; }
    void setTranscriptStep(const SessionKey& key, std::int64_t step) override {
        std::lock_guard guard(mutex_);
        calls_.push_back({"transcriptStep", key, std::to_string(step)});
    }
    const TidewickPaths& paths() const override { return paths_; }
    Location location() const override { return Location::inProcess; }
    ControlResult pause(std::optional<Date> until) override {
        return recordControl("pause", {}, until ? std::to_string(secondsSince1970(*until)) : "");
    }
    ControlResult resume() override { return recordControl("resume", {}, std::nullopt); }
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change change) override {
        return recordControl("setting", {}, name + " " + std::string(rawValue(change)) + " " + value);
    }
    ControlResult forget(const SessionKey& key) override { return recordControl("forget", key, {}); }
    ControlResult forgetAll() override { return recordControl("forgetAll", {}, std::nullopt); }
    /// What the controls above answer.
    ControlResult controlResult = ControlResult::done("Done.");

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
    ControlResult recordControl(std::string what, SessionKey key, std::optional<std::string> text) {
        std::lock_guard guard(mutex_);
        calls_.push_back({std::move(what), std::move(key), std::move(text)});
        return controlResult;
    }
    static Delivery delivery(bool delivered) {
        return {delivered ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, "done"};
    }
    Delivery record(std::string what, const SessionKey& key, std::optional<std::string> text) {
        std::lock_guard guard(mutex_);
        calls_.push_back({std::move(what), key, std::move(text)});
        return *scripted;
    }
    bool firstPermissionAsks(const SessionKey& key) const {
        std::lock_guard guard(mutex_);
        for (const Session& session : all)
            if (session.key == key)
                for (const PendingRequest& request : session.pending)
                    if (request.kind == PendingKind::permission)
                        return request.isQuestion();
        return false;
    }
    bool take(std::string what, const SessionKey& key, PendingKind kind,
              std::optional<std::string> text) {
        std::lock_guard guard(mutex_);
        calls_.push_back({what, key, text});
        for (Session& session : all) {
            if (session.key != key)
                continue;
            for (auto it = session.pending.begin(); it != session.pending.end(); ++it)
                if (it->kind == kind) {
                    session.pending.erase(it);
                    return true;
                }
        }
        return false;
    }

    mutable std::mutex mutex_; // Guards `all` once the server runs, calls_ and watchers_.
    std::vector<Call> calls_;
    std::map<WatchId, Watcher> watchers_;
    WatchId lastWatch_ = 0;
    TidewickPaths paths_{"/nonexistent"};
};

} // namespace tidewick::testing
