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

void ActivityLog::append(const AgentEvent& event, Date time) {
    const std::string line = ActivityLog::line(event, time);
    std::lock_guard guard(lock_);
    File::makeDirectories(File::parent(path_), 0700);

    struct stat info {};
    if (::stat(path_.c_str(), &info) == 0 && info.st_size > 0 &&
        static_cast<std::uintmax_t>(info.st_size) + line.size() > limitBytes_) {
        if (::rename(path_.c_str(), previousPath().c_str()) != 0)
            throw SystemError("rename", path_, errno);
    }

    const FileDescriptor file = FileDescriptor::open(path_, O_WRONLY | O_CREAT | O_APPEND, 0600);
    // One write per line with O_APPEND: a line is never interleaved with another.
    IO::writeAll(file.get(), line, path_);
}

} // namespace tidewick
