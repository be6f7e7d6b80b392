#include "SettingsView.h"

#include "service/SettingCatalog.h"

#include <algorithm>

namespace tidewick {

namespace {

// launchAtLogin installs a service, which the command line does.
bool switches(const SettingCatalog::Entry& entry) {
    return (entry.kind == SettingCatalog::Kind::toggle && entry.name != "launchAtLogin") ||
           entry.kind == SettingCatalog::Kind::sound;
}

// The value a switch takes next: a toggle's other one, the sound after this one (none
// after the last, so that each can be silenced too).
std::string nextValue(const SettingCatalog::Entry& entry, const TidewickSettings& settings) {
    const JSONValue value = entry.get(settings);
    if (entry.kind == SettingCatalog::Kind::toggle)
        return value.boolValue().value_or(false) ? "false" : "true";
    const AlertSound sound = fromRaw<AlertSound>(*value.stringValue()).value_or(AlertSound::none);
    const auto at = std::find(allAlertSounds.begin(), allAlertSounds.end(), sound);
    if (at == allAlertSounds.end())
        return std::string(rawValue(allAlertSounds.front()));
    return std::string(rawValue(at + 1 == allAlertSounds.end() ? AlertSound::none : *(at + 1)));
}

} // namespace

std::vector<SettingsView::Row> SettingsView::rows(const TidewickSettings& settings) {
    const TidewickSettings defaults;
    std::vector<Row> rows;
    for (const SettingCatalog::Entry& entry : SettingCatalog::entries()) {
        const JSONValue value = entry.get(settings);
        rows.push_back({std::string(entry.name), SettingCatalog::display(value),
                        value == entry.get(defaults), switches(entry)});
    }
    return rows;
}

std::string SettingsView::description() const {
    const auto& entries = SettingCatalog::entries();
    return std::string(entries[std::min(selected_, entries.size() - 1)].description);
}

SettingsView::Outcome SettingsView::handleKey(const Key& key, const TidewickSettings& settings,
                                              ApplicationControls& controls,
                                              std::optional<ControlResult>& said) {
    const std::size_t last = SettingCatalog::entries().size() - 1;
    const bool character = key.kind == Key::Kind::character;
    if (key.kind == Key::Kind::escape ||
        (character && (key.character == ',' || key.character == 'q')))
        return Outcome::close;
    if (key.kind == Key::Kind::up || (character && key.character == 'k'))
        selected_ = selected_ == 0 ? 0 : selected_ - 1;
    else if (key.kind == Key::Kind::down || (character && key.character == 'j'))
        selected_ = std::min(selected_ + 1, last);
    else if (key.kind == Key::Kind::home)
        selected_ = 0;
    else if (key.kind == Key::Kind::end)
        selected_ = last;
    else if (key.kind == Key::Kind::enter || (character && key.character == ' ')) {
        const SettingCatalog::Entry& entry = SettingCatalog::entries()[selected_];
        if (switches(entry)) {
            said = controls.changeSetting(std::string(entry.name), nextValue(entry, settings),
                                          SettingCatalog::Change::set);
        } else {
            said = ControlResult::refused("Change " + std::string(entry.name) +
                                          " with `tidewick settings set " +
                                          std::string(entry.name) + " VALUE`.");
        }
    }
    return Outcome::stay;
}

} // namespace tidewick
