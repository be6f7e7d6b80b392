// The steps of the hook command, from its arguments to what it prints, with
// its inputs passed in so that tests can run them without a process.
#pragma once

#include "Environment.h"
#include "ProcessProbe.h"
#include "events/HookOutput.h"
#include "foundation/Clock.h"
#include "foundation/JSONValue.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace tidewick {

/// Where the hook command reads the agent's event from.
class InputSource {
public:
    virtual ~InputSource() = default;
    /// Whether the input is an interactive terminal (then nothing is read).
    [[nodiscard]] virtual bool isTerminal() const = 0;
    /// Everything up to the end of the input, or its first `limit` bytes. Throws
    /// SystemError when reading fails.
    [[nodiscard]] virtual std::string readAll(std::size_t limit) = 0;
};

/// An open descriptor, normally standard input.
class DescriptorInput final : public InputSource {
public:
    explicit DescriptorInput(int fd) : fd_(fd) {}
    [[nodiscard]] bool isTerminal() const override;
    [[nodiscard]] std::string readAll(std::size_t limit) override;

private:
    int fd_;
};

class HookCommand {
public:
    /// Everything the command takes from its process.
    struct Context {
        /// The full argument vector, the program name included.
        std::vector<std::string> arguments;
        const Environment& environment;
        InputSource& input;
        /// The command's own process id.
        std::int32_t pid = 0;
        const ProcessTable& processes = ProcessTable::system();
        Clock clock = now;
    };

    /// How the process ends: `text` is written to standard output in one
    /// write (nothing when empty), then the process exits with `status`.
    struct Exit {
        std::string text;
        int status = 0;
        friend bool operator==(const Exit&, const Exit&) = default;
    };

    /// Payload keys holding tool output, cut to `outputLimit` characters.
    static constexpr std::array<std::string_view, 5> longOutputKeys = {
        "tool_response", "tool_output", "output", "result_json", "tool_result"};
    static constexpr std::size_t outputLimit = 2000;
    /// Any string of the payload is cut to this many characters.
    static constexpr std::size_t stringLimit = 50000;
    /// Standard input is read until it ends or this many bytes have come in.
    static constexpr std::size_t inputLimit = 33554432;
    static constexpr double heldConnectSeconds = 0.4;
    static constexpr double heldWaitSeconds = 595.0;
    static constexpr double fireAndForgetConnectSeconds = 0.15;
    static constexpr double fireAndForgetWaitSeconds = 1.0;
    static constexpr int ancestorSteps = 8;

    /// Runs every step and returns how to end. Once the agent and event are
    /// known, any failure ends in the adapter's fail-safe answer; before
    /// that, in a silent exit 0. Only running out of memory while building
    /// the answer itself can throw (the program's main() catches it).
    [[nodiscard]] static Exit run(const Context& context);

    /// The element after the first one equal to `name`; nothing when `name`
    /// is absent or last.
    [[nodiscard]] static std::optional<std::string> arg(const std::vector<std::string>& arguments,
                                                        std::string_view name);

    /// A copy of `value` in which every string longer than `limit` characters
    /// is cut to its first `limit` characters plus "…", at any depth. Keys,
    /// numbers, booleans and nulls are kept.
    [[nodiscard]] static JSONValue trimmed(const JSONValue& value, std::size_t limit);
    /// trimmed(), in place.
    static void trim(JSONValue& value, std::size_t limit);

    /// How to end with `output`: its text plus a line feed (nothing for
    /// empty text), and its exit code, except that 2 becomes 0.
    [[nodiscard]] static Exit finish(const HookOutput& output);
};

} // namespace tidewick
