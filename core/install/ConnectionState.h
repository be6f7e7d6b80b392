// Whether an agent is connected to Tidewick, and the record shown for it.
#pragma once

#include "events/AgentKind.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

/// An agent's connection state, computed fresh from its files on every check.
class ConnectionState {
public:
    enum class Case {
        connected,
        disconnected,
        notInstalled,
        unreadable,
        hooksDisabled,
        needsReconnect,
        awaitingApproval
    };

    [[nodiscard]] static ConnectionState connected() { return ConnectionState(Case::connected); }
    [[nodiscard]] static ConnectionState disconnected() {
        return ConnectionState(Case::disconnected);
    }
    [[nodiscard]] static ConnectionState notInstalled() {
        return ConnectionState(Case::notInstalled);
    }
    /// The configuration file could not be read; `reason` says why.
    [[nodiscard]] static ConnectionState unreadable(std::string reason) {
        ConnectionState state(Case::unreadable);
        state.reason_ = std::move(reason);
        return state;
    }
    /// The agent's own settings switch hooks off; `reason` is the sentence for the user.
    [[nodiscard]] static ConnectionState hooksDisabled(std::string reason) {
        ConnectionState state(Case::hooksDisabled);
        state.reason_ = std::move(reason);
        return state;
    }
    /// Some expected events (or "helper", the installed hook command) are missing.
    [[nodiscard]] static ConnectionState needsReconnect(std::vector<std::string> missing) {
        ConnectionState state(Case::needsReconnect);
        state.missing_ = std::move(missing);
        return state;
    }

    /// Every hook is in place but the agent runs only those the user approved in it, and
    /// some of Tidewick's are not (Codex).
    [[nodiscard]] static ConnectionState awaitingApproval() {
        return ConnectionState(Case::awaitingApproval);
    }

    [[nodiscard]] Case stateCase() const { return case_; }
    /// The reason of `unreadable` and `hooksDisabled`; empty otherwise.
    [[nodiscard]] const std::string& reason() const { return reason_; }
    /// The missing items of `needsReconnect`; empty otherwise.
    [[nodiscard]] const std::vector<std::string>& missing() const { return missing_; }
    /// A short lower-case name: "connected", "disconnected", "not installed",
    /// "unreadable", "hooks disabled", "needs reconnect" or "waiting for your approval in
    /// Codex".
    [[nodiscard]] std::string label() const;

    friend bool operator==(const ConnectionState&, const ConnectionState&) = default;

private:
    explicit ConnectionState(Case stateCase) : case_(stateCase) {}

    Case case_;
    std::string reason_;
    std::vector<std::string> missing_;
};

/// One agent's status as shown to the user.
struct ConnectionStatus {
    AgentKind kind = AgentKind::claude;
    ConnectionState state = ConnectionState::disconnected();
    /// What showed the agent is installed (a folder or a command), if anything did.
    std::optional<std::string> evidence;
    /// The agent's configuration file.
    std::string configPath;
    /// Lines shown under the status.
    std::vector<std::string> notes;
};

} // namespace tidewick
