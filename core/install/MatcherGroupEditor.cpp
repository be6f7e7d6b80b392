#include "install/MatcherGroupEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"

#include <algorithm>
#include <utility>

namespace tidewick {

namespace {

// Replaces the Tidewick handler in `group` by `handler` and drops any other of Tidewick's.
JSONValue withHandler(const JSONValue& group, const JSONValue& handler) {
    JSONValue::Array handlers;
    bool placed = false;
    for (const JSONValue& each : *group.get("hooks")->arrayValue()) {
        if (!isOurs(each))
            handlers.push_back(each);
        else if (!std::exchange(placed, true))
            handlers.push_back(handler);
    }
    JSONValue updated = group;
    updated.set("hooks", JSONValue(std::move(handlers)));
    return updated;
}

} // namespace

JSONValue::Array placeOurs(const JSONValue::Array& groups, const JSONValue& handler,
                           const std::optional<std::string>& matcher, Placement placement) {
    const auto ours = std::find_if(groups.begin(), groups.end(), [](const JSONValue& group) {
        const JSONValue* handlers = group.get("hooks");
        return handlers && containsOurs(*handlers);
    });
    if (placement == Placement::keepPlace && ours != groups.end()) {
        JSONValue::Array before(groups.begin(), ours), after(ours + 1, groups.end());
        JSONValue::Array placed = withoutOurs(before);
        placed.push_back(withHandler(*ours, handler));
        for (JSONValue& group : withoutOurs(after))
            placed.push_back(std::move(group));
        return placed;
    }
    JSONValue::Array placed = withoutOurs(groups);
    JSONValue group(JSONValue::Object{});
    if (matcher)
        group.set("matcher", *matcher);
    group.set("hooks", JSONValue(JSONValue::Array{handler}));
    placed.push_back(std::move(group));
    return placed;
}

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
    const JSONValue original = existing ? *existing : JSONValue(JSONValue::Object{});
    JSONValue hooksValue(existing ? cleanedEvents(*existing, withoutOurs,
                                                  [&specs](const std::string& event) {
                                                      return mentions(specs, event);
                                                  })
                                  : JSONValue::Object{});

    // Codex approves each hook under its position: a group of Tidewick's that moves
    // would need approving again, and so would every user's group behind it.
    const Placement placement =
        flavor_ == Flavor::codex ? Placement::keepPlace : Placement::append;
    for (const HookSpec& spec : specs) {
        const JSONValue* slot = original.get(spec.event);
        const JSONValue::Array groups =
            slot && slot->isArray() ? *slot->arrayValue() : JSONValue::Array{};
        hooksValue.set(spec.event,
                       JSONValue(placeOurs(groups, handlerEntry(spec, command, TypeKey::written),
                                           spec.matcher, placement)));
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
