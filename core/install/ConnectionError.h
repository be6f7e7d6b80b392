// The refusals of the connection manager, each carrying the sentence shown to the user.
#pragma once

#include "events/AgentKind.h"

#include <stdexcept>
#include <string>

namespace tidewick {

/// Thrown by ConnectionManager; what() is the user-readable sentence.
class ConnectionError : public std::runtime_error {
public:
    enum class Case { notInstalled, unreadable, writeFailed, helperMissing };

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

    [[nodiscard]] Case errorCase() const { return case_; }
    /// The file of `unreadable` and `writeFailed`; empty otherwise.
    [[nodiscard]] const std::string& path() const { return path_; }
    /// The reason of `unreadable` and `writeFailed`; empty otherwise.
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
