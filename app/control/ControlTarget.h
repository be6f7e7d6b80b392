// What the control socket acts on: the running service's sessions, held
// requests and decisions. An interface so the control server can be tested
// against a fake as well as the real service.
#pragma once

#include "control/ControlProtocol.h"
#include "service/TidewickService.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class ControlTarget {
public:
    virtual ~ControlTarget() = default;
    /// Every session, those needing the user first.
    [[nodiscard]] virtual std::vector<Session> sessions() const = 0;
    /// Every held request with its session, oldest first.
    [[nodiscard]] virtual std::vector<HeldRequest> pendingRequests() const = 0;
    /// Answers the session's first held permission request; true only when delivered.
    virtual bool answerPermission(const SessionKey& session, TidewickService::Answer answer,
                                  std::optional<std::string> message) = 0;
    /// Answers the session's held turn end with `text`; true only when delivered.
    virtual bool reply(const SessionKey& session, std::string text) = 0;
    /// Lets the agent held at the end of its turn stop; true only when delivered.
    virtual bool letStop(const SessionKey& session) = 0;
};

/// The running TidewickService as a control target.
class ServiceControlTarget final : public ControlTarget {
public:
    explicit ServiceControlTarget(TidewickService& service) : service_(service) {}

    std::vector<Session> sessions() const override { return service_.sessions(); }
    std::vector<HeldRequest> pendingRequests() const override { return service_.pendingRequests(); }
    bool answerPermission(const SessionKey& session, TidewickService::Answer answer,
                          std::optional<std::string> message) override {
        return service_.answerPermission(session, answer, std::move(message));
    }
    bool reply(const SessionKey& session, std::string text) override {
        return service_.reply(session, std::move(text));
    }
    bool letStop(const SessionKey& session) override { return service_.letStop(session); }

private:
    TidewickService& service_;
};

} // namespace tidewick
