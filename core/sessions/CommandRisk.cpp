#include "sessions/CommandRisk.h"

#include "foundation/Text.h"
#include "sessions/ShellWords.h"

#include <algorithm>
#include <array>
#include <vector>

namespace tidewick::CommandRisk {

namespace {

using ShellWords::split;

// Whether the command's words inside quotes are data (a message, a pattern) rather than
// commands. Only these first words: elsewhere a quoted string may well be a script.
bool quotesHoldData(const std::vector<std::string_view>& words) {
    static constexpr std::array<std::string_view, 5> textCommands = {"echo", "printf", "grep", "rg",
                                                                     "ag"};
    static constexpr std::array<std::string_view, 6> gitTextCommands = {"commit", "tag",  "log",
                                                                        "notes",  "grep", "stash"};
    if (words.empty())
        return false;
    if (std::find(textCommands.begin(), textCommands.end(), words[0]) != textCommands.end())
        return true;
    return words[0] == "git" && words.size() > 1 &&
           std::find(gitTextCommands.begin(), gitTextCommands.end(), words[1]) !=
               gitTextCommands.end();
}

// Replaces every complete "..." or '...' stretch, scanning left to right, by one space.
std::string withoutQuotedStretches(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '"' || c == '\'') {
            std::size_t close = text.find(c, i + 1);
            if (close != std::string_view::npos) {
                out.push_back(' ');
                i = close;
                continue;
            }
        }
        out.push_back(c);
    }
    return out;
}

// Tabs separate words for the shell just as spaces do, and runs of blanks mean
// one: "reset   --hard" must read as "reset --hard" in the text tests below.
std::string singleSpaced(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '\t')
            c = ' ';
        if (c == ' ' && !out.empty() && out.back() == ' ')
            continue;
        out.push_back(c);
    }
    return out;
}

class Command {
public:
    explicit Command(std::string padded)
        : padded_(std::move(padded)), tokens_(split(padded_, " ;&|()`")) {}
    // The tokens point into padded_.
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    [[nodiscard]] bool has(std::string_view text) const {
        return padded_.find(text) != std::string::npos;
    }

    [[nodiscard]] bool hasToken(std::string_view word) const {
        return std::find(tokens_.begin(), tokens_.end(), word) != tokens_.end();
    }

    [[nodiscard]] bool hasTokenStartingWith(std::string_view prefix) const {
        return std::any_of(tokens_.begin(), tokens_.end(), [prefix](std::string_view token) {
            return Text::startsWith(token, prefix);
        });
    }

    /// The run of tokens beginning with "-" right after the first token equal to `word`.
    [[nodiscard]] std::vector<std::string_view> flags(std::string_view word) const {
        std::vector<std::string_view> run;
        auto found = std::find(tokens_.begin(), tokens_.end(), word);
        if (found == tokens_.end())
            return run;
        for (auto it = found + 1; it != tokens_.end() && Text::startsWith(*it, "-"); ++it)
            run.push_back(*it);
        return run;
    }

private:
    std::string padded_;
    std::vector<std::string_view> tokens_;
};

// "--long" or a single-dash cluster such as -rf containing `letter`.
bool hasFlag(const std::vector<std::string_view>& flags, std::string_view longForm, char letter) {
    return std::any_of(flags.begin(), flags.end(), [&](std::string_view flag) {
        if (flag == longForm)
            return true;
        return !Text::startsWith(flag, "--") && flag.find(letter, 1) != std::string_view::npos;
    });
}

bool deletesForGood(const Command& command) {
    if (!command.hasToken("rm"))
        return false;
    std::vector<std::string_view> flags = command.flags("rm");
    bool recursive = hasFlag(flags, "--recursive", 'r');
    bool force = hasFlag(flags, "--force", 'f');
    if (recursive || force)
        return true;
    return command.has(" rm /") || command.has(" rm ~");
}

bool runsDownloadedScript(const Command& command) {
    if (!command.has("|"))
        return false;
    static constexpr std::array<std::string_view, 6> pipes = {"| sh",  "|sh",   "| bash",
                                                              "|bash", "| zsh", "| sudo"};
    bool pipedToShell = std::any_of(pipes.begin(), pipes.end(),
                                    [&](std::string_view form) { return command.has(form); });
    return pipedToShell && (command.hasToken("curl") || command.hasToken("wget"));
}

bool changesPermissionsRecursively(const Command& command) {
    bool chmod = command.hasToken("chmod");
    if (!chmod && !command.hasToken("chown"))
        return false;
    std::vector<std::string_view> flags = command.flags(chmod ? "chmod" : "chown");
    return std::any_of(flags.begin(), flags.end(),
                       [](std::string_view flag) { return flag == "-r" || flag == "--recursive"; });
}

} // namespace

std::optional<Finding> assess(std::optional<std::string_view> command) {
    if (!command || command->empty())
        return std::nullopt;
    std::string text = Text::replacingAll(Text::lowercased(*command), "\n", " ; ");
    text = singleSpaced(text);
    if (quotesHoldData(split(text, " ")))
        text = withoutQuotedStretches(text);
    const Command c(" " + text + " ");

    auto finding = [](std::string_view reason) {
        return std::optional<Finding>(Finding{std::string(reason)});
    };
    if (c.hasToken("sudo") || c.hasToken("doas"))
        return finding("runs with admin rights");
    if (deletesForGood(c))
        return finding("deletes files for good");
    if (runsDownloadedScript(c))
        return finding("downloads and runs a script");
    if (c.hasToken("git") && c.has("push") &&
        (c.has(" --force") || c.has(" -f ") || c.has("--force-with-lease")))
        return finding("overwrites the remote history");
    if (c.hasToken("git") && c.has("reset --hard"))
        return finding("throws away local changes");
    if (c.hasToken("git") && c.has(" clean ") && (c.has(" -f") || c.has(" -d")))
        return finding("deletes untracked files");
    if (changesPermissionsRecursively(c))
        return finding("changes permissions on a whole folder");
    if (c.hasToken("dd") && c.has(" of="))
        return finding("writes raw data to a disk or file");
    if (c.hasTokenStartingWith("mkfs") || c.has(" > /dev/sd") || c.has(" > /dev/disk"))
        return finding("can wipe a disk");
    if (c.has(":(){"))
        return finding("fork bomb");
    if (c.has("drop table") || c.has("drop database") || c.hasToken("truncate"))
        return finding("deletes database data");
    if (c.hasToken("shutdown") || c.hasToken("reboot") || c.hasToken("halt"))
        return finding("restarts or turns off this Mac");
    if (c.hasToken("npm") && c.hasToken("publish"))
        return finding("publishes a package publicly");
    return std::nullopt;
}

std::optional<Finding> assessDetail(const std::optional<std::string>& detail) {
    if (!detail)
        return std::nullopt;
    const std::string_view text = *detail;
    return assess(text.substr(0, text.find("\n\n")));
}

} // namespace tidewick::CommandRisk
