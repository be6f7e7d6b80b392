#include "transcripts/RecordedTime.h"

#include "foundation/JSONValue.h"

#include <cmath>
#include <ctime>

namespace tidewick::RecordedTime {

namespace {

// Reads `count` digits at `at`; nothing when any is not a digit.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size())
        return std::nullopt;
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

} // namespace

std::optional<Date> parseISO8601(std::string_view text) {
    const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    const auto hour = digits(text, 11, 2), minute = digits(text, 14, 2),
               second = digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second || text[4] != '-' ||
        text[7] != '-' || (text[10] != 'T' && text[10] != ' ') || text[13] != ':' ||
        text[16] != ':' || *month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 ||
        *minute > 59 || *second > 60)
        return std::nullopt;
    std::size_t at = 19;
    double fraction = 0;
    if (at < text.size() && text[at] == '.') {
        double scale = 0.1;
        for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10)
            fraction += (text[at] - '0') * scale;
    }
    int offsetSeconds = 0;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const auto offsetHours = digits(text, at + 1, 2);
        const std::size_t minutesAt = at + 3 + (at + 3 < text.size() && text[at + 3] == ':');
        const auto offsetMinutes = digits(text, minutesAt, 2);
        if (!offsetHours || !offsetMinutes)
            return std::nullopt;
        offsetSeconds = (*offsetHours * 3600 + *offsetMinutes * 60) * (text[at] == '-' ? -1 : 1);
        at = minutesAt + 2;
    } else if (at < text.size() && (text[at] == 'Z' || text[at] == 'z')) {
        ++at;
    }
    if (at != text.size())
        return std::nullopt;
    std::tm parts{};
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    parts.tm_hour = *hour;
    parts.tm_min = *minute;
    parts.tm_sec = *second;
    const double seconds = static_cast<double>(::timegm(&parts)) - offsetSeconds + fraction;
    return fromEpochNumber(seconds);
}

std::optional<Date> fromEpochNumber(double value) {
    // Seconds reach 1e10 only in the year 2286; milliseconds and microseconds start far above.
    if (std::fabs(value) >= 1e14)
        value /= 1e6;
    else if (std::fabs(value) >= 1e11)
        value /= 1e3;
    if (!isRepresentableDate(value))
        return std::nullopt;
    return dateFromSeconds(value);
}

std::optional<Date> fromJSON(const JSONValue* value) {
    if (!value)
        return std::nullopt;
    if (const std::string* text = value->stringValue())
        return parseISO8601(*text);
    if (const std::optional<double> number = value->doubleValue())
        return fromEpochNumber(*number);
    return std::nullopt;
}

} // namespace tidewick::RecordedTime
