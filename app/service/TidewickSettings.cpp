#include "service/TidewickSettings.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>

namespace tidewick {

namespace {

// A time-out must be a number of seconds, zero or more; anything else keeps the default.
// Beyond a year it is cut to a year, which keeps the deadline arithmetic in range.
void applySeconds(const std::optional<double>& seconds, double& target) {
    if (seconds && *seconds >= 0)
        target = std::min(*seconds, TidewickSettings::longestTimeoutSeconds);
}

// A key needs at least one character to be pressed.
void applyKey(const std::optional<std::string>& key, std::string& target) {
    if (key && !key->empty())
        target = *key;
}

// What the file looks like on disk, to notice an edit without reading it: device,
// inode (an atomic replacement is a new file), size and both change times.
std::string fileSignature(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return errno == ENOENT ? "missing" : "error " + std::to_string(errno);
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino) + ":" +
           std::to_string(info.st_size) + ":" + std::to_string(info.st_mtim.tv_sec) + "." +
           std::to_string(info.st_mtim.tv_nsec) + ":" + std::to_string(info.st_ctim.tv_sec) + "." +
           std::to_string(info.st_ctim.tv_nsec);
}

// The settings in the file at `path`; throws SettingsFile::Unreadable.
TidewickSettings readFile(const std::string& path) {
    try {
        TidewickSettings read;
        if (!parseJSON(File::read(path), read))
            throw std::runtime_error("The settings file must hold one JSON object.");
        return read;
    } catch (const std::exception& error) {
        throw SettingsFile::Unreadable("Tidewick couldn't read its settings in " + path + " (" +
                                       error.what() + ").");
    }
}

} // namespace

const std::vector<std::string>& TidewickSettings::defaultQuickReplies() {
    static const std::vector<std::string> replies = {"Continue working.", "Run the tests.",
                                                     "Fix the remaining errors.",
                                                     "Explain what you changed."};
    return replies;
}

const std::map<Alert::Kind, AlertSound>& TidewickSettings::defaultAlertSounds() {
    static const std::map<Alert::Kind, AlertSound> sounds = {
        {Alert::Kind::needsPermission, AlertSound::knock},
        {Alert::Kind::waitingReply, AlertSound::question},
        {Alert::Kind::finished, AlertSound::chime},
        {Alert::Kind::error, AlertSound::buzz},
        {Alert::Kind::usageLimit, AlertSound::pulse}};
    return sounds;
}

AlertSound TidewickSettings::soundFor(Alert::Kind kind) const {
    if (!soundEnabled || quietMode)
        return AlertSound::none;
    const auto chosen = alertSounds.find(kind);
    return chosen != alertSounds.end() ? chosen->second : defaultAlertSounds().at(kind);
}

void writeJSON(JSONWriter& out, const TidewickSettings& settings) {
    out.beginObject();
    out.member("permissionTimeoutSeconds", settings.permissionTimeoutSeconds);
    out.member("replyTimeoutSeconds", settings.replyTimeoutSeconds);
    out.member("gating", settings.gating);
    out.member("quickReplies", settings.quickReplies);
    out.member("systemNotificationsEnabled", settings.systemNotificationsEnabled);
    out.member("glowEnabled", settings.glowEnabled);
    out.member("soundEnabled", settings.soundEnabled);
    out.member("alertSounds", settings.alertSounds);
    out.member("quietMode", settings.quietMode);
    out.member("alertChip", settings.alertChip);
    out.member("avatarEnabled", settings.avatarEnabled);
    out.member("allowKey", settings.allowKey);
    out.member("denyKey", settings.denyKey);
    out.member("launchAtLogin", settings.launchAtLogin);
    out.member("checkForUpdates", settings.checkForUpdates);
    out.key("agentCommands");
    out.beginObject();
    for (const auto& [agent, program] : settings.agentCommands)
        out.member(agent, program);
    out.endObject();
    for (const auto& [key, value] : settings.unknownKeys)
        out.member(key, value);
    out.endObject();
}

