#include "service/TidewickSettings.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>

namespace tidewick {

namespace {

// The keys this version knows, in the order the file lists them.
constexpr std::array<std::string_view, 13> knownKeys = {
    "permissionTimeoutSeconds",
    "replyTimeoutSeconds",
    "gating",
    "quickReplies",
    "systemNotificationsEnabled",
    "glowEnabled",
    "soundEnabled",
    "quietMode",
    "alertChip",
    "allowKey",
    "denyKey",
    "launchAtLogin",
    "checkForUpdates",
};

bool isKnown(std::string_view key) {
    return std::find(knownKeys.begin(), knownKeys.end(), key) != knownKeys.end();
}

// A time-out must be a number of seconds, zero or more; anything else keeps the default.
// Beyond a year it is cut to a year, which keeps the deadline arithmetic in range.
void readSeconds(const JSONValue& object, std::string_view key, double& target) {
    const JSONValue* value = object.get(key);
    std::optional<double> seconds = value ? value->doubleValue() : std::nullopt;
    if (seconds && std::isfinite(*seconds) && *seconds >= 0)
        target = std::min(*seconds, TidewickSettings::longestTimeoutSeconds);
}

void readBool(const JSONValue& object, std::string_view key, bool& target) {
    const JSONValue* value = object.get(key);
    if (std::optional<bool> flag = value ? value->boolValue() : std::nullopt)
        target = *flag;
}

// A key needs at least one character to be pressed.
void readKey(const JSONValue& object, std::string_view key, std::string& target) {
    const JSONValue* value = object.get(key);
    const std::string* text = value ? value->stringValue() : nullptr;
    if (text && !text->empty())
        target = *text;
}

// Entries that are not texts are skipped rather than losing the whole list.
void readReplies(const JSONValue& object, std::vector<std::string>& target) {
    const JSONValue* value = object.get("quickReplies");
    const JSONValue::Array* elements = value ? value->arrayValue() : nullptr;
    if (!elements)
        return;
    target.clear();
    for (const JSONValue& element : *elements)
        if (const std::string* text = element.stringValue())
            target.push_back(*text);
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

} // namespace

const std::vector<std::string>& TidewickSettings::defaultQuickReplies() {
    static const std::vector<std::string> replies = {"Continue working.", "Run the tests.",
                                                     "Fix the remaining errors.",
                                                     "Explain what you changed."};
    return replies;
}

JSONValue TidewickSettings::toJSON() const {
    JSONValue::Object object = {
        {"permissionTimeoutSeconds", JSONValue::real(permissionTimeoutSeconds)},
        {"replyTimeoutSeconds", JSONValue::real(replyTimeoutSeconds)},
        {"gating", gating.toJSON()},
        {"quickReplies", JSONValue::Array(quickReplies.begin(), quickReplies.end())},
        {"systemNotificationsEnabled", JSONValue::boolean(systemNotificationsEnabled)},
        {"glowEnabled", JSONValue::boolean(glowEnabled)},
        {"soundEnabled", JSONValue::boolean(soundEnabled)},
        {"quietMode", JSONValue::boolean(quietMode)},
        {"alertChip", JSONValue::boolean(alertChip)},
        {"allowKey", allowKey},
        {"denyKey", denyKey},
        {"launchAtLogin", JSONValue::boolean(launchAtLogin)},
        {"checkForUpdates", JSONValue::boolean(checkForUpdates)},
    };
    for (const auto& pair : unknownKeys)
        if (!isKnown(pair.first))
            object.push_back(pair);
    return object;
}

TidewickSettings TidewickSettings::fromJSON(const JSONValue& value) {
    const JSONValue::Object* pairs = value.objectPairs();
    if (!pairs)
        throw std::runtime_error("The settings file must hold one JSON object.");
    TidewickSettings settings;
    readSeconds(value, "permissionTimeoutSeconds", settings.permissionTimeoutSeconds);
    readSeconds(value, "replyTimeoutSeconds", settings.replyTimeoutSeconds);
    if (const JSONValue* gating = value.get("gating"))
        if (std::optional<GatingPolicy> policy = GatingPolicy::fromJSON(*gating))
            settings.gating = std::move(*policy);
    readReplies(value, settings.quickReplies);
    readBool(value, "systemNotificationsEnabled", settings.systemNotificationsEnabled);
    readBool(value, "glowEnabled", settings.glowEnabled);
    readBool(value, "soundEnabled", settings.soundEnabled);
    readBool(value, "quietMode", settings.quietMode);
    readBool(value, "alertChip", settings.alertChip);
    readKey(value, "allowKey", settings.allowKey);
    readKey(value, "denyKey", settings.denyKey);
    readBool(value, "launchAtLogin", settings.launchAtLogin);
    readBool(value, "checkForUpdates", settings.checkForUpdates);
    for (const auto& pair : *pairs)
        if (!isKnown(pair.first))
            settings.unknownKeys.push_back(pair);
    return settings;
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
                cached_ = TidewickSettings::fromJSON(JSONValue::parse(File::read(path_)));
            } catch (const std::exception& error) {
                // Only the copy in memory falls back: the user's file may hold the one
                // typo they are about to fix, and rewriting it would lose their other edits.
                problem = "Tidewick couldn't read its settings in " + path_ + " (" + error.what() +
                          "). It uses the default settings until the file is fixed; the file "
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
    File::writeAtomically(path_, settings.toJSON().pretty() + "\n", 0600);
    cached_ = settings;
    signature_ = fileSignature(path_);
}

} // namespace tidewick
