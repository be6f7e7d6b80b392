// Where every per-user file of Tidewick lives, for the hook command and the
// application alike, and the shared secret that guards the hook socket.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tidewick {

class TidewickPaths {
public:
    /// Thrown by readSecret() when the secret file holds fewer than 32 characters.
    class CorruptSecret : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Everything lives under `home` (a directory path). A relative `home` is
    /// taken against the current directory and trailing slashes are dropped,
    /// so the hook command and the application derive the same socket path.
    explicit TidewickPaths(std::string home);

    /// The paths for this process: $TIDEWICK_HOME when it is set (even empty),
    /// else $HOME, else the password database's home directory.
    [[nodiscard]] static TidewickPaths forCurrentUser();
    /// The real home directory of the user ($HOME, else the password database).
    [[nodiscard]] static std::string userHome();

    [[nodiscard]] const std::string& home() const { return home_; }
    [[nodiscard]] std::string appSupport() const;
    [[nodiscard]] std::string binDirectory() const;
    [[nodiscard]] std::string helperPath() const;
    [[nodiscard]] std::string backupsDirectory() const;
    /// "Handoffs": the handoff documents Tidewick writes (made on first use, mode 0700).
    [[nodiscard]] std::string handoffsDirectory() const;
    [[nodiscard]] std::string secretFile() const;
    [[nodiscard]] std::string settingsFile() const;
    [[nodiscard]] std::string sessionsFile() const;
    [[nodiscard]] std::string activityFile() const;
    [[nodiscard]] std::string connectionsFile() const;
    [[nodiscard]] std::string claudeLimitsFile() const;
    /// "Sounds": the alert sounds Tidewick synthesises, written on first use.
    [[nodiscard]] std::string soundsDirectory() const;
    /// "avatar.json": the user's own avatar, replacing the built-in one when it is valid.
    [[nodiscard]] std::string avatarFile() const;
    /// The application's control socket (used by the `tidewick` commands).
    [[nodiscard]] std::string controlSocketPath() const;

    /// The hook socket: "tidewick.sock" in appSupport when that path is at
    /// most 100 bytes, else "/tmp/tw-<uid>-<fnv1a hex>.sock".
    [[nodiscard]] std::string socketPath() const;
    /// The marker "debug-hooks" beside the socket: while it exists the hook command logs
    /// every payload it reads to debugLogFile().
    [[nodiscard]] std::string debugMarkerFile() const;
    /// "hook-debug.jsonl" beside the socket.
    [[nodiscard]] std::string debugLogFile() const;

    /// Creates appSupport, bin and Backups with mode 0700, and narrows
    /// appSupport to 0700 again. Throws SystemError.
    void ensureDirectories() const;

    /// The existing secret when it has at least 32 characters, else a fresh
    /// one (32 random bytes as 64 lowercase hex digits, no line feed) written
    /// atomically with mode 0600. An existing secret is never rotated.
    /// Throws SystemError.
    [[nodiscard]] std::string loadOrCreateSecret() const;

    /// The trimmed secret. Throws SystemError when the file cannot be read and
    /// CorruptSecret when it is not UTF-8 or holds fewer than 32 characters.
    /// Creates nothing.
    [[nodiscard]] std::string readSecret() const;

    /// readSecret() without exceptions: nothing wherever readSecret() would
    /// throw. For the hook command, whose fail-safe path must stay quick.
    [[nodiscard]] std::optional<std::string> secretIfReadable() const;

private:
    std::string home_;
};

/// 64-bit FNV-1a of `bytes`.
[[nodiscard]] std::uint64_t fnv1a64(std::string_view bytes);

} // namespace tidewick
