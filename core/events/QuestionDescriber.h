// Recognises tool calls through which an agent asks the user a question or
// asks for more permission, and extracts the question from them.
#pragma once

#include "foundation/JSONValue.h"

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

/// A question put to the user, with the answers the agent offers.
struct AgentQuestion {
    std::string text;
    /// The offered answers; possibly empty.
    std::vector<std::string> options;

    /// The text, then one line "• <option>" per option, joined with "\n".
    [[nodiscard]] std::string recordText() const;
    /// The inverse of recordText: lines starting with "• " are options, the
    /// other lines (joined with "\n" and trimmed) are the text. Never fails.
    [[nodiscard]] static AgentQuestion fromRecord(std::string_view record);

    friend bool operator==(const AgentQuestion&, const AgentQuestion&) = default;
};

namespace QuestionDescriber {

/// A set of lower-case tool names.
using NameSet = std::set<std::string, std::less<>>;

/// Tools by which an agent asks the user a question (lower case).
[[nodiscard]] const NameSet& questionNames();
/// Tools by which an agent asks for more permission (lower case).
[[nodiscard]] const NameSet& permissionNames();
/// Tools that run a shell command (lower case); ToolDescriber's shell rule.
[[nodiscard]] const NameSet& shellNames();
/// Input keys under which a generic tool names the tool it really calls, in the order tried.
inline constexpr std::array<std::string_view, 3> wrapperKeys = {"toolName", "tool_name", "name"};

/// A tool call after looking through a generic wrapper tool.
struct UnwrappedCall {
    std::optional<std::string> tool;
    std::optional<JSONValue> input;

    friend bool operator==(const UnwrappedCall&, const UnwrappedCall&) = default;
};

/// Whether the lower-cased name is a question or a permission tool; false when absent.
[[nodiscard]] bool isQuestionTool(const std::optional<std::string>& name);
/// Whether the lower-cased name is a permission tool; false when absent.
[[nodiscard]] bool isPermissionTool(const std::optional<std::string>& name);
/// The input when it is an object, or the object a string input holds as
/// JSON text; nothing for anything else (including unparsable text).
[[nodiscard]] std::optional<JSONValue> asDict(const JSONValue* input);
/// The question tool and its arguments when `tool` is a generic tool whose
/// input names a question tool; otherwise `tool` and `input` unchanged.
[[nodiscard]] UnwrappedCall unwrap(const std::optional<std::string>& tool, const JSONValue* input);
/// The question the call puts to the user; nothing when the tool is not a
/// question tool or a question tool's input holds no question text.
[[nodiscard]] std::optional<AgentQuestion> question(const std::optional<std::string>& tool,
                                                    const JSONValue* input);

} // namespace QuestionDescriber
} // namespace tidewick
