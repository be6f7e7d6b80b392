#include "systemd/Systemctl.h"

#include "foundation/File.h"
#include "foundation/Subprocess.h"
#include "foundation/SystemError.h"

#include <cstdlib>
#include <optional>
#include <string_view>

namespace tidewick {

namespace {

std::optional<std::string> findSystemctl() {
    std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
    path += ":/usr/bin:/bin";
    std::string_view rest = path;
    while (!rest.empty()) {
        const std::size_t colon = rest.find(':');
        const std::string_view directory = rest.substr(0, colon);
        rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        if (directory.empty())
            continue;
        const std::string candidate = File::join(std::string(directory), "systemctl");
        if (File::isExecutableFile(candidate))
            return candidate;
    }
    return std::nullopt;
}

} // namespace

Systemctl::Result SystemSystemctl::run(const std::vector<std::string>& arguments) {
    const std::optional<std::string> systemctl = findSystemctl();
    if (!systemctl)
        return Result{127, "", "systemctl: not found"};
    Subprocess::Command command;
    command.arguments = {*systemctl, "--user"};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    try {
        Subprocess::Result result =
            Subprocess::run(command, Subprocess::Group::shared, std::chrono::minutes(2));
        return Result{result.status, std::move(result.out), std::move(result.err)};
    } catch (const SystemError& error) {
        return Result{127, "", error.what()};
    }
}

} // namespace tidewick
