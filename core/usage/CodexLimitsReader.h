// Reads the rate-limit figures Codex writes into its session records: each
// "token_count" event carries the service's latest primary and secondary
// windows, so the newest record's last such event says where the quota stands.
#pragma once

#include "usage/UsageWindow.h"

#include <optional>
#include <string>
#include <vector>

namespace tidewick::CodexLimitsReader {

/// What one record's last "token_count" event says.
struct RecordLimits {
    /// Whether the part read holds a token_count event with a "rate_limits" object at all.
    bool reported = false;
    /// Its "primary" and "secondary" windows that are objects with a finite "used_percent"
    /// (held to 0–100), "window_minutes" and "resets_at" (null: unknown).
    std::vector<UsageWindow> windows;
    /// The event's "timestamp".
    std::optional<Date> reportedAt;
};

/// The last token_count event in the tail of the record at `path` (only its last MiB is
/// read, however long it is; a last line still being written is passed over, as are lines
/// that are not JSON or have the wrong shape). Throws SystemError when it cannot be read.
[[nodiscard]] RecordLimits readRecord(const std::string& path);

/// Codex's figures: the newest of the records in the two newest day folders under
/// `sessionsFolder` and of `knownRecords` (records of sessions Tidewick follows, which
/// may be older sessions resumed), by modification time, that holds a token_count event.
/// Never throws: without such a record, or when the newest says the service sent no
/// windows, there are no windows and `missing` says why.
[[nodiscard]] AgentUsage read(const std::string& sessionsFolder,
                              const std::vector<std::string>& knownRecords = {});

} // namespace tidewick::CodexLimitsReader
