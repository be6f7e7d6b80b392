#include "systemd/UserService.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"
#include "systemd/UnitTemplate.h"

#include <cerrno>
#include <unistd.h>

namespace tidewick {

namespace {

constexpr std::string_view executablePlaceholder = "@TIDEWICK_EXECUTABLE@";

// systemd reads a quoted word with C escapes and expands % specifiers everywhere.
std::string quotedWord(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            quoted.push_back('\\');
        if (c == '%')
            quoted.push_back('%');
        quoted.push_back(c);
    }
    return quoted + "\"";
}

// A command line also expands $VARIABLES.
std::string quotedCommand(std::string_view path) {
    std::string escaped;
    for (char c : path) {
        if (c == '$')
            escaped.push_back('$');
        escaped.push_back(c);
    }
    return quotedWord(escaped);
}

// The last line systemctl wrote, for a sentence that ends it with a full stop.
std::string lastWords(const Systemctl::Result& result) {
    std::string words = result.err.empty() ? result.out : result.err;
    while (!words.empty() && (words.back() == '\n' || words.back() == ' ' || words.back() == '.'))
        words.pop_back();
    if (const std::size_t line = words.rfind('\n'); line != std::string::npos)
        words.erase(0, line + 1);
    return words.empty() ? "exit status " + std::to_string(result.status) : words;
}

std::string firstWord(const std::string& text) {
    const std::size_t end = text.find_first_of(" \n");
    return text.substr(0, end);
}

} // namespace

UserService::UserService(Unit unit, Systemctl& systemctl)
    : unit_(std::move(unit)), systemctl_(systemctl) {}

std::string UserService::unitPath() const {
    return File::join(File::join(unit_.home, ".config/systemd/user"), unitName);
}

std::string UserService::unitText() const {
    std::string text(unitTemplate);
    if (const std::size_t at = text.find(executablePlaceholder); at != std::string::npos)
        text.replace(at, executablePlaceholder.size(), quotedCommand(unit_.executable));
    if (unit_.tidewickHome) {
        const std::string section = "[Service]\n";
        if (const std::size_t at = text.find(section); at != std::string::npos)
            text.insert(at + section.size(),
                        "Environment=" + quotedWord("TIDEWICK_HOME=" + *unit_.tidewickHome) + "\n");
    }
    return text;
}

Systemctl::Result UserService::step(const std::vector<std::string>& arguments) {
    Systemctl::Result result = systemctl_.run(arguments);
    if (result.status != 0) {
        std::string command = "systemctl --user";
        for (const std::string& argument : arguments)
            command += " " + argument;
        throw Failed("Tidewick couldn't run `" + command + "`: " + lastWords(result) + ".");
    }
    return result;
}

void UserService::requireManager() {
    if (systemctl_.run({"show-environment"}).status != 0)
        throw Unavailable();
}

void UserService::install(Start start) {
    requireManager();
    const std::string path = unitPath();
    File::makeDirectories(File::parent(path), 0755);
    File::writeAtomically(path, unitText(), 0644);
    (void)step({"daemon-reload"});
    if (start == Start::now)
        (void)step({"enable", "--now", unitName});
    else
        (void)step({"enable", unitName});
}

bool UserService::uninstall() {
    requireManager();
    const std::string path = unitPath();
    if (!File::exists(path))
        return false;
    (void)step({"disable", "--now", unitName});
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw SystemError("unlink", path, errno);
    (void)step({"daemon-reload"});
    return true;
}

UserService::Status UserService::status() {
    requireManager();
    Status status;
    status.installed = File::exists(unitPath());
    // Both answer with a word and a status that is 0 only for "enabled" and "active".
    const Systemctl::Result enabled = systemctl_.run({"is-enabled", unitName});
    status.enabled = enabled.status == 0 && firstWord(enabled.out) == "enabled";
    const Systemctl::Result active = systemctl_.run({"is-active", unitName});
    status.state = firstWord(active.out);
    status.running = active.status == 0 && status.state == "active";
    return status;
}

} // namespace tidewick
