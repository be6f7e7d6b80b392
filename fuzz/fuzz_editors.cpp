// The configuration editors: any document an agent's file may hold is either refused or
// given Tidewick's entries; installing again changes nothing, and removing leaves no
// Tidewick entry the editor knows of and no more than the document had. Input: the
// agent's raw name, a line feed, the file's text.
#include "FuzzCheck.h"
#include "install/HookCatalog.h"
#include "install/HookConfigEditor.h"
#include "install/HookConfigError.h"

using namespace tidewick;

namespace {

// Objects anywhere in `value` that run Tidewick's hook command.
std::size_t ours(const JSONValue& value) {
    std::size_t count = isOurs(value) ? 1 : 0;
    if (const JSONValue::Array* elements = value.arrayValue())
        for (const JSONValue& element : *elements)
            count += ours(element);
    if (const JSONValue::Object* pairs = value.objectPairs())
        for (const JSONValue::Pair& pair : *pairs)
            count += ours(pair.second);
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view input = fuzz::text(data, size);
    const std::optional<AgentKind> agent = fromRaw<AgentKind>(fuzz::takeLine(input));
    if (!agent)
        return 0;
    std::optional<JSONValue> document;
    if (!input.empty()) {
        try {
            document = JSONValue::parse(input);
        } catch (const JSONValue::ParseError&) {
            return 0;
        }
    }
    const auto editor = HookConfigEditor::forAgent(*agent);
    const CommandBuilder command = [agent = *agent](const std::string& event) {
        return HookCatalog::command("/Users/me/Library/Application Support/Tidewick/bin/tidewick-hook",
                                    agent, event);
    };
    if (document) {
        const JSONValue removed = editor->remove(*document);
        fuzz::check(editor->installedEvents(removed).empty(), "removing leaves no entry");
        fuzz::check(ours(removed) <= ours(*document), "removing adds no entry");
        fuzz::check(editor->remove(removed) == removed, "removing twice changes nothing");
    }
    for (GateCommands gate : {GateCommands::off, GateCommands::on}) {
        const std::vector<HookSpec> specs = HookCatalog::specs(*agent, gate);
        JSONValue installed;
        try {
            installed = editor->install(document, specs, command);
        } catch (const HookConfigError&) {
            continue; // a shape the editor does not know is left alone
        }
        const std::set<std::string> events = editor->installedEvents(installed);
        for (const HookSpec& spec : specs)
            fuzz::check(events.contains(spec.event), "installing adds every entry");
        fuzz::check(editor->install(installed, specs, command) == installed,
                    "installing twice changes nothing");
        const JSONValue removed = editor->remove(installed);
        fuzz::check(editor->installedEvents(removed).empty(), "removing leaves no entry");
        fuzz::check(ours(removed) <= (document ? ours(*document) : 0), "removing takes ours out");
        (void)editor->isEmptyShell(removed);
        (void)editor->disabledReason(installed);
    }
    return 0;
}
