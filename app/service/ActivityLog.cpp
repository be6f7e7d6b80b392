#include "service/ActivityLog.h"

#include "foundation/File.h"
#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"
#include "foundation/Text.h"
#include "foundation/UTF8.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace tidewick {

namespace {

// Valid UTF-8 and bounded: one line must never make the log unreadable or huge.
std::string cleaned(const std::string& text) {
    return Text::cut(UTF8::repaired(text), ActivityLog::textLimit, Text::ellipsis);
}

// Seconds with at most three decimals in plain notation, easy to read and to sort.
JSONValue seconds(Date time) {
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, secondsSince1970(time),
                                std::chars_format::fixed, 3);
    std::string text(buffer, result.ptr);
    while (text.back() == '0')
        text.pop_back();
    if (text.back() == '.')
        text.pop_back();
    return JSONValue::number(std::move(text));
}

} // namespace

ActivityLog::ActivityLog(std::string path, std::uintmax_t limitBytes)
    : path_(std::move(path)), limitBytes_(limitBytes) {}

JSONValue ActivityLog::record(const AgentEvent& event, Date time) {
    JSONValue::Object object = {
        {"time", seconds(time)},
        {"agent", rawValue(event.agent)},
        {"session", cleaned(event.sessionId)},
        {"kind", rawValue(event.kind)},
    };
    if (event.title)
        object.emplace_back("title", cleaned(*event.title));
    if (event.detail)
        object.emplace_back("detail", cleaned(*event.detail));
    return object;
}

void ActivityLog::append(const AgentEvent& event, Date time) {
    const std::string line = record(event, time).compact() + "\n";
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
