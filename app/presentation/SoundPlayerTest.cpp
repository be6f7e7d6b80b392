#include "presentation/SoundPlayer.h"

#include "foundation/File.h"
#include "testing/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <unistd.h>

namespace tidewick {
namespace {

using namespace std::chrono_literals;

/// Folders of fake player programs: each records its name and arguments in "played" and,
/// when "hold" exists, waits until it is removed.
class FakePlayers {
public:
    std::string folder(const std::string& name) const { return File::join(root.path(), name); }

    void add(const std::string& folderName, const std::string& program, mode_t mode = 0700) const {
        File::makeDirectories(folder(folderName), 0700);
        File::writeAtomically(File::join(folder(folderName), program),
                              "#!/bin/sh\n"
                              "echo \"$(basename \"$0\") $*\" >> '" +
                                  played() +
                                  "'\n"
                                  "while [ -e '" +
                                  hold() + "' ]; do sleep 0.02; done\n",
                              mode);
    }
    std::string played() const { return File::join(root.path(), "played"); }
    std::string hold() const { return File::join(root.path(), "hold"); }
    std::string sounds() const { return File::join(root.path(), "Sounds"); }

    /// What the players recorded once `lines` lines are there (10 s at most).
    std::string waitForPlayed(std::size_t lines) const {
        std::string text;
        for (int i = 0; i < 500; ++i, std::this_thread::sleep_for(20ms)) {
            text = File::exists(played()) ? File::read(played()) : "";
            if (static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= lines)
                break;
        }
        return text;
    }

    TemporaryDirectory root;
};

/// Waits (10 s at most) until no player runs.
bool allEnded(SoundPlayer& player) {
    for (int i = 0; i < 500 && player.playing() > 0; ++i)
        std::this_thread::sleep_for(20ms);
    return player.playing() == 0;
}

TEST(SoundPlayer, PlaysThroughTheFirstPlayerOnThePathElseRingsTheBell) {
    struct Row {
        std::string name;
        std::vector<std::pair<std::string, std::string>> programs; // folder, program
        std::string path;                                          // folder names, ':'
        std::string played; // what the player recorded; empty: the bell rings
    };
    const std::vector<Row> rows = {
        {"pw-play before paplay, whatever the folder order",
         {{"a", "paplay"}, {"b", "pw-play"}},
         "a:b",
         "pw-play SOUNDS/knock.wav"},
        {"paplay before aplay",
         {{"a", "aplay"}, {"b", "paplay"}},
         "a:b",
         "paplay SOUNDS/knock.wav"},
        {"aplay, told to be quiet", {{"a", "aplay"}}, "missing:a", "aplay -q SOUNDS/knock.wav"},
        {"a program that is not executable is passed over",
         {{"a", "pw-play!"}, {"a", "aplay"}},
         "a",
         "aplay -q SOUNDS/knock.wav"},
        {"no player on the path", {{"a", "mpv"}}, "a", ""},
        {"relative folders are never searched", {{"rel", "paplay"}}, "rel:", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakePlayers fakes;
        for (auto [folder, program] : row.programs) {
            const bool executable = !program.ends_with("!");
            if (!executable)
                program.pop_back();
            fakes.add(folder, program, executable ? 0700 : 0600);
        }
        std::string path;
        for (std::size_t start = 0; start <= row.path.size();) {
            std::size_t colon = std::min(row.path.find(':', start), row.path.size());
            const std::string name = row.path.substr(start, colon - start);
            // Relative names stay relative, as a user's PATH might have them.
            path += (path.empty() ? "" : ":") +
                    (name.empty() || name == "rel" ? name : fakes.folder(name));
            start = colon + 1;
        }
        int bells = 0;
        SoundPlayer player(SoundLibrary(fakes.sounds()), path, [&bells] { ++bells; });
        player.play(AlertSound::knock);
        EXPECT_TRUE(File::exists(File::join(fakes.sounds(), "knock.wav")));
        if (row.played.empty()) {
            EXPECT_EQ(bells, 1);
            EXPECT_FALSE(player.program());
            continue;
        }
        EXPECT_EQ(bells, 0);
        std::string expected = row.played;
        expected.replace(expected.find("SOUNDS"), 6, fakes.sounds());
        EXPECT_EQ(fakes.waitForPlayed(1), expected + "\n");
        EXPECT_TRUE(allEnded(player));
    }
}

TEST(SoundPlayer, NeverWaitsForThePlayerAndReapsIt) {
    FakePlayers fakes;
    fakes.add("a", "paplay");
    File::writeAtomically(fakes.hold(), "", 0600);
    int bells = 0;
    SoundPlayer player(SoundLibrary(fakes.sounds()), fakes.folder("a"), [&bells] { ++bells; });

    // Each play returns while its player still runs; beyond three at once a burst is
    // skipped rather than piled up (and without the bell: sounds are playing).
    for (AlertSound sound : {AlertSound::chime, AlertSound::buzz, AlertSound::pulse,
                             AlertSound::question, AlertSound::none})
        player.play(sound);
    EXPECT_EQ(player.playing(), SoundPlayer::mostAtOnce);
    const std::string played = fakes.waitForPlayed(3);
    for (const char* name : {"chime.wav", "buzz.wav", "pulse.wav"})
        EXPECT_NE(played.find(name), std::string::npos) << played;
    EXPECT_EQ(played.find("question.wav"), std::string::npos) << played;
    EXPECT_EQ(bells, 0);

    ASSERT_EQ(::unlink(fakes.hold().c_str()), 0);
    EXPECT_TRUE(allEnded(player));
}

TEST(SoundPlayer, RingsTheBellAndSaysSoOnceWhenTheSoundsCannotBeWritten) {
    FakePlayers fakes;
    fakes.add("a", "pw-play");
    File::writeAtomically(fakes.sounds(), "a file where the folder should be", 0600);
    int bells = 0;
    std::vector<std::string> reports;
    SoundPlayer player(
        SoundLibrary(File::join(fakes.sounds(), "Sounds")), fakes.folder("a"),
        [&bells] { ++bells; },
        [&reports](const std::string& sentence) { reports.push_back(sentence); });
    player.play(AlertSound::knock);
    player.play(AlertSound::knock);
    EXPECT_EQ(bells, 2);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(reports[0].starts_with("Tidewick couldn't write its alert sounds in " +
                                       fakes.sounds() + "/Sounds (mkdir("))
        << reports[0];
    EXPECT_TRUE(reports[0].ends_with("), so it rings the terminal bell instead.")) << reports[0];
    EXPECT_FALSE(File::exists(fakes.played()));
}

} // namespace
} // namespace tidewick
