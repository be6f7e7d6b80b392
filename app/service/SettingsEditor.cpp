#include "service/SettingsEditor.h"

#include "foundation/SystemError.h"
#include "service/SettingsText.h"

namespace tidewick {

template <typename Edit> ControlResult SettingsEditor::edited(Edit&& edit) {
    try {
        return edit();
    } catch (const SettingsFile::Unreadable& error) {
        return ControlResult::refused(SettingsText::unreadable(error.what()));
    } catch (const SettingCatalog::Refused& refused) {
        return ControlResult::refused(refused.what());
    } catch (const SystemError& error) {
        return ControlResult::refused(std::string("Tidewick couldn't write its settings: ") +
                                      error.what() + ". Nothing was changed.");
    }
}

ControlResult SettingsEditor::pause(std::optional<Date> until) {
    return edited([&] {
        (void)file_.edit([&](TidewickSettings& settings) {
            settings.gating.paused = true;
            settings.gating.pausedUntil = until;
            return true;
        });
        return ControlResult::done(SettingsText::pausedNow(until));
    });
}

ControlResult SettingsEditor::resume() {
    return edited([&] {
        bool wasPaused = false;
        (void)file_.edit([&](TidewickSettings& settings) {
            wasPaused = settings.gating.paused;
            const bool change = wasPaused || settings.gating.pausedUntil;
            settings.gating.paused = false;
            settings.gating.pausedUntil.reset();
            return change;
        });
        return ControlResult::done(
            std::string(wasPaused ? SettingsText::resumed : SettingsText::notPaused));
    });
}

ControlResult SettingsEditor::changeSetting(const std::string& name, const std::string& value,
                                            SettingCatalog::Change change) {
    if (name == "launchAtLogin")
        return ControlResult::refused(std::string(SettingsText::launchAtLoginFromCommandLine));
    return edited([&] {
        bool differs = false;
        const TidewickSettings after = file_.edit([&](TidewickSettings& settings) {
            differs = SettingCatalog::apply(settings, name, value, change);
            return differs;
        });
        if (change != SettingCatalog::Change::set)
            return ControlResult::done(SettingsText::listEdited(
                name, value, change == SettingCatalog::Change::add, differs));
        const std::string shown = SettingCatalog::display(SettingCatalog::find(name)->get(after));
        return ControlResult::done(differs ? SettingsText::changed(name, shown)
                                           : SettingsText::unchanged(name, shown));
    });
}

bool SettingsEditor::resumeIfDue() {
    // Costs a stat() at each request while nothing is due.
    const GatingPolicy gating = file_.current().gating;
    if (!gating.paused || !gating.pausedUntil || *gating.pausedUntil > clock_())
        return false;
    bool resumed = false;
    try {
        (void)file_.edit([&](TidewickSettings& settings) {
            const auto& until = settings.gating.pausedUntil;
            resumed = settings.gating.paused && until && *until <= clock_();
            if (resumed) {
                settings.gating.paused = false;
                settings.gating.pausedUntil.reset();
            }
            return resumed;
        });
    } catch (const std::exception&) {
        // An unreadable file is reported where it is read; a failed write is tried again
        // at the next request.
        return false;
    }
    return resumed;
}

} // namespace tidewick
