// The "activity.jsonl" log of past agent events: one compact JSON line per
// event, kept to a bounded size by rotating to one previous file.
#pragma once

#include "events/AgentEvent.h"
#include "foundation/Clock.h"

#include <cstdint>
#include <mutex>
#include <string>

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

    /// Appends the line for `event` (creating the folder with 0700 and the file with 0600
    /// when missing). Thread-safe. Throws SystemError naming the failed call; the log is
    /// a record for the user, so the service reports that and carries on.
    void append(const AgentEvent& event, Date time);

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Where the previous part of the log goes: path() + ".1".
    [[nodiscard]] std::string previousPath() const { return path_ + ".1"; }

private:
    std::string path_;
    std::uintmax_t limitBytes_;
    std::mutex lock_;
};

} // namespace tidewick
