// The "activity.jsonl" log of past agent events: one compact JSON line per
// event, kept to a bounded size by rotating to one previous file. A record is
// written whole or not at all, so the log stays one JSON object per line.
#pragma once

#include "events/AgentEvent.h"
#include "foundation/Clock.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace tidewick {

class ActivityLog {
public:
    /// The log's default size limit: 5 MiB, a few tens of thousands of events.
    static constexpr std::uintmax_t defaultLimitBytes = 5 * 1024 * 1024;
    /// Titles and details are cut to this many characters, so one line stays small.
    static constexpr std::size_t textLimit = 2000;

    /// The log at `path`. When appending a line would take the file past `limitBytes`,
    /// the file is first renamed to `path` + ".1" (replacing an older one) and a new file
    /// is begun, so the two together never hold much more than twice the limit.
    explicit ActivityLog(std::string path, std::uintmax_t limitBytes = defaultLimitBytes);

    /// The line for `event`, recorded at `time`, with its line feed: {"time", "agent",
    /// "session", "kind", "title", "detail"}, the time in seconds since 1970 and absent
    /// texts left out.
    [[nodiscard]] static std::string line(const AgentEvent& event, Date time);

    /// The line of a note by Tidewick itself, with its line feed: {"time", "notice"}.
    [[nodiscard]] static std::string noticeLine(std::string_view sentence, Date time);

    /// Appends the line for `event` (creating the folder with 0700 and the file with 0600
    /// when missing). Thread-safe. Throws SystemError naming the failed call; the log is
    /// a record for the user, so the service reports that and carries on. A write that
    /// fails part-way (a full disk) is cut off again, and a torn last line left by a
    /// crash is removed before the next record, so every line stays one whole record.
    void append(const AgentEvent& event, Date time);
    /// Appends the notice line of `sentence`, like append().
    void note(std::string_view sentence, Date time);

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Where the previous part of the log goes: path() + ".1".
    [[nodiscard]] std::string previousPath() const { return path_ + ".1"; }

private:
    void appendLine(std::string_view line);

    std::string path_;
    std::uintmax_t limitBytes_;
    std::mutex lock_;
};

} // namespace tidewick