bool readJSON(JSONReader& in, TidewickSettings& out) {
    out = TidewickSettings();
    std::optional<double> permissionSeconds;
    std::optional<double> replySeconds;
    std::optional<std::vector<JSONValue>> replies;
    std::optional<std::string> allowKey;
    std::optional<std::string> denyKey;
    std::optional<std::map<std::string, JSONValue>> sounds;
    std::optional<JSONValue> agentCommands;
    using M = JSONMember;
    const bool isObject = readObject(
        in, M::lenient("permissionTimeoutSeconds", permissionSeconds),
        M::lenient("replyTimeoutSeconds", replySeconds), M::lenient("gating", out.gating),
        M::lenient("quickReplies", replies),
        M::lenient("systemNotificationsEnabled", out.systemNotificationsEnabled),
        M::lenient("glowEnabled", out.glowEnabled), M::lenient("soundEnabled", out.soundEnabled),
        M::lenient("alertSounds", sounds), M::lenient("quietMode", out.quietMode),
        M::lenient("alertChip", out.alertChip), M::lenient("avatarEnabled", out.avatarEnabled),
        M::lenient("allowKey", allowKey), M::lenient("denyKey", denyKey),
        M::lenient("launchAtLogin", out.launchAtLogin),
        M::lenient("checkForUpdates", out.checkForUpdates),
        M::lenient("agentCommands", agentCommands),
        // Keys of a later version are kept, in order, so writing the settings back never
        // loses them.
        M::others([&out](std::string_view key, JSONReader& in) {
            std::string name(key);
            out.unknownKeys.emplace_back(std::move(name), in.readValue());
            return true;
        }));
    applySeconds(permissionSeconds, out.permissionTimeoutSeconds);
    applySeconds(replySeconds, out.replyTimeoutSeconds);
    applyKey(allowKey, out.allowKey);
    applyKey(denyKey, out.denyKey);
    // One mistyped sound keeps its kind's default rather than silencing the others.
    if (sounds)
        for (const auto& [kind, sound] : *sounds) {
            const std::optional<Alert::Kind> alertKind = fromRaw<Alert::Kind>(kind);
            const std::string* name = sound.stringValue();
            const std::optional<AlertSound> chosen =
                name ? fromRaw<AlertSound>(*name) : std::nullopt;
            if (alertKind && chosen)
                out.alertSounds[*alertKind] = *chosen;
        }
    // Entries that are not texts are skipped, here and in the lists below.
    if (agentCommands && agentCommands->isObject())
        for (const auto& [agent, program] : *agentCommands->objectPairs())
            if (const std::string* path = program.stringValue(); path && !path->empty())
                out.agentCommands[agent] = *path;
    if (replies) {
        out.quickReplies.clear();
        for (const JSONValue& reply : *replies)
            if (const std::string* text = reply.stringValue())
                out.quickReplies.push_back(*text);
    }
    return isObject;
}

SettingsFile::SettingsFile(std::string path, Reporter reporter)
    : path_(std::move(path)), reporter_(std::move(reporter)) {}

TidewickSettings SettingsFile::current() {
    std::optional<std::string> problem;
    TidewickSettings result;
    {
        std::lock_guard guard(lock_);
        std::string signature = fileSignature(path_);
        if (signature_ == signature)
            return cached_;
        cached_ = TidewickSettings();
        if (signature != "missing") {
            try {
                cached_ = readFile(path_);
            } catch (const Unreadable& error) {
                // Only the copy in memory falls back: the user's file may hold the one
                // typo they are about to fix, and rewriting it would lose their other edits.
                problem = std::string(error.what()) +
                          " It uses the default settings until the file is fixed; the file "
                          "was left as it is.";
            }
        }
        // Remembered even when broken, so one bad state of the file is reported once.
        signature_ = std::move(signature);
        result = cached_;
    }
    if (problem && reporter_)
        reporter_(*problem);
    return result;
}

void SettingsFile::save(const TidewickSettings& settings) {
    std::lock_guard guard(lock_);
    File::makeDirectories(File::parent(path_), 0700);
    File::writeAtomically(path_, encodeJSON(settings, JSONWriter::Style::pretty) + "\n", 0600);
    cached_ = settings;
    signature_ = fileSignature(path_);
}

TidewickSettings SettingsFile::edit(const std::function<bool(TidewickSettings&)>& change) {
    std::lock_guard guard(lock_);
    TidewickSettings settings;
    if (File::exists(path_))
        settings = readFile(path_);
    if (!change(settings))
        return settings;
    File::makeDirectories(File::parent(path_), 0700);
    File::writeAtomically(path_, encodeJSON(settings, JSONWriter::Style::pretty) + "\n", 0600);
    cached_ = settings;
    signature_ = fileSignature(path_);
    return settings;
}

} // namespace tidewick
