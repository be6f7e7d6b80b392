// The client side of a local line server: connect, make sure the listener
// runs as this user, send one line, read one line back.
#pragma once

#include "foundation/FileDescriptor.h"

#include <optional>
#include <string>
#include <string_view>

namespace tidewick {

class LocalClient {
public:
    /// Why an exchange brought no answer line.
    enum class Failure {
        /// No listener of this user could be reached, or the request could not be written.
        notConnected,
        /// The listener closed, answered too late, or sent a line over the size limit.
        noAnswer,
    };

    /// An answer line (without its line feed) or why there is none.
    struct Result {
        std::optional<std::string> line;
        Failure failure = Failure::noAnswer;
    };

    /// Connects to `socketPath` (waiting out a full backlog for at most `connectTimeout`
    /// seconds, failing at once on any other error) and checks that the listener runs as
    /// this user, so that nothing written reaches anyone else. The connected socket, or
    /// none when no listener of this user could be reached. Never throws.
    [[nodiscard]] static FileDescriptor connect(const std::string& socketPath,
                                                double connectTimeout);

    /// Connects to `socketPath` (waiting out a full backlog for at most
    /// `connectTimeout` seconds, failing at once on any other error), checks that
    /// the listener runs as this user, so `line` (which may carry a secret) never
    /// reaches anyone else, writes `line` and waits at most `responseTimeout`
    /// seconds for one answer line. Never throws.
    [[nodiscard]] static Result exchange(const std::string& socketPath, std::string_view line,
                                         double connectTimeout, double responseTimeout);
};

} // namespace tidewick
