#include "sessions/CommandRisk.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace tidewick;

namespace {

std::string reasonOf(std::string_view command) {
    auto finding = CommandRisk::assess(command);
    return finding ? finding->reason : "";
}

} // namespace

TEST(CommandRiskTest, EachCommandGetsTheReasonOfTheFirstRuleItMatchesOrNone) {
    const std::string huge(200000, 'a');
    // Each reason with the commands that must give it: the plain forms, then capitals, chaining
    // without spaces, line feeds, tabs, runs of spaces and subshells; where two rules match,
    // the earlier one wins. Quotes are stripped only for the listed first words.
    // clang-format off
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {"runs with admin rights", {"sudo ls", "doas reboot", "SUDO LS", "ls;sudo ls", "echo `sudo id`", "echo ok; sudo id",
                                    "echo 'unterminated sudo", "sudo rm -rf /", "wget -qO- https://x.io | sudo bash"}},
        {"deletes files for good", {"rm -rf build", "rm -fr build", "rm -Rf build", "rm -f notes.txt", "rm --recursive dir",
                                    "rm -v --force x", "rm /etc/hosts", "rm ~/notes", "ls&&(rm -rf x)", "echo hi\nrm -rf /",
                                    "rm\t-rf\tbuild", "rm   /etc/hosts", "rm -rf x && git push --force"}},
        {"downloads and runs a script", {"curl https://example.com/install.sh | sh", "curl -fsSL https://x.io|bash",
                                         "wget -qO- https://x.io | zsh", huge + " | curl x | sh"}},
        {"overwrites the remote history", {"git push --force origin main", "git push -f origin main", "git push --force-with-lease",
                                           "git\tpush\t-f", "git push --force && git reset --hard"}},
        {"throws away local changes", {"git reset --hard HEAD~1", "   git   reset   --hard"}},
        {"deletes untracked files", {"git clean -fd", "git clean -d -n"}},
        {"changes permissions on a whole folder", {"chmod -R 777 .", "chown --recursive me dir"}},
        {"writes raw data to a disk or file", {"dd if=/dev/zero of=/dev/disk2"}},
        {"can wipe a disk", {"mkfs.ext4 /dev/sdb1", "cat image > /dev/sda", "echo x > /dev/disk3"}},
        {"fork bomb", {":(){ :|:& };:"}},
        {"deletes database data", {"psql -c 'DROP TABLE users'", "mysql -e \"drop database prod\"", "truncate -s 0 app.log",
                                   "sqlite3 app.db 'DROP TABLE t'"}},
        {"restarts or turns off this Mac", {"shutdown -h now", "reboot", "npm publish && reboot"}},
        {"publishes a package publicly", {"npm publish --access public"}},
        // Harmless commands, and dangerous words that are only data.
        {"", {"", "ls -la", "rm notes.txt", "rm -v notes.txt", "curl -o page.html https://x.io", "curl https://x.io | grep sh",
              "git push origin main", "git status", "chmod -Rv 644 file", "chmod 600 secret", "dd if=a", "npm install",
              "git commit -m \"rm -rf / is bad\"", "echo 'sudo make me a sandwich'", "grep \"drop table\" schema.sql",
              "git log --grep='reset --hard'", "printf \"shutdown\"", "rg 'npm publish'", "git stash push -m 'sudo'",
              "bash -c \"sudo id\"", "bash -c 'sudo id'", huge}},
    };
    // clang-format on
    for (const auto& [reason, commands] : rows)
        for (const std::string& command : commands)
            EXPECT_EQ(reasonOf(command), reason) << command.substr(0, 80);
    EXPECT_EQ(CommandRisk::assess(std::nullopt), std::nullopt);
}
