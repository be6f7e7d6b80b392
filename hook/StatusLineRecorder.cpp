#include "StatusLineRecorder.h"

#include "foundation/File.h"

namespace tidewick::StatusLineRecorder {

bool record(const JSONValue& payload, const std::string& file, Date now) {
    const JSONValue* limits = payload.get("rate_limits");
    if (!limits || !limits->isObject())
        return false;
    JSONValue::Object windows;
    for (const auto& [name, window] : *limits->objectPairs()) {
        const JSONValue* used = window.get("used_percentage");
        if (!used || !used->isNumber())
            used = window.get("utilization");
        if (!used || !used->isNumber())
            continue;
        JSONValue::Object kept{{"used_percentage", *used}};
        if (const JSONValue* resets = window.get("resets_at"); resets && !resets->isNull())
            kept.emplace_back("resets_at", *resets);
        windows.emplace_back(name, JSONValue(std::move(kept)));
    }
    if (windows.empty())
        return false;
    JSONValue document(JSONValue::Object{{"at", JSONValue::real(secondsSince1970(now))},
                                         {"rate_limits", JSONValue(std::move(windows))}});
    File::makeDirectories(File::parent(file), 0700);
    File::writeAtomically(file, document.compact() + "\n", 0600);
    return true;
}

} // namespace tidewick::StatusLineRecorder
