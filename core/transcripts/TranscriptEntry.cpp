#include "transcripts/TranscriptEntry.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

void writeJSON(JSONWriter& out, const TranscriptEntry& entry) {
    out.beginObject();
    out.member("role", entry.role);
    out.member("time", entry.time);
    out.member("text", entry.text);
    if (entry.thinking)
        out.member("thinking", true);
    out.member("tool", entry.tool);
    out.member("tokens", entry.tokens);
    out.member("skippedBytes", entry.skippedBytes);
    out.member("position", entry.position);
    out.endObject();
}

} // namespace tidewick
