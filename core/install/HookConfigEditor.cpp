#include "install/HookConfigEditor.h"

#include "install/AntigravityEditor.h"
#include "install/CursorEditor.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"
#include "install/MatcherGroupEditor.h"

#include <algorithm>

namespace tidewick {

std::unique_ptr<HookConfigEditor> HookConfigEditor::forAgent(AgentKind agent) {
    switch (agent) {
    case AgentKind::claude:
        return std::make_unique<MatcherGroupEditor>(MatcherGroupEditor::Flavor::claudeCode);
    case AgentKind::codex:
        return std::make_unique<MatcherGroupEditor>(MatcherGroupEditor::Flavor::codex);
    case AgentKind::cursor:
        return std::make_unique<CursorEditor>();
    case AgentKind::antigravity:
        return std::make_unique<AntigravityEditor>();
    }
    return nullptr;
}

JSONValue installRoot(const std::optional<JSONValue>& document, const std::string& fileName) {
    JSONValue root = document ? *document : JSONValue(JSONValue::Object{});
    if (!root.isObject())
        throw HookConfigError::notAnObject(fileName);
    return root;
}

const JSONValue* hooksSection(const JSONValue& root) {
    const JSONValue* hooks = root.get("hooks");
    if (hooks && !hooks->isObject())
        throw HookConfigError::notAnObject(HookConfigError::hooksSection);
    return hooks;
}

bool mentions(const std::vector<HookSpec>& specs, const std::string& event) {
    return std::any_of(specs.begin(), specs.end(),
                       [&event](const HookSpec& spec) { return spec.event == event; });
}

JSONValue handlerEntry(const HookSpec& spec, const CommandBuilder& command, TypeKey typeKey) {
    JSONValue handler(JSONValue::Object{});
    if (typeKey == TypeKey::written)
        handler.set("type", "command");
    handler.set("command", command(spec.event));
    handler.set("timeout", JSONValue::integer(spec.timeoutSeconds));
    for (const auto& [key, value] : spec.extra)
        handler.set(key, value);
    return handler;
}

bool containsOurs(const JSONValue& list) {
    const JSONValue::Array* entries = list.arrayValue();
    return entries && std::any_of(entries->begin(), entries->end(),
                                  [](const JSONValue& entry) { return isOurs(entry); });
}

std::set<std::string> eventsHolding(const JSONValue* section,
                                    const std::function<bool(const JSONValue&)>& holdsOurs) {
    std::set<std::string> events;
    if (!section || !section->isObject())
        return events;
    for (const auto& [event, value] : *section->objectPairs())
        if (holdsOurs(value))
            events.insert(event);
    return events;
}

JSONValue::Object
cleanedEvents(const JSONValue& hooks,
              const std::function<JSONValue::Array(const JSONValue::Array&)>& clean,
              const std::function<bool(const std::string&)>& keep) {
    JSONValue::Object out;
    for (const auto& [event, value] : *hooks.objectPairs()) {
        if (!value.isArray()) {
            out.emplace_back(event, value);
            continue;
        }
        JSONValue::Array entries = clean(*value.arrayValue());
        if (entries.empty() && !value.arrayValue()->empty() && !keep(event))
            continue;
        out.emplace_back(event, JSONValue(std::move(entries)));
    }
    return out;
}

JSONValue::Array withoutOurHandlers(const JSONValue::Array& handlers) {
    JSONValue::Array kept;
    for (const JSONValue& handler : handlers)
        if (!isOurs(handler))
            kept.push_back(handler);
    return kept;
}

JSONValue::Array withoutOurs(const JSONValue::Array& groups) {
    JSONValue::Array kept;
    kept.reserve(groups.size());
    for (const JSONValue& group : groups) {
        const JSONValue* handlers = group.get("hooks");
        if (!handlers || !handlers->isArray()) {
            kept.push_back(group);
            continue;
        }
        JSONValue::Array remaining = withoutOurHandlers(*handlers->arrayValue());
        if (remaining.size() == handlers->arrayValue()->size()) {
            kept.push_back(group);
        } else if (!remaining.empty()) {
            JSONValue trimmed = group;
            trimmed.set("hooks", JSONValue(std::move(remaining)));
            kept.push_back(std::move(trimmed));
        }
        // A group that held only Tidewick's handlers goes entirely.
    }
    return kept;
}

bool holdsOurGroup(const JSONValue& groups) {
    const JSONValue::Array* list = groups.arrayValue();
    return list && std::any_of(list->begin(), list->end(), [](const JSONValue& group) {
               const JSONValue* handlers = group.get("hooks");
               return handlers && containsOurs(*handlers);
           });
}

} // namespace tidewick
