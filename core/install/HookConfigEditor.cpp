#include "install/HookConfigEditor.h"

#include "install/AntigravityEditor.h"
#include "install/CursorEditor.h"
#include "install/HookCatalog.h"
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

JSONValue::Array withoutOurs(const JSONValue::Array& groups) {
    JSONValue::Array kept;
    kept.reserve(groups.size());
    for (const JSONValue& group : groups) {
        const JSONValue* handlers = group.get("hooks");
        if (!handlers || !handlers->isArray()) {
            kept.push_back(group);
            continue;
        }
        JSONValue::Array remaining;
        for (const JSONValue& handler : *handlers->arrayValue())
            if (!isOurs(handler))
                remaining.push_back(handler);
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
    if (!list)
        return false;
    return std::any_of(list->begin(), list->end(), [](const JSONValue& group) {
        const JSONValue* handlers = group.get("hooks");
        if (!handlers || !handlers->isArray())
            return false;
        const JSONValue::Array& each = *handlers->arrayValue();
        return std::any_of(each.begin(), each.end(), [](const JSONValue& h) { return isOurs(h); });
    });
}

} // namespace tidewick
