#include "usage/ClaudeLimitsReader.h"

#include "foundation/JSONValue.h"
#include "transcripts/HeadTailFile.h"
#include "transcripts/RecordedTime.h"
#include "usage/UsageRecord.h"
#include "usage/UsageText.h"

#include <cerrno>
#include <system_error>

namespace tidewick::ClaudeLimitsReader {

namespace {

/// Far more than any real file; a larger one is not Tidewick's.
constexpr std::int64_t sizeLimit = 1 << 20;

std::optional<std::int64_t> knownLength(const std::string& name) {
    if (name.starts_with("five_hour"))
        return 300;
    if (name.starts_with("seven_day"))
        return 7 * 1440;
    return std::nullopt;
}

} // namespace

AgentUsage read(const std::string& file) {
    AgentUsage usage;
    usage.agent = AgentKind::claude;
    usage.source = file;
    JSONValue document;
    try {
        if (!UsageRecord::exists(file)) {
            usage.missing = UsageText::claudeNoFigures();
            return usage;
        }
        document = UsageRecord::readSmallJSON(file, sizeLimit);
    } catch (const std::exception& error) {
        usage.missing = UsageText::unreadable(file, error.what());
        return usage;
    }
    usage.reportedAt = RecordedTime::fromJSON(document.get("at"));
    const JSONValue* limits = document.get("rate_limits");
    if (limits && limits->isObject())
        for (const auto& [name, value] : *limits->objectPairs()) {
            const JSONValue* used = value.get("used_percentage");
            if (!used || !used->isNumber())
                used = value.get("utilization");
            std::optional<UsageWindow> window = UsageRecord::window(name, used, knownLength(name));
            if (!window)
                continue;
            window->resetsAt = RecordedTime::fromJSON(value.get("resets_at"));
            usage.windows.push_back(std::move(*window));
        }
    if (usage.windows.empty())
        usage.missing = UsageText::claudeNoFigures();
    return usage;
}

} // namespace tidewick::ClaudeLimitsReader
