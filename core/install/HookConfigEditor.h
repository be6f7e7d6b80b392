// The interface of the editors that add and remove Tidewick's hooks in one
// agent's configuration file, one implementation per file layout.
#pragma once

#include "events/AgentKind.h"
#include "foundation/JSONValue.h"
#include "install/HookSpec.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewick {

/// Maps an event name to the command line written for it.
using CommandBuilder = std::function<std::string(const std::string& event)>;

/// Edits one agent's configuration document without disturbing the user's own
/// entries or their order. Documents are order-preserving JSONValues.
class HookConfigEditor {
public:
    virtual ~HookConfigEditor() = default;

    /// The path of the agent's file under `home`.
    [[nodiscard]] virtual std::string configPath(const std::string& home) const = 0;

    /// The whole new document with one Tidewick entry per HookSpec (earlier
    /// Tidewick entries replaced). `document` is empty when the file is absent.
    /// Throws HookConfigError, before changing anything, on an unexpected shape.
    [[nodiscard]] virtual JSONValue install(const std::optional<JSONValue>& document,
                                            const std::vector<HookSpec>& specs,
                                            const CommandBuilder& command) const = 0;

    /// `document` without any Tidewick entry; a shape it does not know is returned as it is.
    [[nodiscard]] virtual JSONValue remove(const JSONValue& document) const = 0;

    /// The event names that currently carry a Tidewick entry.
    [[nodiscard]] virtual std::set<std::string>
    installedEvents(const JSONValue& document) const = 0;

    /// True when nothing but Tidewick's own scaffolding is left.
    [[nodiscard]] virtual bool isEmptyShell(const JSONValue& document) const = 0;

    /// A sentence for the user when the file itself switches hooks off.
    [[nodiscard]] virtual std::optional<std::string>
    disabledReason(const JSONValue& document) const = 0;

    /// The editor for `agent`'s file layout.
    [[nodiscard]] static std::unique_ptr<HookConfigEditor> forAgent(AgentKind agent);
};

/// The root object an install starts from: `document`, or an empty object when
/// the file is absent. Throws HookConfigError naming `fileName` when it is not an object.
[[nodiscard]] JSONValue installRoot(const std::optional<JSONValue>& document,
                                    const std::string& fileName);

/// The root's "hooks" object, or null when there is none. Throws HookConfigError
/// (the hooks-section sentence) when "hooks" is something other than an object.
[[nodiscard]] const JSONValue* hooksSection(const JSONValue& root);

/// Whether `specs` has an entry for `event`.
[[nodiscard]] bool mentions(const std::vector<HookSpec>& specs, const std::string& event);

/// Whether a handler entry starts with "type": "command" (Cursor's have no type).
enum class TypeKey { written, omitted };

/// The handler entry for `spec`: ["type": "command",] "command", "timeout", then
/// the HookSpec's extra pairs (a pair whose key exists replaces the value in place).
[[nodiscard]] JSONValue handlerEntry(const HookSpec& spec, const CommandBuilder& command,
                                     TypeKey typeKey);

/// Whether `list` is an array with at least one entry of Tidewick's (see isOurs).
[[nodiscard]] bool containsOurs(const JSONValue& list);

/// The members of `section` (an object, or null for none) whose value satisfies `holdsOurs`.
[[nodiscard]] std::set<std::string>
eventsHolding(const JSONValue* section, const std::function<bool(const JSONValue&)>& holdsOurs);

/// The event lists of `hooks` (an object), each passed through `clean`. A list
/// that only Tidewick's entries filled goes unless `keep(event)` says it is about
/// to be refilled (so it keeps its place); lists the user left empty and values
/// that are not lists stay as they are.
[[nodiscard]] JSONValue::Object
cleanedEvents(const JSONValue& hooks,
              const std::function<JSONValue::Array(const JSONValue::Array&)>& clean,
              const std::function<bool(const std::string&)>& keep);

/// The handlers of a list without Tidewick's.
[[nodiscard]] JSONValue::Array withoutOurHandlers(const JSONValue::Array& handlers);

/// The groups of one matcher-group event list without Tidewick's handlers: a
/// group keeps its other handlers and members, and disappears when every
/// handler was Tidewick's. Groups of an unknown shape are kept unchanged.
[[nodiscard]] JSONValue::Array withoutOurs(const JSONValue::Array& groups);

/// Whether a matcher-group event list holds a group with a Tidewick handler.
[[nodiscard]] bool holdsOurGroup(const JSONValue& groups);

} // namespace tidewick
