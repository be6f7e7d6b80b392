#include "usage/CodexLimitsReader.h"

#include "foundation/File.h"
#include "foundation/JSONValue.h"
#include "foundation/Text.h"
#include "transcripts/HeadTailFile.h"
#include "transcripts/RecordedTime.h"
#include "usage/UsageRecord.h"
#include "usage/UsageText.h"

#include <algorithm>

namespace tidewick::CodexLimitsReader {

namespace {

/// Only the end of a record matters: Codex writes a token_count event after every response.
constexpr HeadTailLimits tailOnly{.whole = 1 << 20, .head = 0, .tail = 1 << 20};
/// Records read at most per look, newest first, for one that reports figures.
constexpr std::size_t recordsTried = 5;
/// Day folders searched, newest first: today's, and yesterday's just after midnight.
constexpr std::size_t daysSearched = 2;

std::vector<std::string> newestFirst(const std::string& folder) {
    std::vector<std::string> names;
    try {
        names = File::listFolder(folder);
    } catch (const std::exception&) {
        return names;
    }
    std::sort(names.rbegin(), names.rend());
    return names;
}

/// The rollout files of the newest day folders (sessions/YYYY/MM/DD).
std::vector<std::string> recentRecords(const std::string& sessionsFolder) {
    std::vector<std::string> records;
    std::size_t days = 0;
    for (const std::string& year : newestFirst(sessionsFolder))
        for (const std::string& month : newestFirst(File::join(sessionsFolder, year)))
            for (const std::string& day :
                 newestFirst(File::join(File::join(sessionsFolder, year), month))) {
                if (days++ == daysSearched)
                    return records;
                const std::string folder =
                    File::join(File::join(File::join(sessionsFolder, year), month), day);
                for (const std::string& name : newestFirst(folder))
                    if (Text::startsWith(name, "rollout-") && name.ends_with(".jsonl"))
                        records.push_back(File::join(folder, name));
            }
    return records;
}

void readEvent(const JSONValue& line, RecordLimits& limits) {
    const JSONValue* payload = line.get("payload");
    const JSONValue* type = payload ? payload->get("type") : nullptr;
    if (!type || !type->stringValue() || *type->stringValue() != "token_count")
        return;
    const JSONValue* rateLimits = payload->get("rate_limits");
    if (!rateLimits || !rateLimits->isObject())
        return;
    RecordLimits found;
    found.reported = true;
    found.reportedAt = RecordedTime::fromJSON(line.get("timestamp"));
    for (const char* name : {"primary", "secondary"}) {
        const JSONValue* value = rateLimits->get(name);
        if (!value || !value->isObject())
            continue;
        const JSONValue* minutes = value->get("window_minutes");
        std::optional<UsageWindow> window = UsageRecord::window(
            name, value->get("used_percent"), minutes ? minutes->intValue() : std::nullopt);
        if (!window)
            continue;
        window->resetsAt = RecordedTime::fromJSON(value->get("resets_at"));
        found.windows.push_back(std::move(*window));
    }
    limits = std::move(found);
}

} // namespace

RecordLimits readRecord(const std::string& path) {
    RecordLimits limits;
    HeadTailFile(path, tailOnly)
        .forEachLine(
            [&](std::string_view text, std::int64_t, HeadTailFile::LineEnd end) {
                if (end == HeadTailFile::LineEnd::open || text.find("token_count") == text.npos)
                    return;
                try {
                    readEvent(JSONValue::parse(text), limits);
                } catch (const std::exception&) {
                    // Not JSON: a damaged line, passed over like any other.
                }
            },
            [](std::int64_t, std::int64_t) {});
    return limits;
}

AgentUsage read(const std::string& sessionsFolder, const std::vector<std::string>& knownRecords) {
    AgentUsage usage;
    usage.agent = AgentKind::codex;
    std::vector<std::pair<Date, std::string>> candidates;
    std::vector<std::string> paths = recentRecords(sessionsFolder);
    paths.insert(paths.end(), knownRecords.begin(), knownRecords.end());
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    for (std::string& path : paths)
        if (std::optional<Date> modified = UsageRecord::modifiedAt(path))
            candidates.emplace_back(*modified, std::move(path));
    std::sort(candidates.begin(), candidates.end(), std::greater<>());
    if (candidates.size() > recordsTried)
        candidates.resize(recordsTried);
    for (const auto& [modified, path] : candidates) {
        RecordLimits limits;
        try {
            limits = readRecord(path);
        } catch (const std::exception&) {
            continue; // gone or unreadable: the next one may do
        }
        if (!limits.reported)
            continue;
        usage.source = path;
        usage.reportedAt = limits.reportedAt ? limits.reportedAt : modified;
        usage.windows = std::move(limits.windows);
        if (usage.windows.empty())
            usage.missing = UsageText::codexNoneSent(path);
        return usage;
    }
    usage.missing = UsageText::codexNoRecord(sessionsFolder);
    return usage;
}

} // namespace tidewick::CodexLimitsReader
