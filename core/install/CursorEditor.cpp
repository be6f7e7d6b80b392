#include "install/CursorEditor.h"

#include "foundation/File.h"
#include "install/HookCatalog.h"
#include "install/HookConfigError.h"

#include <algorithm>

namespace tidewick {

namespace {

JSONValue::Array withoutOurHandlers(const JSONValue::Array& handlers) {
    JSONValue::Array kept;
    for (const JSONValue& handler : handlers)
        if (!isOurs(handler))
            kept.push_back(handler);
    return kept;
}

// The "hooks" object without Tidewick's handlers. A list that only Tidewick's
// handlers filled goes, unless `keep` says it is about to be refilled (so it
// keeps its place); lists the user left empty stay.
template <typename Keep> JSONValue::Object cleaned(const JSONValue& hooks, Keep keep) {
    JSONValue::Object out;
    for (const auto& [event, value] : *hooks.objectPairs()) {
        if (!value.isArray()) {
            out.emplace_back(event, value);
            continue;
        }
        JSONValue::Array handlers = withoutOurHandlers(*value.arrayValue());
        if (handlers.empty() && !value.arrayValue()->empty() && !keep(event))
            continue;
        out.emplace_back(event, JSONValue(std::move(handlers)));
    }
    return out;
}

} // namespace

std::string CursorEditor::configPath(const std::string& home) const {
    return File::join(home, ".cursor/hooks.json");
}

JSONValue CursorEditor::install(const std::optional<JSONValue>& document,
                                const std::vector<HookSpec>& specs,
                                const CommandBuilder& command) const {
    JSONValue root = document ? *document : JSONValue(JSONValue::Object{});
    if (!root.isObject())
        throw HookConfigError::notAnObject("hooks.json");
    const JSONValue* existing = root.get("hooks");
    if (existing && !existing->isObject())
        throw HookConfigError::notAnObject(HookConfigError::hooksSection);

    // Earlier Tidewick handlers go from every event, so switching command
    // gating off really takes the gating hooks out.
    auto wanted = [&specs](const std::string& event) {
        return std::any_of(specs.begin(), specs.end(),
                           [&event](const HookSpec& spec) { return spec.event == event; });
    };
    JSONValue hooks(existing ? cleaned(*existing, wanted) : JSONValue::Object{});
    for (const HookSpec& spec : specs) {
        const JSONValue* slot = hooks.get(spec.event);
        JSONValue::Array handlers =
            slot && slot->isArray() ? *slot->arrayValue() : JSONValue::Array{};
        JSONValue handler(JSONValue::Object{
            {"command", command(spec.event)},
            {"timeout", JSONValue::integer(spec.timeoutSeconds)},
        });
        for (const auto& [key, value] : spec.extra)
            handler.set(key, value);
        handlers.push_back(std::move(handler));
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
    root.set("hooks", JSONValue(cleaned(*hooks, [](const std::string&) { return false; })));
    return root;
}

std::set<std::string> CursorEditor::installedEvents(const JSONValue& document) const {
    std::set<std::string> events;
    const JSONValue* hooks = document.get("hooks");
    if (!hooks || !hooks->isObject())
        return events;
    for (const auto& [event, value] : *hooks->objectPairs()) {
        const JSONValue::Array* handlers = value.arrayValue();
        if (handlers && std::any_of(handlers->begin(), handlers->end(),
                                    [](const JSONValue& h) { return isOurs(h); }))
            events.insert(event);
    }
    return events;
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
