// The tool call a held permission request is about, as the agent sent it: what
// Tidewick needs to answer more than yes or no.
#pragma once

#include "events/AskedQuestion.h"
#include "foundation/JSONValue.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick {

struct HeldCall {
    /// The tool as the agent names it ("Bash", "run_command", "AskUserQuestion").
    std::string tool;
    /// The shell command, when the tool runs one.
    std::optional<std::string> command;
    /// The tool's input as received (null when there was none).
    JSONValue input;
    /// The agent's own suggestions for allowing such calls from now on (Claude Code's
    /// "permission_suggestions"), verbatim; empty when it made none.
    JSONValue::Array suggestions;
    /// The questions, when the tool asks the user some; empty otherwise.
    std::vector<AskedQuestion> questions;

    friend bool operator==(const HeldCall&, const HeldCall&) = default;
};

} // namespace tidewick
