// The hook socket's lines: decoding any bytes never misbehaves, and what decodes is
// written again and decodes to the same request or response.
#include "FuzzCheck.h"
#include "wire/Wire.h"

using namespace tidewick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line = fuzz::text(data, size);
    // The starting inputs carry this secret.
    constexpr std::string_view secret = "fuzz-secret";
    if (const std::optional<HookRequest> request = Wire::decode(line, secret)) {
        std::string again = Wire::encode(*request, secret);
        fuzz::check(again.back() == '\n', "a request line ends in a line feed");
        again.pop_back();
        fuzz::check(again.find('\n') == std::string::npos, "a request is one line");
        fuzz::check(Wire::decode(again, secret) == request, "a request survives a round trip");
        fuzz::check(!Wire::decode(again, "another secret"), "another secret is refused");
    }
    if (const std::optional<HookOutput> output = Wire::decodeResponse(line)) {
        std::string again = Wire::encode(*output);
        again.pop_back();
        fuzz::check(Wire::decodeResponse(again) == output, "a response survives a round trip");
    }
    return 0;
}
