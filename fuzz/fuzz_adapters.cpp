// Every agent's adapter: any payload and event name parse without misbehaving, and the
// answer to every decision is empty or one JSON document, with an exit status the hook
// command may use. Input: the agent's raw name, a line feed, the event name, a line
// feed, the payload.
#include "FuzzCheck.h"
#include "adapters/Adapters.h"
#include "foundation/JSONValue.h"
#include "foundation/UTF8.h"

using namespace tidewick;

namespace {

void checkAnswer(const HookOutput& output) {
    fuzz::check(output.exitCode == 0 || output.exitCode == 2, "answers exit with 0 or 2");
    fuzz::check(UTF8::isValid(output.stdoutText), "answers are UTF-8");
    if (output.stdoutText.empty())
        return;
    try {
        (void)JSONValue::parse(output.stdoutText);
    } catch (const JSONValue::ParseError&) {
        fuzz::check(false, "an answer is one JSON document");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view input = fuzz::text(data, size);
    const std::optional<AgentKind> agent = fromRaw<AgentKind>(fuzz::takeLine(input));
    if (!agent)
        return 0;
    const std::string_view event = fuzz::takeLine(input);
    JSONValue payload;
    try {
        payload = JSONValue::parse(input);
    } catch (const JSONValue::ParseError&) {
        return 0;
    }
    const std::unique_ptr<AgentAdapter> adapter = Adapters::adapter(*agent);
    checkAnswer(adapter->failSafe(event));
    (void)adapter->isFireAndForget(event);
    const std::optional<ParsedHook> parsed = adapter->parse(event, Payload(payload));
    if (!parsed)
        return 0;
    // The user's words come from the input too.
    const std::string words = UTF8::repaired(input.substr(0, 200));
    for (const std::optional<Decision>& decision :
         {std::optional<Decision>(), std::optional(Decision::allow()),
          std::optional(Decision::deny()), std::optional(Decision::deny(words)),
          std::optional(Decision::reply(words)), std::optional(Decision::letStop()),
          std::optional(Decision::timeout())})
        checkAnswer(adapter->output(*parsed, decision));
    return 0;
}
