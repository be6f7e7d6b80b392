// Keeps the list of sessions across restarts in one JSON file.
#pragma once

#include "foundation/Clock.h"
#include "sessions/Session.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewick {

/// Reads and rewrites the sessions file: a JSON array of sessions, dates as seconds since
/// 1970 written to the millisecond (any fraction is read, within the clock's range). Takes
/// no lock: the caller makes sure two saves never overlap.
class SessionPersistence {
public:
    /// The file at `url` (TidewickPaths::sessionsFile() in the application).
    explicit SessionPersistence(std::string url) : url_(std::move(url)) {}

    [[nodiscard]] const std::string& url() const { return url_; }

    /// What read() found.
    struct Contents {
        std::vector<Session> sessions;
        /// A file is there but did not load (unreadable, malformed, or one record that does
        /// not decode): replacing it would lose every session in it.
        bool unreadable = false;
    };

    /// The sessions in the file. Any failure (missing or unreadable file, malformed JSON,
    /// one record that does not decode) gives an empty list, reports nothing and leaves the
    /// file as it is; `unreadable` tells a file that did not load from a missing one.
    [[nodiscard]] Contents read() const;
    /// read()'s sessions alone.
    [[nodiscard]] std::vector<Session> load() const { return read().sessions; }

    /// Files that did not load kept at once; older ones are deleted.
    static constexpr std::size_t unreadableKept = 3;
    /// Moves the file aside, before a save replaces a file that did not load, as
    /// "<name>.unreadable-<time>" (the UTC time of `now`, ".1", ".2"… added when taken)
    /// with mode 0600, and deletes the oldest such files beyond unreadableKept. Returns
    /// the kept file's path; nothing when no regular file is there. Throws SystemError
    /// naming the failed call; the file is then left where it was.
    [[nodiscard]] std::optional<std::string> keepUnreadable(Date now) const;

    /// Replaces the file's content with `sessions`: creates the folder (0700) when missing,
    /// writes atomically and leaves the file with mode 0600. True when written; on failure
    /// the previous file stays in place and the next save tries again.
    bool save(const std::vector<Session>& sessions) const;

    /// The file's content for `sessions`, handed to `write` piece by piece (about a
    /// megabyte each); an exception thrown by `write` ends the encoding.
    static void encode(const std::vector<Session>& sessions,
                       const std::function<void(std::string_view)>& write);
    /// The file's content for `sessions`, whole.
    [[nodiscard]] static std::string encode(const std::vector<Session>& sessions);
    /// Files of at least this many bytes are decoded on two threads.
    static constexpr std::size_t splitBytes = 4 * 1024 * 1024;
    /// The sessions in `bytes`, in order; nothing when the bytes are not UTF-8 holding an
    /// array of valid sessions.
    [[nodiscard]] static std::optional<std::vector<Session>> decode(std::string_view bytes);

private:
    std::string url_;
};

} // namespace tidewick
