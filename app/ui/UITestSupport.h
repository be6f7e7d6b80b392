// Helpers shared by the terminal UI tests: sessions and held requests at a fixed
// moment, and a stand-in for the service that records what the keys asked for.
#pragma once

#include "service/ApplicationControls.h"
#include "service/SessionActions.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick::testing {

/// The moment every UI test starts from.
inline const Date t0 = dateFromSeconds(1'800'000'000);

/// A working session of `agent` in /home/ana/src/`id`, last active `lastActivity` s after t0.
inline Session makeSession(std::string id, double lastActivity = 0,
                           AgentKind agent = AgentKind::claude) {
    Session session;
    session.key = {agent, std::move(id)};
    session.status = SessionStatus::working;
    session.startedAt = t0;
    session.lastActivityAt = addSeconds(t0, lastActivity);
    session.projectPath = "/home/ana/src/" + session.key.sessionId;
    return session;
}

/// A request of `kind` made `createdAt` s after t0 whose deadline is `timeout` s later.
inline PendingRequest heldRequest(PendingKind kind, std::string title,
                                  std::optional<std::string> detail = std::nullopt,
                                  double createdAt = 0, double timeout = 300) {
    PendingRequest request;
    request.id = UUID::random();
    request.kind = kind;
    request.title = std::move(title);
    request.detail = std::move(detail);
    request.createdAt = addSeconds(t0, createdAt);
    request.deadline = addSeconds(request.createdAt, timeout);
    return request;
}

/// `session` with `request` held, its status saying what it waits for.
inline Session holding(Session session, PendingRequest request) {
    session.status = request.kind == PendingKind::permission ? SessionStatus::needsPermission
                                                             : SessionStatus::waitingReply;
    session.pending.push_back(std::move(request));
    return session;
}

/// One decision handed on by the UI.
struct UICall {
    std::string what;
    SessionKey session;
    std::optional<std::string> text;
    friend bool operator==(const UICall&, const UICall&) = default;
};

/// Records every decision; each is delivered while `delivered` is true.
class RecordingActions : public SessionActions {
public:
    std::vector<Session> sessions() const override { return {}; }
    std::vector<HeldRequest> pendingRequests() const override { return {}; }
    bool answerPermission(const SessionKey& session, SessionActions::Answer answer,
                          std::optional<std::string> message) override {
        calls.push_back({answer == SessionActions::Answer::allow ? "allow" : "deny", session,
                         std::move(message)});
        return delivered;
    }
    Delivery allowAlways(const SessionKey& session, std::optional<std::string> rule) override {
        calls.push_back({"allowAlways", session, std::move(rule)});
        return {delivered ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, "done"};
    }
    Delivery answerQuestions(const SessionKey& session, std::vector<std::string> answers) override {
        std::string joined;
        for (const std::string& answer : answers)
            joined += (joined.empty() ? "" : "|") + answer;
        calls.push_back({"answer", session, joined});
        return {delivered ? Delivery::Kind::delivered : Delivery::Kind::nothingHeld, "done"};
    }
    bool reply(const SessionKey& session, std::string text) override {
        calls.push_back({"reply", session, std::move(text)});
        return delivered;
    }
    bool letStop(const SessionKey& session) override {
        calls.push_back({"letStop", session, std::nullopt});
        return delivered;
    }

    Result continueSession(const SessionKey& session, std::string text) override {
        calls.push_back({"continue", session, std::move(text)});
        return {delivered, "continue said"};
    }
    Result endSession(const SessionKey& session) override {
        calls.push_back({"end", session, std::nullopt});
        return {delivered, "end said"};
    }

    std::vector<UICall> calls;
    bool delivered = true;
};

/// Records every pause, setting and forgetting; each answers `result`.
class RecordingControls : public ApplicationControls {
public:
    ControlResult pause(std::optional<Date> until) override {
        return record({"pause", {}, until ? std::optional("until") : std::nullopt});
    }
    ControlResult resume() override { return record({"resume", {}, std::nullopt}); }
    ControlResult changeSetting(const std::string& name, const std::string& value,
                                SettingCatalog::Change) override {
        return record({"setting", {}, name + "=" + value});
    }
    ControlResult forget(const SessionKey& session) override {
        return record({"forget", session, std::nullopt});
    }
    ControlResult forgetAll() override { return record({"forgetAll", {}, std::nullopt}); }

    std::vector<UICall> calls;
    ControlResult result = ControlResult::done("Done.");

private:
    ControlResult record(UICall call) {
        calls.push_back(std::move(call));
        return result;
    }
};

} // namespace tidewick::testing
