// What the user can change about the running application beyond answering
// requests: pausing it, its settings, and which sessions it lists. Shared by
// the service, the attached view and the fakes of the tests.
#pragma once

#include "foundation/Clock.h"
#include "service/SettingCatalog.h"
#include "sessions/Session.h"

#include <optional>
#include <string>

namespace tidewick {

/// How one of these requests ended, with the sentence to show either way.
struct ControlResult {
    enum class Outcome {
        /// Done, or nothing needed doing.
        done,
        /// Refused; the sentence says why, and nothing was changed.
        refused,
    };
    Outcome outcome = Outcome::done;
    std::string sentence;

    [[nodiscard]] static ControlResult done(std::string sentence) {
        return {Outcome::done, std::move(sentence)};
    }
    [[nodiscard]] static ControlResult refused(std::string sentence) {
        return {Outcome::refused, std::move(sentence)};
    }
    [[nodiscard]] bool isDone() const { return outcome == Outcome::done; }
    friend bool operator==(const ControlResult&, const ControlResult&) = default;
};

class ApplicationControls {
public:
    virtual ~ApplicationControls() = default;

    /// Pauses: nothing new is held or answered until resume() or, when given, `until`.
    /// Requests already held stay held.
    virtual ControlResult pause(std::optional<Date> until) = 0;
    /// Ends a pause.
    virtual ControlResult resume() = 0;
    /// Changes one setting (see SettingCatalog::apply); refused with its sentence.
    virtual ControlResult changeSetting(const std::string& name, const std::string& value,
                                        SettingCatalog::Change change) = 0;
    /// Removes an ended, idle or finished session (or one no longer heard from) from the
    /// list. Refused for a session holding a request.
    virtual ControlResult forget(const SessionKey& session) = 0;
    /// Erases the history: every session but those holding a request.
    virtual ControlResult forgetAll() = 0;
};

} // namespace tidewick
