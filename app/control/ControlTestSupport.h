// A control target that records the decisions it is handed, for the control tests.
#pragma once

#include "service/SessionActions.h"

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
class FakeTarget final : public SessionActions {
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

private:
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

    mutable std::mutex mutex_; // Guards `all` once the server runs, and calls_.
    std::vector<Call> calls_;
};

} // namespace tidewick::testing
