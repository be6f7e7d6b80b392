// Every setting a user can see and change, once: its name, what it takes, its
// default and a line about it. `tidewick settings`, the interface's settings
// view and the manual's list all come from this table.
#pragma once

#include "foundation/JSONValue.h"
#include "service/TidewickSettings.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

class SettingCatalog {
public:
    /// A change that is refused; what() names the setting and what it takes.
    class Refused : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    enum class Kind {
        /// true or false: the interface toggles these.
        toggle,
        /// A number of seconds from 0 to a year.
        seconds,
        /// One printable character.
        key,
        /// A list of texts.
        texts,
        /// A program's name or path; empty: none named.
        program,
        /// One of the alert sounds, or none.
        sound,
    };

    /// How a change treats the value.
    enum class Change {
        /// The value replaces the setting.
        set,
        /// A list: the text is added at its end.
        add,
        /// A list: the text is taken out.
        remove,
    };

    struct Entry {
        /// The key in the settings file; members of "gating" as "gating.paused".
        std::string_view name;
        Kind kind = Kind::toggle;
        /// One line saying what the setting does.
        std::string_view description;
        JSONValue (*get)(const TidewickSettings&) = nullptr;
        /// Takes a value of the right kind, already checked.
        void (*put)(TidewickSettings&, const JSONValue&) = nullptr;
    };

    /// Every setting, in the order the file and the listings have them.
    [[nodiscard]] static const std::vector<Entry>& entries();
    /// The setting named `name`; null when there is none.
    [[nodiscard]] static const Entry* find(std::string_view name);
    /// What a value of `kind` must be, in words: "true or false", ...
    [[nodiscard]] static std::string takes(Kind kind);
    /// A value as the listings show it: true, 300, "y", or the texts one after another.
    [[nodiscard]] static std::string display(const JSONValue& value);

    /// Applies `value` (as typed on a command line: true, 300, y, a JSON array of texts,
    /// or one text to add or remove) to the setting `name` of `settings`. False when the
    /// setting already was so. Throws Refused naming the setting and what it takes, for
    /// an unknown name, a value of the wrong kind or range, or Claude Code's and Codex's
    /// gating, which cannot be turned off.
    static bool apply(TidewickSettings& settings, std::string_view name, std::string_view value,
                      Change change = Change::set);
};

} // namespace tidewick
