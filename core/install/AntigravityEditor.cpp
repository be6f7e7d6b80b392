#include "install/AntigravityEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"

#include <algorithm>

namespace tidewick {

namespace {

constexpr const char* blockKey = "tidewick";

// An entry of an event list is a handler, or a matcher group of handlers.
bool holdsOurs(const JSONValue& entry) {
    const JSONValue* handlers = entry.get("hooks");
    return isOurs(entry) || (handlers && containsOurs(*handlers));
}

} // namespace

std::string AntigravityEditor::configPath(const std::string& home) const {
    return File::join(home, ".gemini/config/hooks.json");
}

JSONValue AntigravityEditor::install(const std::optional<JSONValue>& document,
                                     const std::vector<HookSpec>& specs,
                                     const CommandBuilder& command) const {
    JSONValue root = installRoot(document, "hooks.json");
    JSONValue block(JSONValue::Object{{"enabled", JSONValue::boolean(true)}});
    for (const HookSpec& spec : specs) {
        JSONValue handler = handlerEntry(spec, command, TypeKey::written);
        JSONValue::Array list;
        // Tool events are grouped by matcher; the others take the handler itself.
        if (spec.event == "PreToolUse" || spec.event == "PostToolUse")
            list.push_back(JSONValue(JSONValue::Object{
                {"matcher", spec.matcher ? *spec.matcher : std::string("*")},
                {"hooks", JSONValue(JSONValue::Array{std::move(handler)})},
            }));
        else
            list.push_back(std::move(handler));
        block.set(spec.event, JSONValue(std::move(list)));
    }
    root.set(blockKey, std::move(block));
    return root;
}

JSONValue AntigravityEditor::remove(const JSONValue& document) const {
    JSONValue root = document;
    root.remove(blockKey);
    return root;
}

std::set<std::string> AntigravityEditor::installedEvents(const JSONValue& document) const {
    return eventsHolding(document.get(blockKey), [](const JSONValue& list) {
        const JSONValue::Array* entries = list.arrayValue();
        return entries && std::any_of(entries->begin(), entries->end(), holdsOurs);
    });
}

bool AntigravityEditor::isEmptyShell(const JSONValue& document) const {
    const JSONValue::Object* pairs = document.objectPairs();
    return pairs && pairs->empty();
}

std::optional<std::string> AntigravityEditor::disabledReason(const JSONValue& document) const {
    const JSONValue* block = document.get(blockKey);
    const JSONValue* enabled = block ? block->get("enabled") : nullptr;
    if (enabled && enabled->boolValue() == false)
        return "Tidewick's hooks are switched off in Antigravity's hooks.json (enabled: false).";
    return std::nullopt;
}

} // namespace tidewick
