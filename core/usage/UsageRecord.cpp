#include "usage/UsageRecord.h"

#include "foundation/FileDescriptor.h"
#include "foundation/IO.h"
#include "foundation/SystemError.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>

namespace tidewick::UsageRecord {

bool exists(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0)
        return true;
    if (errno == ENOENT || errno == ENOTDIR)
        return false;
    throw SystemError("stat", path, errno);
}

JSONValue readSmallJSON(const std::string& path, std::int64_t limit) {
    const FileDescriptor file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0)
        throw SystemError("fstat", path, errno);
    if (!S_ISREG(info.st_mode))
        throw std::runtime_error("it is not a regular file");
    const std::string bytes = IO::readAll(file.get(), static_cast<std::size_t>(limit) + 1, path);
    if (static_cast<std::int64_t>(bytes.size()) > limit)
        throw std::runtime_error("it is larger than " + std::to_string(limit) + " bytes");
    return JSONValue::parse(bytes);
}

std::optional<Date> modifiedAt(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return std::nullopt;
    return Date(
        std::chrono::seconds(info.st_mtim.tv_sec) +
        std::chrono::duration_cast<Date::duration>(std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
}

std::optional<UsageWindow> window(std::string name, const JSONValue* used,
                                  std::optional<std::int64_t> minutes) {
    const std::optional<double> percent = used ? used->doubleValue() : std::nullopt;
    if (!percent || !std::isfinite(*percent))
        return std::nullopt;
    UsageWindow window;
    window.name = std::move(name);
    window.usedPercent = std::clamp(*percent, 0.0, 100.0);
    window.windowMinutes = minutes;
    return window;
}

} // namespace tidewick::UsageRecord
