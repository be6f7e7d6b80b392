#include "sessions/SessionPersistence.h"

#include "foundation/File.h"
#include "foundation/JSONCoding.h"
#include "foundation/MappedFile.h"
#include "foundation/SystemError.h"
#include "foundation/UTF8.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <exception>
#include <iterator>
#include <sys/stat.h>
#include <thread>

namespace tidewick {

namespace {

// The size of the pieces in which a save hands the text to the file.
constexpr std::size_t pieceBytes = 1024 * 1024;

// Which records of the file's array one reader decodes: those that start before the
// cut, or the others.
enum class Part { beforeCut, fromCut };

// Decodes one part of the array in `bytes` into `out`; false when a record does not decode
// or the text is not JSON. Both parts find the same cut because both walk the same records
// with the same parser: the part from the cut passes over the records before it without
// decoding them, though still checking their syntax.
bool decodePart(std::string_view bytes, std::size_t cut, Part part,
                std::vector<Session>& out) noexcept {
    try {
        JSONReader in(bytes);
        if (in.peek() != JSONValue::Kind::Array)
            return false;
        in.beginArray();
        while (in.nextElement()) {
            const bool beforeCut = in.offset() < cut;
            if (part == Part::beforeCut && !beforeCut)
                return true; // the other reader decodes the rest and checks the end
            if (part == Part::fromCut && beforeCut) {
                in.skipValue();
                continue;
            }
            if (!readJSON(in, out.emplace_back()))
                return false;
        }
        in.finish();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// "2026-03-01T09-30-00Z": the time in UTC, with no colon, which not every file system takes.
std::string fileStamp(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H-%M-%SZ", &parts);
    return text;
}

} // namespace

void SessionPersistence::encode(const std::vector<Session>& sessions,
                                const std::function<void(std::string_view)>& write) {
    std::string piece;
    piece.reserve(pieceBytes + pieceBytes / 4);
    JSONWriter writer(piece);
    writer.beginArray();
    for (const Session& session : sessions) {
        writeJSON(writer, session);
        // Handed on a megabyte at a time, the text stays in the cache and the whole file
        // never needs memory of its own.
        if (piece.size() >= pieceBytes) {
            write(piece);
            piece.clear();
        }
    }
    writer.endArray();
    write(piece);
}

std::string SessionPersistence::encode(const std::vector<Session>& sessions) {
    std::string text;
    encode(sessions, [&text](std::string_view piece) { text += piece; });
    return text;
}

std::optional<std::vector<Session>> SessionPersistence::decode(std::string_view bytes) {
    // One bad record loses the list: a half-restored history would mislead more.
    if (bytes.size() < splitBytes) {
        std::vector<Session> sessions;
        // Every record is before a cut past the end, so this one reader also checks the end.
        if (UTF8::isValid(bytes) &&
            decodePart(bytes, std::string_view::npos, Part::beforeCut, sessions))
            return sessions;
        return std::nullopt;
    }
    // Decoding takes most of the start-up time: a large file is read by two threads, each
    // decoding the records on its side of a cut. Passing over a record costs about a third
    // of decoding it, so the thread that passes over everything before the cut gets the
    // smaller share.
    const std::size_t cut = bytes.size() / 5 * 3;
    std::vector<Session> tail;
    bool tailDecoded = false;
    std::thread other([&] { tailDecoded = decodePart(bytes, cut, Part::fromCut, tail); });
    std::vector<Session> head;
    const bool headDecoded = UTF8::isValid(bytes) && decodePart(bytes, cut, Part::beforeCut, head);
    other.join();
    if (!headDecoded || !tailDecoded)
        return std::nullopt;
    head.insert(head.end(), std::make_move_iterator(tail.begin()),
                std::make_move_iterator(tail.end()));
    return head;
}

SessionPersistence::Contents SessionPersistence::read() const {
    Contents contents;
    try {
        // Mapped rather than read: the text is decoded once, straight from the file's pages.
        const MappedFile file(url_);
        std::optional<std::vector<Session>> sessions = decode(file.bytes());
        contents.unreadable = !sessions;
        if (sessions)
            contents.sessions = std::move(*sessions);
    } catch (const SystemError& error) {
        contents.unreadable = error.code() != ENOENT && error.code() != ENOTDIR;
    } catch (const std::exception&) {
        contents.unreadable = true;
    }
    return contents;
}

std::optional<std::string> SessionPersistence::keepUnreadable(Date now) const {
    struct stat info {};
    if (::lstat(url_.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    const std::string folder = File::parent(url_);
    const std::string prefix = File::lastComponent(url_) + ".unreadable-";
    const std::string stamp = fileStamp(now);
    std::string kept = url_ + ".unreadable-" + stamp;
    for (int n = 1; File::exists(kept); ++n)
        kept = url_ + ".unreadable-" + stamp + "." + std::to_string(n);
    // The file holds the user's prompts, commands and paths: owner only, like the original.
    if (::chmod(url_.c_str(), 0600) != 0)
        throw SystemError("chmod", url_, errno);
    if (::rename(url_.c_str(), kept.c_str()) != 0)
        throw SystemError("rename", url_, errno);

    std::vector<std::string> names = File::listFolder(folder);
    std::erase_if(names, [&](const std::string& name) { return !name.starts_with(prefix); });
    // The stamps sort in time order, and ".1" after the plain stamp of the same second.
    std::sort(names.begin(), names.end());
    for (std::size_t i = 0; i + unreadableKept < names.size(); ++i)
        (void)::unlink(File::join(folder, names[i]).c_str());
    return kept;
}

bool SessionPersistence::save(const std::vector<Session>& sessions) const {
    try {
        File::makeDirectories(File::parent(url_), 0700);
        // The file holds the user's prompts, commands and paths: owner only.
        AtomicFile file(url_, 0600);
        encode(sessions, [&file](std::string_view piece) { file.write(piece); });
        file.commit();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace tidewick
