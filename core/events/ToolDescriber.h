// Turns an agent's tool call (a tool name and an untyped input) into the
// short title and detail the user sees.
#pragma once

#include "events/QuestionDescriber.h"
#include "foundation/JSONValue.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

/// What the user is shown for one tool call.
struct ToolDescription {
    /// One-line headline, such as "Run npm test" or "Edit main.cpp".
    std::string title;
    /// The full command, path, pattern or input.
    std::optional<std::string> detail;
    /// True when the call runs a shell command.
    bool isShell = false;
    /// The command text; set only when isShell is true.
    std::optional<std::string> command;

    friend bool operator==(const ToolDescription&, const ToolDescription&) = default;
};

namespace ToolDescriber {

/// Tools that run a shell command (lower case); the table lives with the other name tables.
using QuestionDescriber::shellNames;

/// Whether the lower-cased name is a shell tool; false when absent.
[[nodiscard]] bool isShellTool(const std::optional<std::string>& name);
/// The description of any call: an absent name reads "tool", an input that
/// is not an object (or a string holding one) counts as empty. Never fails.
[[nodiscard]] ToolDescription describe(const std::optional<std::string>& tool,
                                       const JSONValue* input);
/// The command a shell tool runs, from a string or an argument array (the
/// script itself for `bash -c script`); nothing when empty or of another type.
[[nodiscard]] std::optional<std::string> commandText(const JSONValue* value);
/// `text` when it has at most `limit` characters, else its first `limit` - 1
/// characters and "…", so that the result has exactly `limit` characters.
[[nodiscard]] std::string truncate(std::string_view text, std::size_t limit);
/// The files a patch in the "*** Update File: " format touches, in patch order.
[[nodiscard]] std::vector<std::string> patchedFiles(std::string_view patch);

} // namespace ToolDescriber
} // namespace tidewick
