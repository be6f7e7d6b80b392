// The interface's settings view (key `,`): every setting with its value, one
// selected, its switches (toggles, and alert sounds, which go round) changed
// with Enter or space. No curses here.
#pragma once

#include "Key.h"
#include "service/ApplicationControls.h"
#include "service/TidewickSettings.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tidewick {

class SettingsView {
public:
    enum class Outcome { stay, close };

    /// One line of the view.
    struct Row {
        std::string name;
        /// The value as the listings show it.
        std::string value;
        bool isDefault = true;
        /// Enter or space switches it (a toggle, or a sound to the next one).
        bool toggles = false;
    };

    /// Every setting of `settings`, in the table's order.
    [[nodiscard]] static std::vector<Row> rows(const TidewickSettings& settings);

    /// Moves with ↑ ↓ j k, switches the selected toggle (or sound) with Enter or space through
    /// `controls`, closes with Esc, `,` or q. What a key did for the user to read (a change
    /// made or refused, or how to change a setting that is no switch) is put in `said`.
    [[nodiscard]] Outcome handleKey(const Key& key, const TidewickSettings& settings,
                                    ApplicationControls& controls,
                                    std::optional<ControlResult>& said);

    [[nodiscard]] std::size_t selected() const { return selected_; }
    /// The line describing the selected setting.
    [[nodiscard]] std::string description() const;

private:
    std::size_t selected_ = 0;
};

} // namespace tidewick
