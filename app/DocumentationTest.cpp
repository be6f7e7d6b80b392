// What ships beside the programs keeps up with them: the manual page names
// every command and setting and renders cleanly, and the completion scripts of
// bash, zsh and fish know every command and complete what they should.
#include "TidewickPrograms.h"

#include "foundation/JSONCoding.h"
#include "service/SettingCatalog.h"
#include "testing/TestFiles.h"

#include <gmock/gmock.h>
#include <regex>
#include <sys/stat.h>

namespace tidewick {
namespace {

using ::testing::HasSubstr;
using testing::ProgramResult;
using testing::runProgram;

const std::string source = TIDEWICK_SOURCE_DIR;
const std::string manual = source + "/doc/tidewick.1";
const std::string bashScript = source + "/completions/tidewick.bash";
const std::string zshScript = source + "/completions/_tidewick";
const std::string fishScript = source + "/completions/tidewick.fish";

/// The subcommands a `--help` lists.
std::vector<std::string> subcommandsIn(const std::string& help) {
    std::vector<std::string> names;
    const std::size_t start = help.find("Subcommands:\n");
    std::istringstream lines(start == std::string::npos ? "" : help.substr(start + 13));
    for (std::string line; std::getline(lines, line) && line.starts_with("  ");)
        names.push_back(line.substr(2, line.find(' ', 2) - 2));
    return names;
}

/// Runs `arguments` with `environment`, PATH=/usr/bin:/bin unless it names another.
ProgramResult shell(const std::vector<std::string>& arguments,
                    std::vector<std::string> environment = {}) {
    if (std::none_of(environment.begin(), environment.end(),
                     [](const std::string& entry) { return entry.starts_with("PATH="); }))
        environment.push_back("PATH=/usr/bin:/bin");
    environment.push_back("HOME=/nonexistent");
    return runProgram(arguments, environment, {}, {}, std::chrono::seconds(60));
}

class Documentation : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(File::isExecutableFile(testing::TidewickPrograms::tidewickPath));
    }
    testing::TidewickPrograms run;
};

TEST_F(Documentation, TheManualAndEveryCompletionNameEveryCommandAndTheManualEverySetting) {
    const std::string page = File::read(manual);
    const std::string bash = File::read(bashScript), zsh = File::read(zshScript),
                      fish = File::read(fishScript);
    const std::vector<std::string> commands = subcommandsIn(run.tidewick({"--help"}).out);
    ASSERT_GE(commands.size(), 12u);
    for (const std::string& command : commands) {
        SCOPED_TRACE(command);
        const std::string escaped = std::regex_replace(command, std::regex("-"), "\\-");
        EXPECT_THAT(page, HasSubstr(".SS \"tidewick " + escaped));
        EXPECT_TRUE(std::regex_search(bash, std::regex("commands=\"[^\"]*\\b" + command + "\\b")));
        EXPECT_TRUE(std::regex_search(zsh, std::regex("['\"]" + command + ":")));
        EXPECT_THAT(fish, HasSubstr("-a " + command + " -d"));
    }
    const std::vector<std::string> service = subcommandsIn(run.tidewick({"service", "--help"}).out);
    ASSERT_EQ(service.size(), 3u);
    for (const std::string& command : service)
        EXPECT_THAT(page, HasSubstr(".SS \"tidewick service " + command + "\"")) << command;
    for (const std::string* script : {&bash, &zsh, &fish})
        EXPECT_THAT(*script, HasSubstr("install uninstall status"));

    // Every setting `tidewick settings` lists, described under SETTINGS.
    const std::string settings =
        page.substr(page.find(".SH SETTINGS"), page.find(".SH FILES") - page.find(".SH SETTINGS"));
    for (const SettingCatalog::Entry& entry : SettingCatalog::entries()) {
        const std::string key =
            std::regex_replace(std::string(entry.name), std::regex("\\."), "\\.");
        SCOPED_TRACE(entry.name);
        EXPECT_TRUE(std::regex_search(settings, std::regex("\\.BR? [^\\n]*\\b" + key + "\\b")));
    }
}

TEST_F(Documentation, TheManualRendersWithoutWarnings) {
    if (!File::isExecutableFile("/usr/bin/man"))
        GTEST_SKIP() << "man is not installed (Debian packages man-db and groff-base)";
    const ProgramResult rendered = shell({"/usr/bin/man", "--warnings", "-l", manual},
                                         {"MANWIDTH=80", "MANPAGER=cat", "LANG=C.UTF-8"});
    EXPECT_EQ(rendered.status, 0);
    EXPECT_EQ(rendered.err, "");
    EXPECT_THAT(rendered.out, HasSubstr("tidewick service install"));
}

TEST_F(Documentation, CompletionsCompleteCommandsOptionsAgentsAndHeldSessions) {
    // A stand-in tidewick on PATH answers `pending --json` (and `settings --json`) as the
    // real one would.
    const std::string bin = File::join(run.home(), "bin");
    testing::put(File::join(bin, "tidewick"),
                 "#!/bin/sh\nprintf '[\\n  {\\n    \"shortId\": \"4f2a\"\\n  },\\n  {\\n    "
                 "\"shortId\": \"b71c\",\\n    \"name\": \"quietMode\"\\n  }\\n]\\n'\n",
                 0755);
    const std::vector<std::pair<std::string, std::string>> bashRows = {
        {"tidewick se", "sessions service settings"},
        {"tidewick gate ", "--help cursor antigravity"},
        {"tidewick settings set quiet", "quietMode"},
        {"tidewick deny --", "--help --agent --message"},
        {"tidewick allow --agent cu", "cursor"},
        {"tidewick let-stop ", "--help --agent 4f2a b71c"},
        {"tidewick service u", "uninstall"},
        {"tidewick connect ant", "antigravity"},
    };
    for (const auto& [line, expected] : bashRows) {
        SCOPED_TRACE(line);
        const ProgramResult completed = shell(
            {"/bin/bash", "-c",
             "source '" + bashScript +
                 "'; read -ra COMP_WORDS <<<\"$LINE\"; "
                 "[[ $LINE == *' ' ]] && COMP_WORDS+=(''); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                 "_tidewick; echo \"${COMPREPLY[*]}\""},
            {"LINE=" + line, "PATH=" + bin + ":/usr/bin:/bin"});
        EXPECT_EQ(completed.out, expected + "\n") << completed.err;
    }

    if (File::isExecutableFile("/usr/bin/zsh")) {
        EXPECT_EQ(shell({"/usr/bin/zsh", "-n", zshScript}).status, 0);
    }
    if (!File::isExecutableFile("/usr/bin/fish"))
        GTEST_SKIP() << "fish is not installed: its completions were not tried";
    const ProgramResult fish = shell(
        {"/usr/bin/fish", "--no-config", "-c",
         "source '" + fishScript + "'; complete -C 'tidewick se'; complete -C 'tidewick allow '"},
        {"PATH=" + bin + ":/usr/bin:/bin"});
    EXPECT_EQ(fish.err, "");
    EXPECT_THAT(fish.out, HasSubstr("sessions\tList the running application's sessions\n"));
    EXPECT_THAT(fish.out, HasSubstr("4f2a\tHolds a request\n"));
}

} // namespace
} // namespace tidewick
