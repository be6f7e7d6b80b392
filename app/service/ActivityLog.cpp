#include "service/ActivityLog.h"

#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/JSONCoding.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidewick {

namespace {

// Valid UTF-8 and bounded: one line must never make the log unreadable or huge.
std::string cleaned(const std::string& text) {
    return Text::cut(UTF8::repaired(text), ActivityLog::textLimit, Text::ellipsis);
}

} // namespace

ActivityLog::ActivityLog(std::string path, std::uintmax_t limitBytes)
    : path_(std::move(path)), limitBytes_(limitBytes) {}

std::string ActivityLog::line(const AgentEvent& event, Date time) {
    std::string text;
    JSONWriter out(text);
    out.beginObject();
    out.member("time", time);
    out.member("agent", event.agent);
    out.member("session", cleaned(event.sessionId));
    out.member("kind", event.kind);
    if (event.title)
        out.member("title", cleaned(*event.title));
    if (event.detail)
        out.member("detail", cleaned(*event.detail));
    out.endObject();
    text.push_back('\n');
    return text;
}

std::string ActivityLog::noticeLine(std::string_view sentence, Date time) {
    std::string text;
    JSONWriter out(text);
    out.beginObject();
    out.member("time", time);
    out.member("notice", cleaned(std::string(sentence)));
    out.endObject();
    text.push_back('\n');
    return text;
}

void ActivityLog::append(const AgentEvent& event, Date time) {
    appendLine(line(event, time));
}

void ActivityLog::note(std::string_view sentence, Date time) {
    appendLine(noticeLine(sentence, time));
}

namespace {

// The size of `file` once a last line without its line feed (a write cut short by a crash)
// is cut off.
off_t wholeLinesSize(int file, off_t size, const std::string& path) {
    char block[4096];
    off_t end = size;
    while (end > 0) {
        const off_t blockSize = static_cast<off_t>(sizeof block);
        const off_t start = end > blockSize ? end - blockSize : 0;
        const ssize_t got = ::pread(file, block, static_cast<std::size_t>(end - start), start);
        if (got != end - start)
            throw SystemError("read", path, got < 0 ? errno : EIO);
        for (ssize_t i = got; i > 0; --i)
            if (block[i - 1] == '\n')
                return start + i;
        // The last byte is a line feed in every log that ends whole: one block read.
        end = start;
    }
    return 0;
}

} // namespace

void ActivityLog::appendLine(std::string_view line) {
    std::lock_guard guard(lock_);
    File::makeDirectories(File::parent(path_), 0700);

    struct stat info {};
    if (::stat(path_.c_str(), &info) == 0 && info.st_size > 0 &&
        static_cast<std::uintmax_t>(info.st_size) + line.size() > limitBytes_) {
        if (::rename(path_.c_str(), previousPath().c_str()) != 0)
            throw SystemError("rename", path_, errno);
    }

    const FileDescriptor file = FileDescriptor::open(path_, O_RDWR | O_CREAT | O_APPEND, 0600);
    if (::fstat(file.get(), &info) != 0)
        throw SystemError("fstat", path_, errno);
    const off_t whole = wholeLinesSize(file.get(), info.st_size, path_);
    if (whole != info.st_size && ::ftruncate(file.get(), whole) != 0)
        throw SystemError("ftruncate", path_, errno);
    // O_APPEND and the lock keep lines from interleaving; a write that stops part-way
    // (no space left) is taken back, so the next record starts on a line of its own.
    try {
        IO::writeAll(file.get(), line, path_);
    } catch (const SystemError&) {
        (void)::ftruncate(file.get(), whole);
        throw;
    }
}

} // namespace tidewick
