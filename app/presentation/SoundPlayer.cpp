#include "presentation/SoundPlayer.h"

#include "foundation/File.h"
#include "foundation/SystemError.h"

#include <algorithm>

namespace tidewick {

SoundPlayer::SoundPlayer(SoundLibrary library, std::string_view searchPath, Bell bell,
                         Reporter reporter)
    : library_(std::move(library)), program_(findPlayer(searchPath)), bell_(std::move(bell)),
      reporter_(std::move(reporter)) {}

std::optional<std::string> SoundPlayer::findPlayer(std::string_view searchPath) {
    for (std::string_view program : programs) {
        std::size_t start = 0;
        while (start <= searchPath.size()) {
            std::size_t colon = searchPath.find(':', start);
            if (colon == std::string_view::npos)
                colon = searchPath.size();
            const std::string folder(searchPath.substr(start, colon - start));
            start = colon + 1;
            // An empty entry would mean the current folder: never a place to run sounds from.
            if (folder.empty() || folder.front() != '/')
                continue;
            std::string candidate = File::join(folder, program);
            if (File::isExecutableFile(candidate))
                return candidate;
        }
    }
    return std::nullopt;
}

bool SoundPlayer::soundsReady() {
    if (ready_)
        return *ready_;
    try {
        (void)library_.prepare();
        ready_ = true;
    } catch (const SystemError& error) {
        ready_ = false;
        if (reporter_)
            reporter_("Tidewick couldn't write its alert sounds in " + library_.directory() + " (" +
                      error.what() + "), so it rings the terminal bell instead.");
    }
    return *ready_;
}

void SoundPlayer::play(AlertSound sound) {
    if (sound == AlertSound::none)
        return;
    reap();
    // Written whether or not a player is found, for anyone who wants to hear them.
    const bool ready = soundsReady();
    if (!program_ || !ready) {
        if (bell_)
            bell_();
        return;
    }
    if (running_.size() >= mostAtOnce)
        return; // a burst: the sounds already playing say it
    std::vector<std::string> arguments = {*program_};
    if (File::lastComponent(*program_) == "aplay")
        arguments.push_back("-q"); // aplay describes every file it plays otherwise
    arguments.push_back(library_.path(sound));
    try {
        running_.push_back(
            Subprocess::start(Subprocess::Command{std::move(arguments)}, "/dev/null", "/dev/null"));
    } catch (const SystemError&) {
        if (bell_)
            bell_();
    }
}

void SoundPlayer::reap() {
    std::erase_if(running_, [](Subprocess& player) {
        try {
            return !player.isRunning();
        } catch (const SystemError&) {
            return true; // not ours to wait for any more
        }
    });
}

std::size_t SoundPlayer::playing() {
    reap();
    return running_.size();
}

} // namespace tidewick
