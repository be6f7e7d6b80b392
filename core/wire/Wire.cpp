#include "wire/Wire.h"

#include "foundation/IO.h"
#include "foundation/SystemError.h"
#include "foundation/UTF8.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tidewick::Wire {

namespace {

enum class IntegerField { absent, inRange, outOfRange };

// Reads a 32-bit integer field. A number written as an integer that does not
// fit is told apart from a field that is simply missing or of another type.
IntegerField readInt32(const JSONValue* value, std::int32_t& out) {
    if (!value || !value->isNumber())
        return IntegerField::absent;
    const std::string& text = *value->numberText();
    if (text.find_first_of(".eE") != std::string::npos)
        return IntegerField::absent;
    auto wide = value->intValue();
    if (!wide || *wide < INT32_MIN || *wide > INT32_MAX)
        return IntegerField::outOfRange;
    out = static_cast<std::int32_t>(*wide);
    return IntegerField::inRange;
}

std::optional<JSONValue> parseObject(std::string_view line) {
    try {
        JSONValue value = JSONValue::parse(line);
        if (!value.isObject())
            return std::nullopt;
        return value;
    } catch (const JSONValue::ParseError&) {
        return std::nullopt;
    }
}

bool hasVersion(const JSONValue& object) {
    const JSONValue* v = object.get("v");
    if (!v || !v->isNumber() || v->numberText()->find_first_of(".eE") != std::string::npos)
        return false;
    auto value = v->intValue();
    return value && *value == version;
}

} // namespace

std::optional<sockaddr_un> makeAddress(std::string_view path) {
    if (path.size() > maxPathBytes)
        return std::nullopt;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    address.sun_path[path.size()] = '\0';
    return address;
}

std::string encode(const HookRequest& request, std::string_view secret) {
    std::string out = "{\"v\":1,\"secret\":";
    out += JSONValue::quote(secret);
    out += ",\"agent\":";
    out += JSONValue::quote(request.agent);
    out += ",\"event\":";
    out += JSONValue::quote(request.event);
    out += ",\"pid\":";
    out += std::to_string(request.pid);
    out += ",\"payload\":";
    out += request.payload.isObject() ? request.payload.compact() : "{}";
    if (request.host) {
        out += ",\"host\":";
        out += JSONValue::quote(*request.host);
    }
    if (request.agentPid) {
        out += ",\"agentPid\":";
        out += std::to_string(*request.agentPid);
    }
    if (request.noHold)
        out += ",\"noHold\":true";
    out += "}\n";
    return out;
}

std::optional<std::pair<std::string, HookRequest>> decode(std::string_view line) {
    auto object = parseObject(line);
    if (!object || !hasVersion(*object))
        return std::nullopt;
    const JSONValue* secret = object->get("secret");
    const JSONValue* agent = object->get("agent");
    const JSONValue* event = object->get("event");
    if (!secret || !secret->isString() || !agent || !agent->isString() || !event ||
        !event->isString())
        return std::nullopt;

    HookRequest request;
    request.agent = *agent->stringValue();
    request.event = *event->stringValue();
    if (JSONValue* payload = object->get("payload"); payload && payload->isObject())
        request.payload = std::move(*payload);
    if (readInt32(object->get("pid"), request.pid) == IntegerField::outOfRange)
        return std::nullopt;
    if (const JSONValue* host = object->get("host"); host && host->isString())
        request.host = *host->stringValue();
    std::int32_t agentPid = 0;
    switch (readInt32(object->get("agentPid"), agentPid)) {
    case IntegerField::outOfRange:
        return std::nullopt;
    case IntegerField::inRange:
        request.agentPid = agentPid;
        break;
    case IntegerField::absent:
        break;
    }
    if (const JSONValue* noHold = object->get("noHold"))
        request.noHold = noHold->boolValue().value_or(false);
    return std::make_pair(*secret->stringValue(), std::move(request));
}

std::string encode(const HookOutput& output) {
    if (!UTF8::isValid(output.stdoutText))
        return "{}\n";
    std::string out = "{\"v\":1,\"stdout\":";
    out += JSONValue::quote(output.stdoutText);
    out += ",\"exit\":";
    out += std::to_string(output.exitCode);
    out += "}\n";
    return out;
}

std::optional<HookOutput> decodeResponse(std::string_view line) {
    auto object = parseObject(line);
    if (!object || !hasVersion(*object))
        return std::nullopt;
    HookOutput output;
    if (const JSONValue* text = object->get("stdout"); text && text->isString())
        output.stdoutText = *text->stringValue();
    std::int32_t exitCode = 0;
    if (readInt32(object->get("exit"), exitCode) == IntegerField::inRange)
        output.exitCode = exitCode;
    return output;
}

std::optional<std::string> readLine(int fd, double timeoutSeconds) {
    using Steady = std::chrono::steady_clock;
    const auto deadline = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                              std::chrono::duration<double>(timeoutSeconds));
    std::string line;
    char chunk[readChunkBytes];
    for (;;) {
        auto remaining = deadline - Steady::now();
        if (remaining <= Steady::duration::zero())
            return std::nullopt;
        // Rounded up so the last millisecond is waited for, not spun through.
        auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
        pollfd entry{fd, POLLIN, 0};
        int ready =
            ::poll(&entry, 1, static_cast<int>(std::min<long long>(milliseconds, 3600LL * 1000)));
        if (ready == 0)
            continue; // The loop re-checks the deadline.
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return std::nullopt;
        }
        if (got == 0) {
            if (line.empty())
                return std::nullopt;
            return line;
        }
        const char* end =
            static_cast<const char*>(std::memchr(chunk, '\n', static_cast<size_t>(got)));
        if (end) {
            // One exchange per connection: whatever follows the line feed is dropped.
            line.append(chunk, static_cast<size_t>(end - chunk));
            if (line.size() > maxLineBytes)
                return std::nullopt;
            return line;
        }
        line.append(chunk, static_cast<size_t>(got));
        if (line.size() > maxLineBytes)
            return std::nullopt;
    }
}

bool writeAll(int fd, std::string_view bytes) {
    try {
        IO::sendAll(fd, bytes, "socket");
        return true;
    } catch (const SystemError&) {
        return false;
    }
}

bool secretsMatch(std::string_view expected, std::string_view received) {
    if (expected.size() != received.size())
        return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < expected.size(); ++i)
        difference |= static_cast<unsigned char>(expected[i] ^ received[i]);
    return difference == 0;
}

} // namespace tidewick::Wire
