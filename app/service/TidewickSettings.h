// The user's settings: time-outs, gating, quick replies, alert switches and
// keys, read from "settings.json" and re-read when the file changes.
#pragma once

#include "foundation/JSONValue.h"
#include "sessions/GatingPolicy.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
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
    /// Silences sound and desktop notifications; the UI still shows everything.
    bool quietMode = false;
    /// Whether the UI shows a small chip with the number of held requests.
    bool alertChip = true;
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

    friend bool operator==(const TidewickSettings&, const TidewickSettings&) = default;
};

/// Every key with its value, known keys first in their usual order, then the unknown ones.
void writeJSON(JSONWriter& out, const TidewickSettings& settings);
/// The settings in an object: missing keys take their defaults, and so does a key of
/// the wrong type, a negative time-out or an empty key; entries of quickReplies that are
/// not texts are skipped. False only when the value is not an object.
[[nodiscard]] bool readJSON(JSONReader& in, TidewickSettings& out);

/// The settings file. current() re-reads it whenever it changed on disk, so an edit
/// takes effect for the next request without a restart. A missing file gives the
/// defaults; a malformed one is reported once (through the reporter) and gives the
/// defaults in memory only: the file itself is never overwritten by that.
class SettingsFile {
public:
    using Reporter = std::function<void(const std::string& sentence)>;

    SettingsFile(std::string path, Reporter reporter = {});

    /// The settings in force now. Thread-safe; costs one stat() when nothing changed.
    [[nodiscard]] TidewickSettings current();
    /// Writes `settings` (with the unknown keys they carry) atomically, mode 0600.
    /// Throws SystemError.
    void save(const TidewickSettings& settings);

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
