#include "sessions/AlwaysAllow.h"

#include "events/PermissionUpdates.h"
#include "foundation/JSONCoding.h"
#include "foundation/Text.h"
#include "sessions/ShellWords.h"

#include <algorithm>
#include <iterator>

namespace tidewick {

namespace {

// Tools whose second word picks what they do, so that "git status" and "git push" are not
// allowed together.
constexpr std::string_view subcommandTools[] = {
    "apt",    "apt-get", "brew",    "bun",     "bundle",  "cargo",   "composer", "conda",
    "deno",   "docker",  "dotnet",  "gh",      "git",     "go",      "gradle",   "helm",
    "kubectl", "make",   "mvn",     "nix",     "npm",     "npx",     "pip",      "pip3",
    "pnpm",   "podman",  "poetry",  "rustup",  "swift",   "systemctl", "terraform", "uv",
    "yarn",   "cmake",   "ctest",   "just",    "rake",    "dnf"};

// Where the plain words of a command end: quoting, expansion, globbing and every operator.
constexpr std::string_view wordsEnd = ";&|<>`$(){}[]*?!#~\\\"'\n\r";

bool isAssignment(std::string_view word) {
    const std::size_t equals = word.find('=');
    if (equals == 0 || equals == std::string_view::npos)
        return false;
    return std::all_of(word.begin(), word.begin() + equals, [](char c) {
        return c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
}

// Compared in lower case: the Mac's file system runs NPM as npm.
bool hasSubcommands(std::string_view word) {
    const std::string name = Text::lowercased(word.substr(word.rfind('/') + 1));
    return std::find(std::begin(subcommandTools), std::end(subcommandTools), name) !=
           std::end(subcommandTools);
}

// A word that names a subcommand or a script, not an option or a path to a file.
bool isSubcommand(std::string_view word) {
    return !word.empty() && word.front() != '-' && word.find('=') == std::string_view::npos;
}

} // namespace

void writeJSON(JSONWriter& out, const AlwaysAllowOffer& offer) {
    out.beginObject();
    out.member("kind", offer.kind);
    out.member("tool", offer.tool);
    out.member("text", offer.text);
    out.endObject();
}

bool readJSON(JSONReader& in, AlwaysAllowOffer& out) {
    return readObject(in, JSONMember::required("kind", out.kind),
                      JSONMember::required("tool", out.tool),
                      JSONMember::required("text", out.text));
}

namespace AlwaysAllow {

std::optional<std::string> commandPrefix(std::string_view command) {
    const std::string_view plain = command.substr(0, command.find_first_of(wordsEnd));
    std::vector<std::string_view> words = ShellWords::split(plain, " \t");
    auto first = std::find_if_not(words.begin(), words.end(), isAssignment);
    words.erase(words.begin(), first);
    if (words.empty())
        return std::nullopt;
    std::string prefix(words[0]);
    if (!hasSubcommands(words[0]) || words.size() < 2 || !isSubcommand(words[1]))
        return prefix;
    prefix += " " + std::string(words[1]);
    // "npm run build": the script is what runs.
    if (words[1] == "run" && words.size() > 2 && isSubcommand(words[2]))
        prefix += " " + std::string(words[2]);
    return prefix;
}

std::optional<AlwaysAllowOffer> offer(AgentKind agent, const HeldCall& call) {
    if (agent == AgentKind::codex || !call.questions.empty())
        return std::nullopt;
    const std::optional<std::string> prefix =
        call.command ? commandPrefix(*call.command) : std::nullopt;
    if (agent != AgentKind::claude) {
        if (!prefix)
            return std::nullopt;
        return AlwaysAllowOffer{AlwaysAllowOffer::Kind::safePrefix, call.tool,
                                Text::lowercased(*prefix)};
    }
    if (prefix)
        return AlwaysAllowOffer{AlwaysAllowOffer::Kind::agentRule, call.tool, *prefix + ":*"};
    if (!call.suggestions.empty())
        return AlwaysAllowOffer{AlwaysAllowOffer::Kind::agentSuggestions, call.tool,
                                PermissionUpdates::describe(call.suggestions)};
    return std::nullopt;
}

} // namespace AlwaysAllow
} // namespace tidewick
