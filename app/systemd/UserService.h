// Tidewick as a systemd user service: the unit that runs `tidewick app
// --headless` from login, written to the user's unit folder, enabled, started,
// stopped and removed through `systemctl --user`.
#pragma once

#include "systemd/Systemctl.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace tidewick {

class UserService {
public:
    /// The unit's name.
    static constexpr const char* unitName = "tidewick.service";
    /// The sentence Unavailable carries.
    static constexpr const char* unavailableSentence =
        "No user systemd runs here (systemctl --user doesn't answer), so Tidewick can't run "
        "as a service. Nothing was changed.";

    /// No user service manager answers: nothing was changed.
    class Unavailable : public std::runtime_error {
    public:
        Unavailable() : std::runtime_error(unavailableSentence) {}
    };
    /// A systemctl step failed; the sentence names it and carries systemctl's own words.
    class Failed : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// What the unit is made of.
    struct Unit {
        /// The home whose .config/systemd/user holds the unit.
        std::string home;
        /// The `tidewick` program it runs.
        std::string executable;
        /// TIDEWICK_HOME, carried in the unit when set.
        std::optional<std::string> tidewickHome;
    };

    /// Whether install() starts the service at once.
    enum class Start {
        /// Now, and from every login.
        now,
        /// From the next login only (another Tidewick runs now).
        atNextLogin,
    };

    struct Status {
        bool installed = false;
        bool enabled = false;
        bool running = false;
        /// systemd's word for the state ("active", "inactive", "failed", ...).
        std::string state;
    };

    /// The service of `unit`, managed through `systemctl`, which must outlive it.
    UserService(Unit unit, Systemctl& systemctl);

    /// <home>/.config/systemd/user/tidewick.service
    [[nodiscard]] std::string unitPath() const;
    /// The unit file's text.
    [[nodiscard]] std::string unitText() const;

    /// Throws Unavailable unless a user service manager answers.
    void requireManager();
    /// Writes the unit (mode 0644), reloads the manager, enables the unit and, for
    /// Start::now, starts it and waits until it is ready. Throws Unavailable before
    /// changing anything, Failed, or SystemError when the unit cannot be written.
    void install(Start start);
    /// Stops and disables the unit, removes it and reloads the manager. False when no
    /// unit was installed (nothing else is done then). Throws Unavailable, Failed or
    /// SystemError.
    bool uninstall();
    /// Whether the unit is installed, enabled and running. Throws Unavailable.
    [[nodiscard]] Status status();

private:
    /// Runs one step; throws Failed naming it when systemctl fails.
    Systemctl::Result step(const std::vector<std::string>& arguments);

    Unit unit_;
    Systemctl& systemctl_;
};

} // namespace tidewick
