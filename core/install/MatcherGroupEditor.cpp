#include "install/MatcherGroupEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <algorithm>

namespace tidewick {

std::string MatcherGroupEditor::fileName() const {
    return flavor_ == Flavor::claudeCode ? "settings.json" : "hooks.json";
}

std::string MatcherGroupEditor::configPath(const std::string& home) const {
    return File::join(home, flavor_ == Flavor::claudeCode ? ".claude/settings.json"
                                                          : ".codex/hooks.json");
}

JSONValue MatcherGroupEditor::install(const std::optional<JSONValue>& document,
                                      const std::vector<HookSpec>& specs,
                                      const CommandBuilder& command) const {
    JSONValue root = document ? *document : JSONValue(JSONValue::Object{});
    if (!root.isObject())
        throw HookConfigError::notAnObject(fileName());
    const JSONValue* existing = root.get("hooks");
    if (existing && !existing->isObject())
        throw HookConfigError::notAnObject(HookConfigError::hooksSection);

    auto wanted = [&specs](const std::string& event) {
        return std::any_of(specs.begin(), specs.end(),
                           [&event](const HookSpec& spec) { return spec.event == event; });
    };

    // Clear every earlier Tidewick group first. An event about to be refilled
    // keeps its place, so installing again leaves the file exactly as it was.
    JSONValue::Object hooks;
    if (existing) {
        for (const auto& [event, value] : *existing->objectPairs()) {
            if (!value.isArray()) {
                hooks.emplace_back(event, value);
                continue;
            }
            JSONValue::Array groups = withoutOurs(*value.arrayValue());
            if (groups.empty() && !value.arrayValue()->empty() && !wanted(event))
                continue;
            hooks.emplace_back(event, JSONValue(std::move(groups)));
        }
    }
    JSONValue hooksValue(std::move(hooks));

    for (const HookSpec& spec : specs) {
        const JSONValue* slot = hooksValue.get(spec.event);
        JSONValue::Array groups =
            slot && slot->isArray() ? withoutOurs(*slot->arrayValue()) : JSONValue::Array{};
        JSONValue handler(JSONValue::Object{
            {"type", "command"},
            {"command", command(spec.event)},
            {"timeout", JSONValue::integer(spec.timeoutSeconds)},
        });
        for (const auto& [key, value] : spec.extra)
            handler.set(key, value);
        JSONValue group(JSONValue::Object{});
        if (spec.matcher)
            group.set("matcher", *spec.matcher);
        group.set("hooks", JSONValue(JSONValue::Array{std::move(handler)}));
        groups.push_back(std::move(group));
        hooksValue.set(spec.event, JSONValue(std::move(groups)));
    }
    root.set("hooks", std::move(hooksValue));

    if (flavor_ == Flavor::claudeCode) {
        // A status line of the user's own is never replaced.
        const JSONValue* statusLine = root.get("statusLine");
        if (!statusLine || isOurs(*statusLine))
            root.set("statusLine", JSONValue(JSONValue::Object{
                                       {"type", "command"},
                                       {"command", command("StatusLine")},
                                   }));
    }
    return root;
}

JSONValue MatcherGroupEditor::remove(const JSONValue& document) const {
    JSONValue root = document;
    if (!root.isObject())
        return root;
    if (flavor_ == Flavor::claudeCode) {
        const JSONValue* statusLine = root.get("statusLine");
        if (statusLine && isOurs(*statusLine))
            root.remove("statusLine");
    }
    const JSONValue* hooks = root.get("hooks");
    if (!hooks || !hooks->isObject())
        return root;
    JSONValue::Object kept;
    for (const auto& [event, value] : *hooks->objectPairs()) {
        if (!value.isArray()) {
            kept.emplace_back(event, value);
            continue;
        }
        JSONValue::Array groups = withoutOurs(*value.arrayValue());
        // Only a list that Tidewick emptied goes; a user's empty list stays.
        if (groups.empty() && !value.arrayValue()->empty())
            continue;
        kept.emplace_back(event, JSONValue(std::move(groups)));
    }
    if (kept.empty() && !hooks->objectPairs()->empty())
        root.remove("hooks");
    else
        root.set("hooks", JSONValue(std::move(kept)));
    return root;
}

std::set<std::string> MatcherGroupEditor::installedEvents(const JSONValue& document) const {
    std::set<std::string> events;
    const JSONValue* hooks = document.get("hooks");
    if (!hooks || !hooks->isObject())
        return events;
    for (const auto& [event, value] : *hooks->objectPairs())
        if (holdsOurGroup(value))
            events.insert(event);
    return events;
}

bool MatcherGroupEditor::isEmptyShell(const JSONValue& document) const {
    const JSONValue::Object* pairs = document.objectPairs();
    return !pairs || pairs->empty();
}

std::optional<std::string> MatcherGroupEditor::disabledReason(const JSONValue& document) const {
    if (flavor_ != Flavor::claudeCode)
        return std::nullopt;
    const JSONValue* disabled = document.get("disableAllHooks");
    if (disabled && disabled->boolValue() == true)
        return "Hooks are turned off in Claude Code's settings (disableAllHooks).";
    return std::nullopt;
}

} // namespace tidewick
