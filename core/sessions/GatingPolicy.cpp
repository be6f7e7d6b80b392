#include "sessions/GatingPolicy.h"

#include "foundation/JSONCoding.h"
#include "foundation/Text.h"
#include "sessions/ShellWords.h"

#include <algorithm>
#include <array>

namespace tidewick {

namespace {

constexpr std::size_t longestReadOnlyCommand = 399;

constexpr std::string_view metacharacters = ";&|><`$()\n\\{}";

// Options that make an otherwise reading command write a file, run a program or
// open a pager. "-O" is kept although commands are lower-cased first, so it
// never matches by itself; "-o" covers it.
constexpr std::array<std::string_view, 15> dangerousOptions = {
    "--output", "-o",      "--pre",      "-s", "--set",      "--exec",     "-exec",
    "--delete", "-delete", "--in-place", "-i", "--ext-diff", "--textconv", "--open-files-in-pager",
    "-O"};

constexpr std::array<std::string_view, 3> dangerousOptionPrefixes = {
    "--output=", "--pre=", "--exec="};

constexpr std::array<std::string_view, 9> branchListingOptions = {
    "-a", "-r", "-v", "-vv", "--list", "-l", "--show-current", "--all", "--remotes"};

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& list, std::string_view word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

// The shell removes quotes before the program sees its arguments, so "--pre=x"
// in quotes, or --p''re=x, still reaches the program as --pre=x.
std::string withoutQuotes(std::string_view word) {
    std::string plain;
    for (char c : word)
        if (c != '"' && c != '\'')
            plain.push_back(c);
    return plain;
}

// Several tools (git among them) accept any unambiguous beginning of a long
// option, so --outp=file writes just as --output=file does.
bool abbreviatesDangerousOption(std::string_view word) {
    if (!Text::startsWith(word, "--"))
        return false;
    std::string_view name = word.substr(0, word.find('='));
    if (name.size() < 4)
        return false;
    for (std::string_view option : dangerousOptions)
        if (Text::startsWith(option, "--") && Text::startsWith(option, name))
            return true;
    return false;
}

bool isDangerousOption(std::string_view word) {
    std::string plain = withoutQuotes(word);
    if (contains(dangerousOptions, plain))
        return true;
    for (std::string_view prefix : dangerousOptionPrefixes)
        if (Text::startsWith(plain, prefix))
            return true;
    return abbreviatesDangerousOption(plain);
}

bool hasControlCharacter(std::string_view text) {
    // The shell splits words at tabs too, while this test splits at spaces only:
    // a tab could hide an option from the check above.
    return std::any_of(text.begin(), text.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

} // namespace

const std::vector<std::string>& GatingPolicy::defaultSafePrefixes() {
    static const std::vector<std::string> prefixes = {"ls",
                                                      "pwd",
                                                      "cat",
                                                      "head",
                                                      "tail",
                                                      "wc",
                                                      "echo",
                                                      "which",
                                                      "whoami",
                                                      "date",
                                                      "uname",
                                                      "tree",
                                                      "file",
                                                      "stat",
                                                      "du",
                                                      "df",
                                                      "git status",
                                                      "git diff",
                                                      "git log",
                                                      "git show",
                                                      "git branch",
                                                      "git rev-parse",
                                                      "git remote -v",
                                                      "git ls-files",
                                                      "grep",
                                                      "rg",
                                                      "fd",
                                                      "node -v",
                                                      "node --version",
                                                      "npm -v",
                                                      "python3 --version",
                                                      "swift --version",
                                                      "cargo --version"};
    return prefixes;
}

GatingPolicy::Verdict GatingPolicy::evaluate(const AgentEvent& event) const {
    if (event.decisionType != DecisionType::permission || paused)
        return Verdict::passThrough;
    // Claude Code and Codex are always asked: the read-only shortcut is for the others.
    if (event.agent == AgentKind::claude || event.agent == AgentKind::codex)
        return Verdict::ask;
    auto gate = gateCommands.find(event.agent);
    if (gate != gateCommands.end() && !gate->second)
        return Verdict::passThrough;
    if (!event.detail)
        return Verdict::ask;
    return isReadOnly(*event.detail) ? Verdict::allowSilently : Verdict::ask;
}

bool GatingPolicy::isReadOnly(std::string_view command) const {
    std::string_view text = Text::trimmed(command);
    if (text.empty())
        return false;
    if (Text::characterCount(text) > longestReadOnlyCommand)
        return false;
    if (text.find_first_of(metacharacters) != std::string_view::npos || hasControlCharacter(text))
        return false;

    const std::string lower = Text::lowercased(text);
    const std::vector<std::string_view> list = ShellWords::split(lower, " ");
    for (std::size_t i = 1; i < list.size(); ++i)
        if (isDangerousOption(list[i]))
            return false;

    // The listing-only form of git branch is decided here, whatever the prefixes say.
    if (lower == "git branch" || Text::startsWith(lower, "git branch ")) {
        for (std::size_t i = 2; i < list.size(); ++i)
            if (!contains(branchListingOptions, list[i]))
                return false;
        return true;
    }

    return std::any_of(safePrefixes.begin(), safePrefixes.end(),
                       [&lower](const std::string& prefix) {
                           return lower == prefix ||
                                  (lower.size() > prefix.size() &&
                                   Text::startsWith(lower, prefix) && lower[prefix.size()] == ' ');
                       });
}

void writeJSON(JSONWriter& out, const GatingPolicy& policy) {
    out.beginObject();
    out.member("gateCommands", policy.gateCommands);
    out.member("safePrefixes", policy.safePrefixes);
    out.member("paused", policy.paused);
    out.member("pausedUntil", policy.pausedUntil);
    out.endObject();
}

bool readJSON(JSONReader& in, GatingPolicy& out) {
    return readObject(in, JSONMember::required("gateCommands", out.gateCommands),
                      JSONMember::required("safePrefixes", out.safePrefixes),
                      JSONMember::required("paused", out.paused),
                      JSONMember::optional("pausedUntil", out.pausedUntil));
}

} // namespace tidewick
