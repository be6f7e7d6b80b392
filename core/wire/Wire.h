// The hook socket's framing: one compact JSON object per line each way, and
// the encoding of the request and the response.
#pragma once

#include "events/HookOutput.h"
#include "wire/HookRequest.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/un.h>
#include <utility>

namespace tidewick::Wire {

/// The protocol version both sides write and require.
inline constexpr int version = 1;
/// Longest line either side accepts, without its line feed (16 MiB).
inline constexpr std::size_t maxLineBytes = 16 * 1024 * 1024;
/// Bytes asked of each read().
inline constexpr std::size_t readChunkBytes = 65536;
/// Longest socket path a sockaddr_un can carry here.
inline constexpr std::size_t maxPathBytes = 103;

/// The address for `path`, NUL-terminated; nothing when the path has more
/// than 103 bytes.
[[nodiscard]] std::optional<sockaddr_un> makeAddress(std::string_view path);

/// The request line (with its line feed) carrying `secret`.
[[nodiscard]] std::string encode(const HookRequest& request, std::string_view secret);

/// Memory decoding a request line may take, the line itself included, whatever the
/// line holds: 4 times its size, and at least decodingFloorBytes.
[[nodiscard]] std::size_t decodingLimit(std::size_t lineBytes);
/// The least decodingLimit gives: small lines are never refused for their shape.
inline constexpr std::size_t decodingFloorBytes = 1024 * 1024;

/// The request of a request line (without its line feed) that carries `secret`.
/// Nothing when the line is not a JSON object, "v" is not the integer 1,
/// "secret", "agent" or "event" is missing or not a string, "pid" or
/// "agentPid" does not fit 32 bits, or the secret differs. Other fields of the
/// wrong type are taken as absent. The payload is read only once the secret
/// matched, and only when reading it keeps within decodingLimit (a line of
/// millions of tiny values would take tens of times its size); a payload that
/// would not is malformed.
[[nodiscard]] std::optional<HookRequest> decode(std::string_view line, std::string_view secret);

/// The response line (with its line feed) for `output`; "{}\n" when the
/// output cannot be encoded (its text is not UTF-8), which clients reject.
[[nodiscard]] std::string encode(const HookOutput& output);

/// The output of a response line. Nothing unless it is a JSON object whose
/// "v" is the integer 1; a missing or mistyped "stdout" is empty and "exit" 0.
[[nodiscard]] std::optional<HookOutput> decodeResponse(std::string_view line);

/// Reads one line from `fd`, waiting at most `timeoutSeconds` in all, and
/// returns it without its line feed; bytes after the line feed are dropped.
/// A peer that closes after a partial line still delivers it. Nothing on
/// time-out, error, end of stream with nothing read, or a line longer than
/// maxLineBytes.
[[nodiscard]] std::optional<std::string> readLine(int fd, double timeoutSeconds);

/// Writes every byte of `bytes` to the socket `fd` (SIGPIPE suppressed).
/// False on any error other than EINTR, including a send time-out.
[[nodiscard]] bool writeAll(int fd, std::string_view bytes);

/// Compares two secrets in time that depends only on their lengths.
[[nodiscard]] bool secretsMatch(std::string_view expected, std::string_view received);

} // namespace tidewick::Wire
