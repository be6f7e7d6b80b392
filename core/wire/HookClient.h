// The hook command's side of the socket: one request out, one answer back.
#pragma once

#include "wire/HookRequest.h"
#include "wire/HookResponse.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tidewick {

class HookClient {
public:
    /// Why no answer came back. The hook command answers fail-safe on every kind.
    class Failure : public std::runtime_error {
    public:
        enum class Kind { notRunning, noSecret, protocolError };

        /// A failure of `kind` with its user-readable sentence.
        explicit Failure(Kind kind);
        [[nodiscard]] Kind kind() const { return kind_; }

    private:
        Kind kind_;
    };

    /// Connects to `socketPath` (giving up after `connectTimeout` seconds
    /// while the listener's backlog is full, at once on any other error),
    /// checks that the listener runs as this user, sends `request` with
    /// `secret` and waits at most `responseTimeout` seconds for the answer.
    /// Throws Failure: notRunning when no connection to a listener of this
    /// user can be made or the request cannot be written (the secret is then
    /// never sent to anyone else); protocolError when no valid answer line
    /// arrives in time.
    [[nodiscard]] static HookResponse send(const HookRequest& request,
                                           const std::string& socketPath, std::string_view secret,
                                           double connectTimeout, double responseTimeout);

    /// What attempt() ends with: the response, or why there is none.
    struct Outcome {
        std::optional<HookResponse> response;
        Failure::Kind failure = Failure::Kind::protocolError;
    };

    /// send() reporting its failures instead of throwing them. The hook
    /// command uses it because, in a statically linked program, the first
    /// exception thrown costs more than the whole fail-safe path.
    [[nodiscard]] static Outcome attempt(const HookRequest& request, const std::string& socketPath,
                                         std::string_view secret, double connectTimeout,
                                         double responseTimeout);
};

} // namespace tidewick
