#include "foundation/TidewickPaths.h"

#include "foundation/File.h"
#include "foundation/Hex.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <limits.h>
#include <sstream>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tidewick {

namespace {

// The secret is text: bytes that are not UTF-8 make the file as unusable as a short one.
std::optional<std::string> usableSecretIn(const std::string& content) {
    if (!UTF8::isValid(content))
        return std::nullopt;
    std::string secret(Text::trimmed(content));
    if (Text::characterCount(secret) < 32)
        return std::nullopt;
    return secret;
}

// The trimmed content of the secret file when it is a usable secret, else
// nothing. A failed read is thrown as it is.
std::optional<std::string> usableSecret(const std::string& path) {
    return usableSecretIn(File::read(path));
}

} // namespace

TidewickPaths::TidewickPaths(std::string home) : home_(std::move(home)) {
    if (home_.empty() || home_.front() != '/') {
        char cwd[PATH_MAX];
        if (::getcwd(cwd, sizeof cwd))
            home_ = home_.empty() ? std::string(cwd) : File::join(cwd, home_);
    }
    while (home_.size() > 1 && home_.back() == '/')
        home_.pop_back();
}

std::uint64_t fnv1a64(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char c : bytes) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

std::string TidewickPaths::userHome() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    // /etc/passwd read by hand rather than through getpwuid: the hook command is linked
    // statically, where the system's user lookup would need shared libraries at run time.
    const std::string uid = std::to_string(getuid());
    try {
        std::istringstream lines(File::read("/etc/passwd"));
        for (std::string line; std::getline(lines, line);) {
            // name:password:uid:gid:gecos:home:shell
            std::vector<std::string_view> fields;
            for (size_t start = 0;;) {
                size_t colon = line.find(':', start);
                fields.emplace_back(std::string_view(line).substr(start, colon - start));
                if (colon == std::string::npos)
                    break;
                start = colon + 1;
            }
            if (fields.size() >= 6 && fields[2] == uid && !fields[5].empty())
                return std::string(fields[5]);
        }
    } catch (const SystemError&) {
        // No password file: fall through.
    }
    return "/";
}

TidewickPaths TidewickPaths::forCurrentUser() {
    if (const char* home = std::getenv("TIDEWICK_HOME"))
        return TidewickPaths(home);
    return TidewickPaths(userHome());
}

std::string TidewickPaths::appSupport() const {
    return File::join(home_, "Library/Application Support/Tidewick");
}
std::string TidewickPaths::binDirectory() const {
    return File::join(appSupport(), "bin");
}
std::string TidewickPaths::helperPath() const {
    return File::join(binDirectory(), "tidewick-hook");
}
std::string TidewickPaths::backupsDirectory() const {
    return File::join(appSupport(), "Backups");
}
std::string TidewickPaths::handoffsDirectory() const {
    return File::join(appSupport(), "Handoffs");
}
std::string TidewickPaths::secretFile() const {
    return File::join(appSupport(), "secret");
}
std::string TidewickPaths::settingsFile() const {
    return File::join(appSupport(), "settings.json");
}
std::string TidewickPaths::sessionsFile() const {
    return File::join(appSupport(), "sessions.json");
}
std::string TidewickPaths::activityFile() const {
    return File::join(appSupport(), "activity.jsonl");
}
std::string TidewickPaths::connectionsFile() const {
    return File::join(appSupport(), "connections.json");
}
std::string TidewickPaths::claudeLimitsFile() const {
    return File::join(appSupport(), "claude-limits.json");
}
std::string TidewickPaths::soundsDirectory() const {
    return File::join(appSupport(), "Sounds");
}
std::string TidewickPaths::avatarFile() const {
    return File::join(appSupport(), "avatar.json");
}

std::string TidewickPaths::socketPath() const {
    std::string candidate = File::join(appSupport(), "tidewick.sock");
    if (candidate.size() <= 100)
        return candidate;
    // A deep home would overflow sockaddr_un; both sides derive the same short name.
    char name[64];
    std::snprintf(name, sizeof name, "/tmp/tw-%u-%llx.sock", static_cast<unsigned>(getuid()),
                  static_cast<unsigned long long>(fnv1a64(appSupport())));
    return name;
}

std::string TidewickPaths::controlSocketPath() const {
    std::string candidate = File::join(appSupport(), "control.sock");
    if (candidate.size() <= 100)
        return candidate;
    char name[64];
    std::snprintf(name, sizeof name, "/tmp/tw-%u-%llx.control.sock",
                  static_cast<unsigned>(getuid()),
                  static_cast<unsigned long long>(fnv1a64(appSupport())));
    return name;
}

std::string TidewickPaths::debugMarkerFile() const {
    return File::join(File::parent(socketPath()), "debug-hooks");
}

std::string TidewickPaths::debugLogFile() const {
    return File::join(File::parent(socketPath()), "hook-debug.jsonl");
}

void TidewickPaths::ensureDirectories() const {
    File::makeDirectories(appSupport(), 0700);
    File::makeDirectories(binDirectory(), 0700);
    File::makeDirectories(backupsDirectory(), 0700);
    if (::chmod(appSupport().c_str(), 0700) != 0)
        throw SystemError("chmod", appSupport(), errno);
}

std::string TidewickPaths::loadOrCreateSecret() const {
    try {
        if (auto existing = usableSecret(secretFile()))
            return *existing;
    } catch (const SystemError&) {
        // Missing or unreadable: make a new one below.
    }
    ensureDirectories();
    unsigned char bytes[32];
    size_t filled = 0;
    while (filled < sizeof bytes) {
        ssize_t got = ::getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            throw SystemError("getrandom", secretFile(), got < 0 ? errno : EIO);
        filled += static_cast<size_t>(got);
    }
    std::string secret;
    Hex::append(secret, bytes);
    File::writeAtomically(secretFile(), secret, 0600);
    if (::chmod(secretFile().c_str(), 0600) != 0)
        throw SystemError("chmod", secretFile(), errno);
    return secret;
}

std::string TidewickPaths::readSecret() const {
    auto secret = usableSecret(secretFile());
    if (!secret)
        throw CorruptSecret("Tidewick's secret file " + secretFile() + " is damaged.");
    return *secret;
}

std::optional<std::string> TidewickPaths::secretIfReadable() const {
    // Opened without File::read so that the usual failure, no secret yet, throws nothing.
    const std::string path = secretFile();
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return std::nullopt;
    try {
        return usableSecretIn(IO::readAll(file.get(), IO::noLimit, path));
    } catch (const SystemError&) {
        return std::nullopt;
    }
}

} // namespace tidewick
