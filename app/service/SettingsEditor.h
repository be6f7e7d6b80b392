// Changes to the settings file on the user's behalf: pausing and resuming and
// one setting at a time, each checked, written at once and told in a sentence.
// The running application edits through one; without it, the command line does.
#pragma once

#include "service/ApplicationControls.h"
#include "service/TidewickSettings.h"

namespace tidewick {

class SettingsEditor {
public:
    /// Edits `file`, which must outlive the editor; `clock` decides when a pause is over.
    SettingsEditor(SettingsFile& file, Clock clock) : file_(file), clock_(std::move(clock)) {}

    /// Sets gating.paused and, when given, the moment the pause ends (pausedUntil).
    [[nodiscard]] ControlResult pause(std::optional<Date> until);
    /// Clears gating.paused and pausedUntil.
    [[nodiscard]] ControlResult resume();
    /// Applies one change through SettingCatalog::apply. launchAtLogin is refused: it
    /// installs the user service, which `tidewick settings set` does itself.
    [[nodiscard]] ControlResult changeSetting(const std::string& name, const std::string& value,
                                              SettingCatalog::Change change);
    /// Ends a pause whose pausedUntil has come; true when it did. A file that does not
    /// read is left alone (false).
    bool resumeIfDue();

private:
    /// Runs one edit, turning an unreadable or unwritable file into a refusal.
    template <typename Edit> ControlResult edited(Edit&& edit);

    SettingsFile& file_;
    Clock clock_;
};

} // namespace tidewick
