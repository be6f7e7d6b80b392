// The user's settings: time-outs, gating, quick replies, alert switches and
// keys, read from "settings.json" and re-read when the file changes.
#pragma once

#include "foundation/JSONValue.h"
#include "presentation/AlertSound.h"
#include "service/Alert.h"
#include "sessions/GatingPolicy.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tidewick {

class JSONReader;
class JSONWriter;

struct TidewickSettings {
    /// Time-outs read from the file are cut to this (a year).
    static constexpr double longestTimeoutSeconds = 365.0 * 24 * 3600;

    /// How long a permission request is held before the agent asks in its own interface.
    double permissionTimeoutSeconds = 300;
    /// How long the end of a turn waits for a reply.
    double replyTimeoutSeconds = 3600;
    GatingPolicy gating;
    /// The replies offered with one key, in order.
    std::vector<std::string> quickReplies = defaultQuickReplies();
    bool systemNotificationsEnabled = true;
    bool glowEnabled = true;
    bool soundEnabled = true;
    /// The sound each kind of alert plays while soundEnabled (AlertSound::none: silent);
    /// kinds missing from the file keep their own sound.
    std::map<Alert::Kind, AlertSound> alertSounds = defaultAlertSounds();
    /// Silences sound and desktop notifications; the UI still shows everything.
    bool quietMode = false;
    /// Whether the UI shows a small chip with the number of held requests.
    bool alertChip = true;
    /// Whether the UI shows the avatar in its header.
    bool avatarEnabled = true;
    /// The key that allows the selected permission request in the terminal UI.
    std::string allowKey = "y";
    /// The key that denies it.
    std::string denyKey = "n";
    bool launchAtLogin = false;
    /// Off: Tidewick never contacts anything beyond this machine unless asked to.
    bool checkForUpdates = false;
    /// The program continuing each agent's sessions (by the agent's raw value), used when
    /// neither the agent's process nor PATH shows one.
    std::map<std::string, std::string> agentCommands;
    /// Members of the file this version does not know, kept in order so that
    /// writing the settings back never loses them.
    JSONValue::Object unknownKeys;

    /// "Continue working.", "Run the tests.", "Fix the remaining errors.", "Explain what you
    /// changed."
    [[nodiscard]] static const std::vector<std::string>& defaultQuickReplies();
    /// Each kind its own sound: needsPermission knock, waitingReply question, finished
    /// chime, error buzz, usageLimit pulse.
    [[nodiscard]] static const std::map<Alert::Kind, AlertSound>& defaultAlertSounds();
    /// The sound an alert of `kind` plays: its entry in alertSounds (the default for a kind
    /// left out), none while soundEnabled is off or quietMode on.
    [[nodiscard]] AlertSound soundFor(Alert::Kind kind) const;

    friend bool operator==(const TidewickSettings&, const TidewickSettings&) = default;
};

/// Every key with its value, known keys first in their usual order, then the unknown ones.
void writeJSON(JSONWriter& out, const TidewickSettings& settings);
/// The settings in an object: missing keys take their defaults, and so does a key of
/// the wrong type, a negative time-out or an empty key; entries of quickReplies that are
/// not texts are skipped, and so are entries of alertSounds that name no known kind or
/// sound. False only when the value is not an object.
[[nodiscard]] bool readJSON(JSONReader& in, TidewickSettings& out);

/// The settings file. current() re-reads it whenever it changed on disk, so an edit
/// takes effect for the next request without a restart. A missing file gives the
/// defaults; a malformed one is reported once (through the reporter) and gives the
/// defaults in memory only: the file itself is never overwritten by that.
class SettingsFile {
public:
    using Reporter = std::function<void(const std::string& sentence)>;

    /// The file is there but does not read; what() says so and names it.
    class Unreadable : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    SettingsFile(std::string path, Reporter reporter = {});

    /// The settings in force now. Thread-safe; costs one stat() when nothing changed.
    [[nodiscard]] TidewickSettings current();
    /// Writes `settings` (with the unknown keys they carry) atomically, mode 0600.
    /// Throws SystemError.
    void save(const TidewickSettings& settings);
    /// Reads the file afresh, lets `change` edit the settings and, when it returns true,
    /// writes them back as save() does; the settings in force afterwards. Unknown keys
    /// are kept. Throws Unreadable when the file does not read (it is never written over
    /// then), SystemError when writing fails; whatever `change` throws leaves the file as
    /// it was.
    TidewickSettings edit(const std::function<bool(TidewickSettings&)>& change);

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
    Reporter reporter_;
    std::mutex lock_;
    TidewickSettings cached_;
    /// What the file looked like when it was last read (mtime, size, inode), to notice edits.
    std::optional<std::string> signature_;
};

} // namespace tidewick
