// Connects and disconnects agents: previews each change to an agent's
// configuration file, backs the old text up, writes atomically, installs the
// hook command and remembers which agents Tidewick connected.
#pragma once

#include "events/AgentKind.h"
#include "foundation/Clock.h"
#include "foundation/JSONValue.h"
#include "foundation/TidewickPaths.h"
#include "install/AgentDetector.h"
#include "install/ConfigChange.h"
#include "install/ConnectionState.h"
#include "install/HookConfigEditor.h"
#include "install/HookSpec.h"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

/// One per application. Every failure leaves the agent's file as it was.
class ConnectionManager {
public:
    /// What Tidewick remembers about an agent it connected.
    struct Record {
        Date connectedAt;
        /// Tidewick created the configuration file, so disconnecting may delete it.
        bool createdFile = false;
        /// Cursor command gating was chosen.
        GateCommands gateCommands = GateCommands::off;
    };

    /// Backups kept per agent; older ones are deleted.
    static constexpr std::size_t maxBackups = 20;

    /// The note shown while Codex waits for the user to approve Tidewick's hooks.
    static constexpr const char* codexApprovalNote =
        "Codex needs your OK once. Open Codex, type /hooks and approve Tidewick.";

    /// `paths` locates Tidewick's own files, `home` the agents' files;
    /// `bundledHelper` is the hook command shipped with the app (none: it is
    /// missing). Loads "connections.json"; a missing or damaged one means no records.
    ConnectionManager(TidewickPaths paths, std::string home,
                      std::shared_ptr<const AgentDetector> detector,
                      std::optional<std::string> bundledHelper, Clock clock = now);

    /// The agent's state computed fresh from its files. Never throws. The
    /// expected events follow the gating recorded at connection (none: off);
    /// `gate` is accepted for callers that show statuses next to their choice.
    [[nodiscard]] ConnectionStatus status(AgentKind agent, GateCommands gate) const;
    /// One status per agent, in the order of allAgentKinds.
    [[nodiscard]] std::vector<ConnectionStatus>
    allStatuses(const std::map<AgentKind, GateCommands>& gate = {}) const;

    /// What connecting would change. Throws ConnectionError (notInstalled,
    /// unreadable) or HookConfigError; writes nothing.
    [[nodiscard]] ConfigChange previewConnect(AgentKind agent, GateCommands gate) const;
    /// Installs the hook command, backs the old file up and writes the new
    /// one, then records the connection. Throws ConnectionError or HookConfigError.
    /// When recording fails after the file was written, the file is put back and its
    /// backup deleted (ConnectionError::connectUndone), or, when that fails too, the
    /// error says the hooks stayed (connectNotUndone).
    ConfigChange connect(AgentKind agent, GateCommands gate);

    /// What disconnecting would change. Throws ConnectionError (unreadable).
    [[nodiscard]] ConfigChange previewDisconnect(AgentKind agent) const;
    /// Backs the old file up and writes it without Tidewick's entries (or
    /// deletes it when Tidewick created it and only scaffolding is left), then
    /// forgets the connection. Throws ConnectionError (disconnectNotRecorded when the
    /// file was changed but the connection could not be forgotten).
    ConfigChange disconnect(AgentKind agent);

    /// Copies the bundled hook command to paths.helperPath() with mode 0755
    /// when it is missing or differs. Throws ConnectionError (helperMissing,
    /// writeFailed).
    void installHelperIfNeeded() const;

    /// The record of `agent`, if Tidewick connected it.
    [[nodiscard]] std::optional<Record> record(AgentKind agent) const;

    /// The configuration file of `agent` under the home.
    [[nodiscard]] std::string configPath(AgentKind agent) const;

    /// The command line written for `event` of `agent`.
    [[nodiscard]] std::string hookCommand(AgentKind agent, const std::string& event) const;

private:
    struct Reading {
        bool existed = false;
        std::string text;
        std::optional<JSONValue> document;
    };

    [[nodiscard]] Reading readDocument(const std::string& path) const;
    [[nodiscard]] ConfigChange makeChange(AgentKind agent, const std::string& path,
                                          const Reading& reading, const JSONValue& after,
                                          const HookConfigEditor& editor) const;
    [[nodiscard]] std::optional<std::string> codexHooksDisabledReason() const;
    /// ~/.codex/config.toml's text; empty when it cannot be read.
    [[nodiscard]] std::string codexConfigText() const;
    /// The hashes of the hooks the user approved in Codex, by key.
    [[nodiscard]] std::map<std::string, std::string> codexApprovals() const;
    /// The path Codex names hooks.json by in its approval keys.
    [[nodiscard]] std::string codexHooksKeyPath() const;
    /// Whether Codex will run every Tidewick hook of `document` as it stands.
    [[nodiscard]] bool codexApprovedOurHooks(const JSONValue& document) const;
    [[nodiscard]] std::string backUp(AgentKind agent, const std::string& path,
                                     const std::string& text) const;
    void write(const std::string& path, const std::string& text) const;
    /// Puts the agent's file back as it was before `change`; the reason when it cannot.
    [[nodiscard]] std::optional<std::string> undo(const ConfigChange& change) const;
    void remember(AgentKind agent, bool createdFile, GateCommands gate);
    void forget(AgentKind agent);
    void loadRecords();
    void saveRecordsLocked() const;

    TidewickPaths paths_;
    std::string home_;
    std::shared_ptr<const AgentDetector> detector_;
    std::optional<std::string> bundledHelper_;
    Clock clock_;
    mutable std::mutex lock_;
    std::map<std::string, Record> records_;
};

/// {"connectedAt": seconds since 1970, "createdFile": bool, "gateCommands": bool}.
void writeJSON(JSONWriter& out, const ConnectionManager::Record& record);
/// The record writeJSON writes; false when the value is not an object. Members that are
/// missing, mistyped or out of range keep their defaults (connected at 1970, no file
/// created, gating off).
[[nodiscard]] bool readJSON(JSONReader& in, ConnectionManager::Record& out);

} // namespace tidewick
