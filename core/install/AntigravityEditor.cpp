#include "install/AntigravityEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <algorithm>

namespace tidewick {

namespace {

constexpr const char* blockKey = "tidewick";

bool holdsOurs(const JSONValue& entry) {
    if (isOurs(entry))
        return true;
    const JSONValue::Array* handlers =
        entry.get("hooks") ? entry.get("hooks")->arrayValue() : nullptr;
    return handlers && std::any_of(handlers->begin(), handlers->end(),
                                   [](const JSONValue& h) { return isOurs(h); });
}

} // namespace

std::string AntigravityEditor::configPath(const std::string& home) const {
    return File::join(home, ".gemini/config/hooks.json");
}

JSONValue AntigravityEditor::install(const std::optional<JSONValue>& document,
                                     const std::vector<HookSpec>& specs,
                                     const CommandBuilder& command) const {
    JSONValue root = document ? *document : JSONValue(JSONValue::Object{});
    if (!root.isObject())
        throw HookConfigError::notAnObject("hooks.json");
    JSONValue block(JSONValue::Object{{"enabled", JSONValue::boolean(true)}});
    for (const HookSpec& spec : specs) {
        JSONValue handler(JSONValue::Object{
            {"type", "command"},
            {"command", command(spec.event)},
            {"timeout", JSONValue::integer(spec.timeoutSeconds)},
        });
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
    std::set<std::string> events;
    const JSONValue* block = document.get(blockKey);
    if (!block || !block->isObject())
        return events;
    for (const auto& [event, value] : *block->objectPairs()) {
        const JSONValue::Array* list = value.arrayValue();
        if (list && std::any_of(list->begin(), list->end(), holdsOurs))
            events.insert(event);
    }
    return events;
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
