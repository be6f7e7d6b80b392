// Points in time as Tidewick stores them, and the clock that services take
// so that tests can control time.
#pragma once

#include <chrono>
#include <functional>

namespace tidewick {

/// A point in wall-clock time.
using Date = std::chrono::system_clock::time_point;

/// A source of the current time; services take one so that tests can move time by hand.
using Clock = std::function<Date()>;

/// The system's wall clock.
[[nodiscard]] inline Date now() { return std::chrono::system_clock::now(); }

/// Seconds since 1970-01-01 UTC, with fraction: how dates are written to Tidewick's files.
[[nodiscard]] inline double secondsSince1970(Date date) {
    return std::chrono::duration<double>(date.time_since_epoch()).count();
}

/// The date `seconds` after 1970-01-01 UTC.
[[nodiscard]] inline Date dateFromSeconds(double seconds) {
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

/// `date` moved by `seconds`.
[[nodiscard]] inline Date addSeconds(Date date, double seconds) {
    return date + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

} // namespace tidewick
