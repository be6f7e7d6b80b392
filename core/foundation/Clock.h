// Points in time as Tidewick stores them, and the clock that services take
// so that tests can control time.
#pragma once

#include <chrono>
#include <cmath>
#include <ctime>
#include <functional>
#include <string>

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

/// Whether `seconds` after 1970-01-01 UTC is a date the clock can hold: finite and within
/// about 290 years of 1970. dateFromSeconds is undefined for any other number, so every
/// number read from a file or a socket is checked with this first.
[[nodiscard]] inline bool isRepresentableDate(double seconds) {
    return std::isfinite(seconds) && std::fabs(seconds) <= 9.2e9;
}

/// The date `seconds` after 1970-01-01 UTC; `seconds` must pass isRepresentableDate.
[[nodiscard]] inline Date dateFromSeconds(double seconds) {
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)));
}

/// `date` moved by `seconds`.
[[nodiscard]] inline Date addSeconds(Date date, double seconds) {
    return date + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

/// Which clock a formatted date reads.
enum class TimeZone { local, utc };

/// `date` as strftime's `format` writes it in `zone`; at most 63 bytes are kept.
[[nodiscard]] inline std::string formatDate(Date date, const char* format, TimeZone zone) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    if (zone == TimeZone::local)
        ::localtime_r(&seconds, &parts);
    else
        ::gmtime_r(&seconds, &parts);
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

} // namespace tidewick
