// The refusals of the connection manager, each carrying the sentence shown to the user.
#pragma once

#include "events/AgentKind.h"

#include <stdexcept>
#include <string>

namespace tidewick {

/// Thrown by ConnectionManager; what() is the user-readable sentence.
class ConnectionError : public std::runtime_error {
public:
    enum class Case { notInstalled, unreadable, writeFailed, helperMissing, notRecorded };

    /// "<display name> does not appear to be installed."
    [[nodiscard]] static ConnectionError notInstalled(AgentKind agent);
    /// "Tidewick can't safely read <path> (<reason>), so it left the file alone."
    [[nodiscard]] static ConnectionError unreadable(const std::string& path,
                                                    const std::string& reason);
    /// "Tidewick couldn't write <path>: <reason>. Nothing was changed."
    [[nodiscard]] static ConnectionError writeFailed(const std::string& path,
                                                     const std::string& reason);
    /// "The Tidewick helper isn't available."
    [[nodiscard]] static ConnectionError helperMissing();

    /// Connecting wrote the agent's file at `configPath`, then recording the connection
    /// failed with `recordFailure` (a writeFailed error) and the file was put back:
    /// "Tidewick couldn't write <records>: <reason>. It put <configPath> back as it was, so
    /// nothing was changed."
    [[nodiscard]] static ConnectionError connectUndone(const std::string& configPath,
                                                       const ConnectionError& recordFailure);
    /// The same when putting the file back failed too (`undoReason`): "Tidewick added its
    /// hooks to <configPath> but couldn't write <records>: <reason>. It couldn't take them
    /// out again (<undoReason>), so <agent> has Tidewick's hooks."
    [[nodiscard]] static ConnectionError connectNotUndone(AgentKind agent,
                                                          const std::string& configPath,
                                                          const ConnectionError& recordFailure,
                                                          const std::string& undoReason);
    /// Disconnecting rewrote the agent's file, then forgetting the connection failed:
    /// "Tidewick removed its hooks from <configPath> but couldn't write <records>:
    /// <reason>. <agent> is disconnected."
    [[nodiscard]] static ConnectionError disconnectNotRecorded(AgentKind agent,
                                                               const std::string& configPath,
                                                               const ConnectionError& recordFailure);

    [[nodiscard]] Case errorCase() const { return case_; }
    /// The file of `unreadable` and `writeFailed`, the records of `notRecorded`; empty
    /// otherwise.
    [[nodiscard]] const std::string& path() const { return path_; }
    /// The reason of `unreadable`, `writeFailed` and `notRecorded`; empty otherwise.
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    ConnectionError(Case errorCase, const std::string& sentence, std::string path = {},
                    std::string reason = {})
        : std::runtime_error(sentence), case_(errorCase), path_(std::move(path)),
          reason_(std::move(reason)) {}

    Case case_;
    std::string path_;
    std::string reason_;
};

} // namespace tidewick
