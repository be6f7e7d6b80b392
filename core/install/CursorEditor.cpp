#include "install/CursorEditor.h"

#include "foundation/File.h"

#include <algorithm>

namespace tidewick {

std::string CursorEditor::configPath(const std::string& home) const {
    return File::join(home, ".cursor/hooks.json");
}

JSONValue CursorEditor::install(const std::optional<JSONValue>& document,
                                const std::vector<HookSpec>& specs,
                                const CommandBuilder& command) const {
    JSONValue root = installRoot(document, "hooks.json");
    const JSONValue* existing = hooksSection(root);

    // Earlier Tidewick handlers go from every event, so switching command
    // gating off really takes the gating hooks out.
    JSONValue hooks(existing ? cleanedEvents(*existing, withoutOurHandlers,
                                             [&specs](const std::string& event) {
                                                 return mentions(specs, event);
                                             })
                             : JSONValue::Object{});
    for (const HookSpec& spec : specs) {
        const JSONValue* slot = hooks.get(spec.event);
        JSONValue::Array handlers =
            slot && slot->isArray() ? *slot->arrayValue() : JSONValue::Array{};
        handlers.push_back(handlerEntry(spec, command, TypeKey::omitted));
        hooks.set(spec.event, JSONValue(std::move(handlers)));
    }

    if (!root.get("version")) {
        JSONValue::Object& pairs = *root.objectPairs();
        pairs.insert(pairs.begin(), JSONValue::Pair{"version", JSONValue::integer(1)});
    }
    root.set("hooks", std::move(hooks));
    return root;
}

JSONValue CursorEditor::remove(const JSONValue& document) const {
    JSONValue root = document;
    const JSONValue* hooks = root.get("hooks");
    if (!hooks || !hooks->isObject())
        return root;
    root.set("hooks", JSONValue(cleanedEvents(*hooks, withoutOurHandlers,
                                              [](const std::string&) { return false; })));
    return root;
}

std::set<std::string> CursorEditor::installedEvents(const JSONValue& document) const {
    return eventsHolding(document.get("hooks"), containsOurs);
}

bool CursorEditor::isEmptyShell(const JSONValue& document) const {
    JSONValue rest = remove(document);
    const JSONValue::Object* pairs = rest.objectPairs();
    if (!pairs)
        return false;
    return std::all_of(pairs->begin(), pairs->end(), [](const JSONValue::Pair& pair) {
        if (pair.first == "version")
            return true;
        const JSONValue::Object* hooks = pair.second.objectPairs();
        return pair.first == "hooks" && hooks && hooks->empty();
    });
}

std::optional<std::string> CursorEditor::disabledReason(const JSONValue&) const {
    return std::nullopt;
}

} // namespace tidewick
