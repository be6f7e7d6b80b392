#include "wire/Wire.h"

#include "foundation/IO.h"
#include "foundation/JSONCoding.h"
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

// An integer of the socket's lines: "v", a process id or an exit status, written without
// fraction or exponent. A value of another type, or with either, counts as absent; digits
// that do not fit 32 bits make the value malformed.
struct LineInteger {
    std::optional<std::int32_t> value;
};

bool readJSON(JSONReader& in, LineInteger& out) {
    out.value.reset();
    if (in.peek() != JSONValue::Kind::Number) {
        in.skipValue();
        return true;
    }
    const std::string_view text = in.readNumber();
    if (text.find_first_of(".eE") != std::string_view::npos)
        return true;
    const std::optional<std::int64_t> wide = JSONReader::integerValue(text);
    if (!wide || *wide < INT32_MIN || *wide > INT32_MAX)
        return false;
    out.value = static_cast<std::int32_t>(*wide);
    return true;
}

// The payload's text, passed over without copying anything: it is read only once the
// secret matched.
struct PayloadText {
    std::string_view text;
    bool isObject = false;
};

bool readJSON(JSONReader& in, PayloadText& out) {
    out.isObject = in.peek() == JSONValue::Kind::Object;
    const std::size_t start = in.offset();
    in.skipValue();
    out.text = in.text().substr(start, in.offset() - start);
    return true;
}

// Reads the members of a line; false unless it is one object whose "v" is this protocol's
// version and whose members read.
template <typename... Members> bool decodeLine(std::string_view line, const Members&... members) {
    LineInteger lineVersion;
    try {
        requireUTF8(line);
        JSONReader in(line);
        const bool read = readObject(in, JSONMember::required("v", lineVersion), members...);
        in.finish();
        return read && lineVersion.value == version;
    } catch (const JSONValue::ParseError&) {
        return false;
    }
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
    std::string line;
    JSONWriter out(line);
    out.beginObject();
    out.member("v", version);
    out.member("secret", secret);
    out.member("agent", request.agent);
    out.member("event", request.event);
    out.member("pid", request.pid);
    out.key("payload");
    if (request.payload.isObject()) {
        out.value(request.payload);
    } else {
        out.beginObject();
        out.endObject();
    }
    out.member("host", request.host);
    out.member("agentPid", request.agentPid);
    out.member("tmuxPane", request.tmuxPane);
    out.member("tmuxSocket", request.tmuxSocket);
    if (request.noHold)
        out.member("noHold", true);
    out.endObject();
    line.push_back('\n');
    return line;
}

std::optional<HookRequest> decode(std::string_view line, std::string_view secret) {
    std::string received;
    HookRequest request;
    PayloadText payload;
    LineInteger pid;
    LineInteger agentPid;
    using M = JSONMember;
    if (!decodeLine(line, M::required("secret", received), M::required("agent", request.agent),
                    M::required("event", request.event), M::optional("payload", payload),
                    M::optional("pid", pid), M::lenient("host", request.host),
                    M::optional("agentPid", agentPid), M::lenient("tmuxPane", request.tmuxPane),
                    M::lenient("tmuxSocket", request.tmuxSocket),
                    M::lenient("noHold", request.noHold)))
        return std::nullopt;
    // A client without the secret never gets its payload read.
    if (!secretsMatch(secret, received))
        return std::nullopt;
    if (payload.isObject) {
        auto held = [](const std::optional<std::string>& text) {
            return text ? text->capacity() : 0;
        };
        const std::size_t envelope = received.capacity() + request.agent.capacity() +
                                     request.event.capacity() + held(request.host) +
                                     held(request.tmuxPane) + held(request.tmuxSocket);
        const JSONReader::Footprint footprint = JSONReader(payload.text).measureValue();
        if (line.size() + envelope + footprint.bytes > decodingLimit(line.size()))
            return std::nullopt;
        JSONReader in(payload.text);
        in.reserveFor(footprint);
        request.payload = in.readValue();
    }
    request.pid = pid.value.value_or(0);
    request.agentPid = agentPid.value;
    return request;
}

std::size_t decodingLimit(std::size_t lineBytes) {
    return std::max(4 * lineBytes, decodingFloorBytes);
}

std::string encode(const HookOutput& output) {
    if (!UTF8::isValid(output.stdoutText))
        return "{}\n";
    std::string line;
    JSONWriter out(line);
    out.beginObject();
    out.member("v", version);
    out.member("stdout", output.stdoutText);
    out.member("exit", output.exitCode);
    out.endObject();
    line.push_back('\n');
    return line;
}

std::optional<HookOutput> decodeResponse(std::string_view line) {
    HookOutput output;
    LineInteger exitCode;
    // An exit status that does not fit is 0, like a missing one.
    if (!decodeLine(line, JSONMember::lenient("stdout", output.stdoutText),
                    JSONMember::lenient("exit", exitCode)))
        return std::nullopt;
    output.exitCode = exitCode.value.value_or(0);
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
