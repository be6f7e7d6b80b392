#include "install/MatcherGroupEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"

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
    JSONValue root = installRoot(document, fileName());
    const JSONValue* existing = hooksSection(root);

    // Clear every earlier Tidewick group first. An event about to be refilled
    // keeps its place, so installing again leaves the file exactly as it was.
    JSONValue hooksValue(existing ? cleanedEvents(*existing, withoutOurs,
                                                  [&specs](const std::string& event) {
                                                      return mentions(specs, event);
                                                  })
                                  : JSONValue::Object{});

    for (const HookSpec& spec : specs) {
        const JSONValue* slot = hooksValue.get(spec.event);
        JSONValue::Array groups =
            slot && slot->isArray() ? withoutOurs(*slot->arrayValue()) : JSONValue::Array{};
        JSONValue group(JSONValue::Object{});
        if (spec.matcher)
            group.set("matcher", *spec.matcher);
        group.set("hooks",
                  JSONValue(JSONValue::Array{handlerEntry(spec, command, TypeKey::written)}));
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
    // Only a list that Tidewick emptied goes; a user's empty list stays.
    JSONValue::Object kept =
        cleanedEvents(*hooks, withoutOurs, [](const std::string&) { return false; });
    if (kept.empty() && !hooks->objectPairs()->empty())
        root.remove("hooks");
    else
        root.set("hooks", JSONValue(std::move(kept)));
    return root;
}

std::set<std::string> MatcherGroupEditor::installedEvents(const JSONValue& document) const {
    return eventsHolding(document.get("hooks"), holdsOurGroup);
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
