#include "presentation/SoundPlayer.h"

#include "foundation/File.h"
#include "testing/Eventually.h"
#include "testing/TemporaryDirectory.h"
#include "testing/TestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

namespace tidewick {
namespace {

/// Folders of fake player programs: each notes its name and arguments in "played" and
/// then waits while "hold" exists.
class FakePlayers {
public:
    std::string path(const std::string& name) const { return File::join(root.path(), name); }

    /// Adds `program` to folder `folder`; a name ending in "!" is not executable.
    void add(const std::string& folder, std::string program) const {
        const bool executable = !program.ends_with("!");
        if (!executable)
            program.pop_back();
        testing::put(File::join(path(folder), program),
                     "#!/bin/sh\necho \"$(basename \"$0\") $*\" >> '" + path("played") +
                         "'\nwhile [ -e '" + path("hold") + "' ]; do sleep 0.02; done\n",
                     executable ? 0700 : 0600);
    }

    /// What the players noted, once `lines` lines are there (or after the wait's bound).
    std::string played(std::size_t lines) const {
        std::string text;
        (void)testing::eventually([&] {
            text = File::exists(path("played")) ? File::read(path("played")) : "";
            return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= lines;
        });
        return text;
    }

    TemporaryDirectory root;
};

TEST(SoundPlayer, PlaysThroughTheFirstPlayerOnThePathElseRingsTheBell) {
    // ROOT stands for the fake players' folder.
    struct Row {
        std::string name;
        std::vector<std::pair<std::string, std::string>> programs; // folder, program
        std::string path;
        std::string played;            // what the player noted; empty: the bell rings
        std::string sounds = "Sounds"; // where the sounds go
        std::string report = "";
    };
    const std::vector<Row> rows = {
        {"pw-play before paplay, whatever the folder order",
         {{"a", "paplay"}, {"b", "pw-play"}},
         "ROOT/a:ROOT/b",
         "pw-play ROOT/Sounds/knock.wav"},
        {"paplay before aplay",
         {{"a", "aplay"}, {"b", "paplay"}},
         "ROOT/a:ROOT/b",
         "paplay ROOT/Sounds/knock.wav"},
        {"aplay, told to be quiet, past a missing folder and a program that is not executable",
         {{"a", "pw-play!"}, {"a", "aplay"}},
         "ROOT/missing:ROOT/a",
         "aplay -q ROOT/Sounds/knock.wav"},
        {"no player on the path", {{"a", "mpv"}}, "ROOT/a", ""},
        {"relative folders are never searched", {{"rel", "paplay"}}, "rel:", ""},
        {"sounds that cannot be written",
         {{"a", "paplay"}},
         "ROOT/a",
         "",
         "a/paplay/Sounds",
         "Tidewick couldn't write its alert sounds in ROOT/a/paplay/Sounds (mkdir(ROOT/a/paplay): "
         "Not a directory), so it rings the terminal bell instead."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakePlayers fakes;
        for (const auto& [folder, program] : row.programs)
            fakes.add(folder, program);
        auto rooted = [&](std::string text) {
            for (std::size_t at; (at = text.find("ROOT")) != std::string::npos;)
                text.replace(at, 4, fakes.root.path());
            return text;
        };
        std::vector<std::string> reports;
        SoundPlayer player(
            SoundLibrary(fakes.path(row.sounds)), rooted(row.path),
            [&reports](const std::string& sentence) { reports.push_back(sentence); });
        const auto expected =
            row.played.empty() ? SoundPlayer::Outcome::bell : SoundPlayer::Outcome::playing;
        for (int i = 0; i < (row.report.empty() ? 1 : 2); ++i)
            EXPECT_EQ(player.play(AlertSound::knock), expected);
        EXPECT_EQ(reports, row.report.empty() ? std::vector<std::string>{}
                                              : std::vector<std::string>{rooted(row.report)})
            << "reported once";
        if (row.played.empty()) {
            EXPECT_FALSE(File::exists(fakes.path("played")));
            continue;
        }
        EXPECT_EQ(fakes.played(1), rooted(row.played) + "\n");
        EXPECT_TRUE(testing::eventually([&] { return player.playing() == 0; }));
    }
}

TEST(SoundPlayer, NeverWaitsForThePlayerAndCollectsIt) {
    FakePlayers fakes;
    fakes.add("a", "paplay");
    testing::put(fakes.path("hold"), "");
    SoundPlayer player(SoundLibrary(fakes.path("Sounds")), fakes.path("a"));

    // Each play returns while its player still runs; beyond three at once a burst is
    // skipped rather than piled up (and without the bell: sounds are playing).
    for (AlertSound sound :
         {AlertSound::chime, AlertSound::buzz, AlertSound::pulse, AlertSound::question})
        EXPECT_EQ(player.play(sound), SoundPlayer::Outcome::playing);
    EXPECT_EQ(player.play(AlertSound::none), SoundPlayer::Outcome::silent);
    EXPECT_EQ(player.playing(), SoundPlayer::mostAtOnce);
    const std::string played = fakes.played(3);
    for (const char* name : {"chime.wav", "buzz.wav", "pulse.wav"})
        EXPECT_NE(played.find(name), std::string::npos) << played;
    EXPECT_EQ(played.find("question.wav"), std::string::npos) << played;

    ASSERT_EQ(::unlink(fakes.path("hold").c_str()), 0);
    EXPECT_TRUE(testing::eventually([&] { return player.playing() == 0; }));
}

} // namespace
} // namespace tidewick
