#include "transcripts/TokenUse.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

TokenUse& TokenUse::operator+=(const TokenUse& other) {
    input += other.input;
    cachedInput += other.cachedInput;
    cacheWrite += other.cacheWrite;
    output += other.output;
    reasoning += other.reasoning;
    return *this;
}

void writeJSON(JSONWriter& out, const TokenUse& tokens) {
    out.beginObject();
    out.member("input", tokens.input);
    out.member("cachedInput", tokens.cachedInput);
    out.member("cacheWrite", tokens.cacheWrite);
    out.member("output", tokens.output);
    out.member("reasoning", tokens.reasoning);
    out.member("total", tokens.total());
    out.endObject();
}

} // namespace tidewick
