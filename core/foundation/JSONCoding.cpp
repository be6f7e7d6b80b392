#include "foundation/JSONCoding.h"

#include "foundation/UTF8.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>

namespace tidewick {

namespace {

// Reads a number's text, or passes over a value of another kind (then nothing).
std::optional<std::string_view> numberText(JSONReader& in) {
    if (in.peek() != JSONValue::Kind::Number) {
        in.skipValue();
        return std::nullopt;
    }
    return in.readNumber();
}

} // namespace

void writeJSON(JSONWriter& out, std::string_view text) {
    out.string(text);
}

void writeJSON(JSONWriter& out, const std::string& text) {
    out.string(text);
}

void writeJSON(JSONWriter& out, const char* text) {
    out.string(text);
}

void writeJSON(JSONWriter& out, bool value) {
    out.boolean(value);
}

void writeJSON(JSONWriter& out, std::int32_t value) {
    out.integer(value);
}

void writeJSON(JSONWriter& out, std::int64_t value) {
    out.integer(value);
}

void writeJSON(JSONWriter& out, double value) {
    out.real(value);
}

void writeJSON(JSONWriter& out, Date date) {
    using namespace std::chrono;
    // Rounded to the millisecond, halves away from zero, in whole numbers: exact, and
    // much cheaper than printing a double.
    const std::int64_t nanoseconds =
        duration_cast<std::chrono::nanoseconds>(date.time_since_epoch()).count();
    std::int64_t milliseconds = nanoseconds / 1'000'000;
    const std::int64_t rest = nanoseconds % 1'000'000;
    if (rest >= 500'000)
        ++milliseconds;
    else if (rest <= -500'000)
        --milliseconds;

    char buffer[32];
    char* end = buffer;
    if (milliseconds < 0)
        *end++ = '-';
    const std::uint64_t magnitude = milliseconds < 0 ? 0 - static_cast<std::uint64_t>(milliseconds)
                                                     : static_cast<std::uint64_t>(milliseconds);
    end = std::to_chars(end, buffer + sizeof buffer, magnitude / 1000).ptr;
    if (unsigned fraction = static_cast<unsigned>(magnitude % 1000); fraction != 0) {
        *end++ = '.';
        *end++ = static_cast<char>('0' + fraction / 100);
        fraction %= 100;
        for (unsigned scale = 10; fraction != 0; scale /= 10) {
            *end++ = static_cast<char>('0' + fraction / scale);
            fraction %= scale;
        }
    }
    out.number(std::string_view(buffer, static_cast<std::size_t>(end - buffer)));
}

void writeJSON(JSONWriter& out, const UUID& id) {
    const std::array<char, 36> text = id.characters();
    out.string(std::string_view(text.data(), text.size()));
}

void writeJSON(JSONWriter& out, const JSONValue& value) {
    out.value(value);
}

bool readJSON(JSONReader& in, std::string& out) {
    if (in.peek() != JSONValue::Kind::String) {
        in.skipValue();
        return false;
    }
    out.assign(in.readStringView());
    return true;
}

bool readJSON(JSONReader& in, bool& out) {
    if (in.peek() != JSONValue::Kind::Bool) {
        in.skipValue();
        return false;
    }
    out = in.readBool();
    return true;
}

bool readJSON(JSONReader& in, std::int64_t& out) {
    const std::optional<std::string_view> text = numberText(in);
    const std::optional<std::int64_t> value = text ? JSONReader::integerValue(*text) : std::nullopt;
    if (value)
        out = *value;
    return value.has_value();
}

bool readJSON(JSONReader& in, std::int32_t& out) {
    std::int64_t wide = 0;
    if (!readJSON(in, wide) || wide < std::numeric_limits<std::int32_t>::min() ||
        wide > std::numeric_limits<std::int32_t>::max())
        return false;
    out = static_cast<std::int32_t>(wide);
    return true;
}

bool readJSON(JSONReader& in, double& out) {
    const std::optional<std::string_view> text = numberText(in);
    const std::optional<double> value = text ? JSONReader::doubleValue(*text) : std::nullopt;
    if (!value || !std::isfinite(*value))
        return false;
    out = *value;
    return true;
}

bool readJSON(JSONReader& in, Date& out) {
    double seconds = 0;
    if (!readJSON(in, seconds) || !isRepresentableDate(seconds))
        return false;
    // Dates are written to the millisecond; reading them to the same precision makes
    // whatever was read equal to what reading it again after writing gives.
    out = dateFromSeconds(std::round(seconds * 1000) / 1000);
    return true;
}

bool readJSON(JSONReader& in, UUID& out) {
    if (in.peek() != JSONValue::Kind::String) {
        in.skipValue();
        return false;
    }
    const std::optional<UUID> id = UUID::parse(in.readStringView());
    if (id)
        out = *id;
    return id.has_value();
}

bool readJSON(JSONReader& in, JSONValue& out) {
    out = in.readValue();
    return true;
}

void requireUTF8(std::string_view text) {
    if (!UTF8::isValid(text))
        throw JSONValue::ParseError("File is not UTF-8");
}

} // namespace tidewick
