#include "service/SettingCatalog.h"

#include "foundation/JSONCoding.h"
#include "service/SettingsText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utf8proc.h>

namespace tidewick {

namespace {

using Entry = SettingCatalog::Entry;
using Kind = SettingCatalog::Kind;

JSONValue texts(const std::vector<std::string>& list) {
    JSONValue::Array array;
    for (const std::string& text : list)
        array.emplace_back(text);
    return JSONValue(std::move(array));
}

std::vector<std::string> textsOf(const JSONValue& value) {
    std::vector<std::string> list;
    for (const JSONValue& text : *value.arrayValue())
        list.push_back(*text.stringValue());
    return list;
}

bool isTrue(const JSONValue& value) {
    return value.boolValue().value_or(false);
}

// Captureless lambdas: one getter and one setter per member, side by side.
template <bool TidewickSettings::*member> Entry toggle(std::string_view name, std::string_view about) {
    return {name, Kind::toggle, about,
            [](const TidewickSettings& s) { return JSONValue::boolean(s.*member); },
            [](TidewickSettings& s, const JSONValue& v) { s.*member = isTrue(v); }};
}
template <double TidewickSettings::*member> Entry seconds(std::string_view name, std::string_view about) {
    return {name, Kind::seconds, about,
            [](const TidewickSettings& s) { return JSONValue::real(s.*member); },
            [](TidewickSettings& s, const JSONValue& v) { s.*member = *v.doubleValue(); }};
}
template <std::string TidewickSettings::*member> Entry key(std::string_view name, std::string_view about) {
    return {name, Kind::key, about,
            [](const TidewickSettings& s) { return JSONValue(s.*member); },
            [](TidewickSettings& s, const JSONValue& v) { s.*member = *v.stringValue(); }};
}
template <AgentKind agent> Entry gate(std::string_view name, std::string_view about) {
    return {name, Kind::toggle, about,
            [](const TidewickSettings& s) {
                const auto found = s.gating.gateCommands.find(agent);
                // Missing from the map means gated.
                return JSONValue::boolean(found == s.gating.gateCommands.end() || found->second);
            },
            [](TidewickSettings& s, const JSONValue& v) { s.gating.gateCommands[agent] = isTrue(v); }};
}

template <AgentKind agent> Entry program(std::string_view name, std::string_view about) {
    return {name, Kind::program, about,
            [](const TidewickSettings& s) {
                const auto found = s.agentCommands.find(std::string(rawValue(agent)));
                return JSONValue(found == s.agentCommands.end() ? std::string() : found->second);
            },
            [](TidewickSettings& s, const JSONValue& v) {
                const std::string key(rawValue(agent));
                if (v.stringValue()->empty())
                    s.agentCommands.erase(key);
                else
                    s.agentCommands[key] = *v.stringValue();
            }};
}

template <Alert::Kind kind> Entry sound(std::string_view name, std::string_view about) {
    return {name, Kind::sound, about,
            [](const TidewickSettings& s) {
                const auto chosen = s.alertSounds.find(kind);
                return JSONValue(std::string(rawValue(
                    chosen != s.alertSounds.end() ? chosen->second
                                                  : TidewickSettings::defaultAlertSounds().at(kind))));
            },
            [](TidewickSettings& s, const JSONValue& v) {
                s.alertSounds[kind] = *fromRaw<AlertSound>(*v.stringValue());
            }};
}

std::vector<Entry> makeEntries() {
    return {
        seconds<&TidewickSettings::permissionTimeoutSeconds>(
            "permissionTimeoutSeconds",
            "How long a permission request is held before the agent asks in its own window."),
        seconds<&TidewickSettings::replyTimeoutSeconds>(
            "replyTimeoutSeconds", "How long an agent that finished its turn waits for a reply."),
        {"gating.paused", Kind::toggle,
         "Pause: nothing is held and nothing is answered; the agents ask in their own windows.",
         [](const TidewickSettings& s) { return JSONValue::boolean(s.gating.paused); },
         [](TidewickSettings& s, const JSONValue& v) {
             s.gating.paused = isTrue(v);
             // Set by hand, a pause lasts until it is turned off.
             s.gating.pausedUntil.reset();
         }},
        gate<AgentKind::cursor>("gating.gateCommands.cursor",
                                "Hold Cursor's shell commands for you (off: Cursor asks itself)."),
        gate<AgentKind::antigravity>(
            "gating.gateCommands.antigravity",
            "Hold Antigravity's shell commands for you (off: Antigravity asks itself)."),
        {"gating.safePrefixes", Kind::texts,
         "Commands starting with one of these only read: Cursor's and Antigravity's are allowed "
         "at once.",
         [](const TidewickSettings& s) { return texts(s.gating.safePrefixes); },
         [](TidewickSettings& s, const JSONValue& v) { s.gating.safePrefixes = textsOf(v); }},
        {"quickReplies", Kind::texts, "The replies the interface sends with one key (1 to 9).",
         [](const TidewickSettings& s) { return texts(s.quickReplies); },
         [](TidewickSettings& s, const JSONValue& v) { s.quickReplies = textsOf(v); }},
        toggle<&TidewickSettings::systemNotificationsEnabled>(
            "systemNotificationsEnabled", "Desktop notifications for requests that wait for you."),
        toggle<&TidewickSettings::glowEnabled>(
            "glowEnabled", "The interface's frame lights up while a new request waits."),
        toggle<&TidewickSettings::soundEnabled>("soundEnabled",
                                                "A sound when a request starts waiting."),
        toggle<&TidewickSettings::quietMode>(
            "quietMode", "No sounds and no desktop notifications; the interface still shows all."),
        sound<Alert::Kind::needsPermission>("alertSounds.needsPermission",
                                             "The sound of a permission request."),
        sound<Alert::Kind::waitingReply>("alertSounds.waitingReply",
                                         "The sound of an agent waiting for your reply."),
        sound<Alert::Kind::finished>("alertSounds.finished", "The sound of a finished turn."),
        sound<Alert::Kind::error>("alertSounds.error", "The sound of an error."),
        sound<Alert::Kind::usageLimit>("alertSounds.usageLimit",
                                       "The sound of a usage window passing 90 %."),
        toggle<&TidewickSettings::avatarEnabled>("avatarEnabled",
                                                 "The avatar in the interface's header."),
        toggle<&TidewickSettings::alertChip>(
            "alertChip", "The number of held requests in the interface's top frame."),
        key<&TidewickSettings::allowKey>("allowKey",
                                         "The interface's key that allows a permission request."),
        key<&TidewickSettings::denyKey>("denyKey",
                                        "The interface's key that denies a permission request."),
        toggle<&TidewickSettings::launchAtLogin>(
            "launchAtLogin", "Run Tidewick as a systemd user service from every login."),
        toggle<&TidewickSettings::checkForUpdates>(
            "checkForUpdates", "Look for a newer Tidewick (off: nothing leaves this machine)."),
        program<AgentKind::claude>(
            "agentCommands.claude",
            "The program continuing Claude Code sessions when neither its process nor PATH "
            "shows one."),
        program<AgentKind::codex>("agentCommands.codex",
                                  "The program continuing Codex sessions, likewise."),
        program<AgentKind::cursor>("agentCommands.cursor",
                                   "The program continuing Cursor sessions, likewise."),
    };
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

std::optional<bool> parseToggle(std::string_view text) {
    std::string lower = trimmed(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "true" || lower == "on" || lower == "yes")
        return true;
    if (lower == "false" || lower == "off" || lower == "no")
        return false;
    return std::nullopt;
}

std::optional<double> parseSeconds(std::string_view text) {
    const std::string number = trimmed(text);
    double value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (number.empty() || error != std::errc() || end != number.data() + number.size() ||
        !std::isfinite(value) || value < 0 || value > TidewickSettings::longestTimeoutSeconds)
        return std::nullopt;
    return value;
}

// Exactly one printable character that is not a space.
bool isSingleKey(std::string_view text) {
    utf8proc_int32_t codePoint = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto size = static_cast<utf8proc_ssize_t>(text.size());
    if (size == 0 || utf8proc_iterate(bytes, size, &codePoint) != size)
        return false;
    return utf8proc_category(codePoint) != UTF8PROC_CATEGORY_CC && codePoint != ' ';
}

std::optional<std::vector<std::string>> parseTexts(std::string_view text) {
    JSONValue value;
    try {
        if (!parseJSON(text, value) || !value.arrayValue())
            return std::nullopt;
    } catch (const JSONValue::ParseError&) {
        return std::nullopt;
    }
    std::vector<std::string> list;
    for (const JSONValue& item : *value.arrayValue()) {
        if (!item.stringValue() || trimmed(*item.stringValue()).empty())
            return std::nullopt;
        list.push_back(*item.stringValue());
    }
    return list;
}

// Prefixes are compared with the lower-cased command, so one typed in capitals is kept in
// lower case: as typed it could never match.
std::string normalisedItem(std::string_view name, std::string_view text) {
    std::string item = trimmed(text);
    if (name == "gating.safePrefixes")
        std::transform(item.begin(), item.end(), item.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return item;
}

// The new value of `entry` for a change; throws Refused.
JSONValue parsed(const Entry& entry, const TidewickSettings& settings, std::string_view text,
                 SettingCatalog::Change change) {
    auto refuse = [&]() -> SettingCatalog::Refused {
        return SettingCatalog::Refused(
            SettingsText::wrongValue(entry.name, SettingCatalog::takes(entry.kind), text));
    };
    if (change != SettingCatalog::Change::set) {
        if (entry.kind != Kind::texts)
            throw SettingCatalog::Refused(std::string(entry.name) +
                                          " is not a list: give it a whole new value instead.");
        const std::string item = normalisedItem(entry.name, text);
        if (item.empty())
            throw SettingCatalog::Refused(std::string(entry.name) +
                                          " takes texts that are not empty.");
        std::vector<std::string> list = textsOf(entry.get(settings));
        const bool present = std::find(list.begin(), list.end(), item) != list.end();
        if (change == SettingCatalog::Change::remove)
            std::erase(list, item);
        else if (!present)
            list.push_back(item);
        return texts(list);
    }
    switch (entry.kind) {
    case Kind::toggle:
        if (auto value = parseToggle(text))
            return JSONValue::boolean(*value);
        throw refuse();
    case Kind::seconds:
        if (auto value = parseSeconds(text))
            return JSONValue::real(*value);
        throw refuse();
    case Kind::key:
        if (isSingleKey(text))
            return JSONValue(text);
        throw refuse();
    case Kind::program:
        return JSONValue(trimmed(text));
    case Kind::sound:
        if (fromRaw<AlertSound>(trimmed(text)))
            return JSONValue(trimmed(text));
        throw refuse();
    case Kind::texts:
        if (auto list = parseTexts(text)) {
            for (std::string& item : *list)
                item = normalisedItem(entry.name, item);
            return texts(*list);
        }
        throw refuse();
    }
    throw refuse();
}

} // namespace

const std::vector<SettingCatalog::Entry>& SettingCatalog::entries() {
    static const std::vector<Entry> all = makeEntries();
    return all;
}

const SettingCatalog::Entry* SettingCatalog::find(std::string_view name) {
    for (const Entry& entry : entries())
        if (entry.name == name)
            return &entry;
    return nullptr;
}

std::string SettingCatalog::takes(Kind kind) {
    switch (kind) {
    case Kind::toggle:
        return "true or false";
    case Kind::seconds:
        return "a number of seconds from 0 to " +
               std::to_string(static_cast<long long>(TidewickSettings::longestTimeoutSeconds));
    case Kind::key:
        return "one character that is not a space";
    case Kind::texts:
        return "a JSON array of texts that are not empty, such as [\"ls\",\"git status\"]";
    case Kind::program:
        return "a program's name or path (\"\" for none)";
    case Kind::sound: {
        std::string names;
        for (AlertSound sound : allAlertSounds)
            names += std::string(rawValue(sound)) + ", ";
        return "one of " + names + "or none";
    }
    }
    return {};
}

std::string SettingCatalog::display(const JSONValue& value) {
    if (const JSONValue::Array* list = value.arrayValue()) {
        std::string shown;
        for (const JSONValue& item : *list)
            shown += (shown.empty() ? "" : ", ") + item.compact();
        return list->empty() ? "(none)" : shown;
    }
    return value.compact();
}

bool SettingCatalog::apply(TidewickSettings& settings, std::string_view name,
                           std::string_view value, Change change) {
    for (AgentKind agent : {AgentKind::claude, AgentKind::codex})
        if (name == "gating.gateCommands." + std::string(rawValue(agent)))
            throw Refused(SettingsText::alwaysHeld(agent));
    const Entry* entry = find(name);
    if (!entry)
        throw Refused(SettingsText::unknownSetting(name));
    const JSONValue next = parsed(*entry, settings, value, change);
    if (entry->kind == Kind::key) {
        const std::string_view other = name == "allowKey" ? settings.denyKey : settings.allowKey;
        if (*next.stringValue() == other)
            throw Refused(std::string(name) + " takes a key the other of allowKey and denyKey "
                                              "does not use, not \"" +
                          std::string(value) + "\".");
    }
    const bool differs = entry->get(settings) != next;
    entry->put(settings, next);
    return differs;
}

} // namespace tidewick
